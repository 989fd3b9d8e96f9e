#include "rules/access_rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <stdexcept>

namespace lumsar::service {
namespace {

bool matches(const std::string& pattern, const std::string& value) {
  return pattern == value || ::fnmatch(pattern.c_str(), value.c_str(), 0) == 0;
}

bool beginningMatches(const std::string& pattern, const std::string& value) {
  for (std::size_t size = 1; size <= pattern.size(); ++size) {
    if (matches(pattern.substr(0, size), value)) return true;
  }
  return false;
}

bool names(const std::string& pattern, const CameraInfo& info) {
  return matches(pattern, info.id) || matches(pattern, info.name);
}

}  // namespace

void AccessRules::add(const std::string& text, std::vector<Rule>& rules) {
  const std::size_t at = text.rfind('@');
  Rule rule = {text, text.substr(0, at), at == std::string::npos ? "*" : text.substr(at + 1)};
  if (rule.camera.empty() || rule.vm.empty()) {
    throw std::invalid_argument("expected CAMERA or CAMERA@VM, such as 'test:*' or 'Front@vm-7'");
  }
  rules.push_back(std::move(rule));
}

bool AccessRules::Rule::fits(const CameraInfo& info, const std::string& vmId) const {
  return names(text, info) || (matches(vm, vmId) && names(camera, info));
}

bool AccessRules::Rule::mayFitMore(const CameraInfo& info,
                                   const std::string& beginningOfVmId) const {
  return beginningMatches(vm, beginningOfVmId) && names(camera, info);
}

std::string AccessRules::refusal(const CameraInfo& camera, const std::string& vmId,
                                 bool mayBeCut) const {
  const auto fits = [&](const Rule& rule) { return rule.fits(camera, vmId); };
  const auto denies = [&](const Rule& rule) {
    return fits(rule) || (mayBeCut && rule.mayFitMore(camera, vmId));
  };
  const auto denied = std::ranges::find_if(m_denied, denies);
  if (denied != m_denied.end()) {
    return "the camera service denies it to VM '" + vmId + "' (--deny " + denied->text + ")";
  }
  if (m_allowed.empty() || std::ranges::any_of(m_allowed, fits)) return {};
  return "the camera service allows VM '" + vmId + "' other cameras only (--allow)";
}

std::vector<std::string> AccessRules::unmatched(const std::vector<CameraInfo>& cameras) const {
  std::vector<std::string> result;
  const auto add = [&](const std::vector<Rule>& rules, const char* option) {
    for (const Rule& rule : rules) {
      const auto named = [&](const CameraInfo& info) {
        return names(rule.text, info) || names(rule.camera, info);
      };
      if (std::ranges::none_of(cameras, named)) result.push_back(option + rule.text);
    }
  };
  add(m_allowed, "--allow ");
  add(m_denied, "--deny ");
  return result;
}

}  // namespace lumsar::service
