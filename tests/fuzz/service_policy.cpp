// The policy that a host sends: refused, or corrected until every value is in its range.
#include "rules/policy.h"

#include "base/text/bytes.h"
#include "fuzz/input.h"
#include "fuzz/qt_json.h"
#include "session/device_change.h"

namespace {

using namespace lumsar::service;
using lumsar::fuzz::require;

void checkRule(const PolicyRule& rule, bool h264Available) {
  const auto isSide = [](int side) { return side >= 16 && side <= 8192; };
  require(rule.quality >= 0 && rule.quality <= 100, "a quality in per cent");
  require(rule.intervalMs >= 0 && rule.intervalMs <= 10000, "an interval up to ten seconds");
  require(isSide(rule.maxWidth) && isSide(rule.maxHeight), "a size that can be encoded");
  require(rule.encoding == SentEncoding::Mjpg || h264Available, "an encoder that is installed");
  require(!rule.pixelFormats.empty(), "some pixel format");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  lumsar::fuzz::Input input(data, size);
  const bool h264Available = input.byte() % 2 == 0;
  const auto reading = readPolicy(lumsar::base::textOf(input.rest()), h264Available);
  require(reading.policy.has_value() == reading.error.empty(), "a policy or an error");
  if (!reading.policy) return 0;
  for (const PolicyRule& rule : reading.policy->rules) checkRule(rule, h264Available);
  checkRule(reading.policy->ruleFor({}), h264Available);
  for (const std::string& note : reading.notes) require(!note.empty(), "a note says something");
  return 0;
}
