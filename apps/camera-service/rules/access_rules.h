// AccessRules: which cameras may be shared with which VM, from --allow and --deny.
#pragma once

#include <string>
#include <vector>

#include "camera/camera_info.h"

namespace lumsar::service {

class AccessRules {
 public:
  // `rule` is CAMERA or CAMERA@VM; a camera is named by id or name, and * and ? stand for any text
  // and any character. As ids and names may hold an @ themselves, the whole text counts as a CAMERA
  // too. Throws std::invalid_argument with a text for the user.
  void allow(const std::string& rule) { add(rule, m_allowed); }
  void deny(const std::string& rule) { add(rule, m_denied); }

  // Why this camera must not be shared with this VM; empty when it may. A denial always counts; as
  // soon as anything is allowed by a rule, only what is allowed counts.
  // `mayBeCut`: only the beginning of the VM's id may be known, and a denial counts where the rest
  // might match.
  std::string refusal(const CameraInfo& camera, const std::string& vmId,
                      bool mayBeCut = false) const;

  // The rules, such as "--deny Typo*", that name none of these cameras.
  std::vector<std::string> unmatched(const std::vector<CameraInfo>& cameras) const;

 private:
  struct Rule {
    std::string text;
    std::string camera;
    std::string vm;

    bool fits(const CameraInfo& info, const std::string& vmId) const;
    bool mayFitMore(const CameraInfo& info, const std::string& beginningOfVmId) const;
  };
  static void add(const std::string& text, std::vector<Rule>& rules);

  std::vector<Rule> m_allowed;
  std::vector<Rule> m_denied;
};

}  // namespace lumsar::service
