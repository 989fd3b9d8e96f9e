// What of a plan a thin line takes: first the quality is lowered, then the rate of frames, then
// their size, and at last the rate further. The delay is not to grow instead.
#pragma once

#include "formats/capture_plan.h"

namespace lumsar::service {

// How much detail the camera sees: bytes that JPEG takes for a pixel at quality 50. A mean of the
// latest frames, as each is different.
class Detail {
 public:
  void add(std::size_t bytes, double pixels, int quality);
  double get() const { return m_detail; }

 private:
  double m_detail = 0.03;  // until the first frame, that of many views
};

// Bits a second that H.264 of the plan's quality has: 50 gives a tenth of a bit for each pixel.
double policyBitRate(const CapturePlan& plan);

// Bytes a second that the plan makes, about.
double byteRate(const CapturePlan& plan, const Detail& detail);

// `full` as far as the line takes it. `now`: the plan so far; a larger size is only gone back to
// when there is room to spare.
CapturePlan planForLine(const CapturePlan& full, double lineRate, const Detail& detail,
                        const CapturePlan& now);

}  // namespace lumsar::service
