// Tests of pass_through.h: what becomes of a frame, and why. Test's main thread.
#include "formats/pass_through.h"

#include <gtest/gtest.h>

#include "lumsar/camera_data.h"
#include "support/messages.h"
#include "unit/camera-service/media.h"

namespace lumsar::test {
namespace {

using service::CapturePlan;
using service::CaptureRequest;
using service::Treatment;

CapturePlan planFor(const CaptureRequest& request, const std::string& encoding = "MJPG") {
  return service::planCapture({{encoding, 320, 240, 30, 1}}, request);
}

CaptureRequest quality(int value) {
  CaptureRequest request;
  request.rule.quality = value;
  return request;
}

class TreatmentTest : public ::testing::Test {
 protected:
  std::string treatment(const CapturePlan& plan) const { return treatment(plan, jpeg); }
  static std::string treatment(const CapturePlan& plan, const Bytes& frame) {
    return describe(service::treatmentOf(frame, plan), plan);
  }
  const Bytes jpeg = makeJpeg(320, 240, 85);
};

TEST_F(TreatmentTest, PassesWhatThePolicyAccepts) {
  EXPECT_EQ(treatment(planFor(quality(85))), "passed through");
  EXPECT_EQ(treatment(planFor(quality(100))), "passed through");
  CaptureRequest slow = quality(85);
  slow.interval = 100'000;
  EXPECT_EQ(treatment(planFor(slow)), "passed through");
}

TEST_F(TreatmentTest, ToleratesAnEstimateThatIsAFewPointsOff) {
  EXPECT_EQ(treatment(planFor(quality(85 - service::kQualityTolerance))), "passed through");
  EXPECT_EQ(treatment(planFor(quality(84 - service::kQualityTolerance))),
            "encoded: the policy wants quality 79, the camera's own is about 85");
}

TEST_F(TreatmentTest, EncodesWhatThePolicyWantsOtherwise) {
  EXPECT_EQ(treatment(planFor({})),
            "encoded: the policy wants quality 50, the camera's own is about 85");
  CaptureRequest small = quality(100);
  small.rule.maxWidth = 160;
  EXPECT_EQ(treatment(planFor(small)), "encoded: the policy wants 160x120");
  CaptureRequest h264 = quality(100);
  h264.rule.encoding = service::SentEncoding::H264;
  EXPECT_EQ(treatment(planFor(h264)), "encoded: the policy wants H264");
  EXPECT_EQ(treatment(planFor(quality(100), "YUY2")), "encoded: the camera delivers YUY2");
}

TEST_F(TreatmentTest, EncodesWhatAVmCouldNotUse) {
  EXPECT_EQ(treatment(planFor(quality(100)), makeJpeg(160, 120, 85)),
            "encoded: the camera's frame is 160x120 instead of 320x240");
  EXPECT_EQ(treatment(planFor(quality(100)), {jpeg.begin(), jpeg.end() - 2}),
            "encoded: the camera's frame is cut off");
}

TEST_F(TreatmentTest, NothingIsKnownBeforeTheFirstFrame) {
  EXPECT_EQ(describe(Treatment{}, planFor({})), "no frame yet");
}

TEST_F(TreatmentTest, OnlyDamageCountsAsDamage) {
  const CapturePlan plan = planFor(quality(100));
  EXPECT_FALSE(service::treatmentOf(jpeg, plan).isDamaged());
  EXPECT_FALSE(service::treatmentOf(makeJpeg(160, 120, 85), plan).isDamaged());
  EXPECT_TRUE(service::treatmentOf(Bytes(10, 0), plan).isDamaged());
  EXPECT_FALSE(service::treatmentOf(Bytes(10, 0), planFor(quality(100), "I420")).isDamaged());
}

}  // namespace
}  // namespace lumsar::test
