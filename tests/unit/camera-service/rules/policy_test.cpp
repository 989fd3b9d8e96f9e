// Tests of policy.h: every key, in range and out of it. Test's main thread.
#include "rules/policy.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::CameraInfo;
using service::PolicyReading;
using service::PolicyRule;
using service::readPolicy;

// As the plug-in writes it from its own defaults.
constexpr const char* kUsual =
    R"({"command":"setpolicy","policy":[{"cameraCodec":"AUTO","cameraEnableFRC":"ON",)"
    R"("cameraEncodeType":"MJPG","cameraFrameInternal":0,"cameraFullSimulate":"ON",)"
    R"("cameraMaxResolution":"4000*4000","cameraPID":"","cameraPixelFormat":["MJPG","YUYV"],)"
    R"("cameraQuality":50,"cameraVID":""}],"rdrName":"lumsar","version":"1.0","vm_id":"vm-7"})";

PolicyReading readRule(const std::string& members, bool h264 = false) {
  return readPolicy(R"({"policy":[{)" + members + "}]}", h264);
}
PolicyRule rule(const std::string& members, bool h264 = false) {
  const PolicyReading reading = readRule(members, h264);
  return reading.policy && !reading.policy->rules.empty() ? reading.policy->rules.front()
                                                          : PolicyRule{};
}

TEST(PolicyTest, TheUsualDocumentNeedsNoCorrection) {
  const PolicyReading reading = readPolicy(std::string(kUsual) + '\0', false);
  ASSERT_TRUE(reading.policy.has_value()) << reading.error;
  EXPECT_TRUE(reading.notes.empty());
  EXPECT_EQ(reading.policy->vmId, "vm-7");
  ASSERT_EQ(reading.policy->rules.size(), 1U);
  EXPECT_EQ(reading.policy->rules.front(), PolicyRule{});
}

TEST(PolicyTest, WhatIsNoPolicyIsSaid) {
  for (const char* text : {"", "nonsense", "[1]", "{}", R"({"policy":5})", "\xFF\xFE"}) {
    const PolicyReading reading = readPolicy(text, false);
    EXPECT_FALSE(reading.policy.has_value()) << text;
    EXPECT_FALSE(reading.error.empty()) << text;
  }
  EXPECT_FALSE(readPolicy(std::string(100'000, '['), false).policy.has_value());
}

TEST(PolicyTest, AnEmptyPolicyIsTheBuiltInOne) {
  const PolicyReading reading = readPolicy(R"({"policy":[]})", false);
  ASSERT_TRUE(reading.policy.has_value());
  EXPECT_EQ(reading.policy->ruleFor(CameraInfo{}), PolicyRule{});
}

TEST(PolicyTest, Values) {
  EXPECT_EQ(rule(R"("cameraQuality":75)").quality, 75);
  EXPECT_EQ(rule(R"("cameraQuality":"75")").quality, 75);
  EXPECT_EQ(rule(R"("cameraFrameInternal":100)").intervalMs, 100);
  EXPECT_EQ(rule(R"("cameraMaxResolution":"640*640")").maxWidth, 640);
  EXPECT_EQ(rule(R"("cameraMaxResolution":"640*360")").maxHeight, 360);
  EXPECT_FALSE(rule(R"("cameraEnableFRC":"OFF")").followVm);
  EXPECT_TRUE(rule(R"("cameraEnableFRC":"on")").followVm);
  EXPECT_EQ(rule(R"("cameraEncodeType":"H264")", true).encoding, service::SentEncoding::H264);
  EXPECT_EQ(rule(R"("cameraPixelFormat":["NV12","yuyv"])").pixelFormats,
            (std::vector<std::string>{"NV12", "YUYV"}));
}

struct Correction {
  const char* members;
  const char* note;  // a part of the sentence
};

TEST(PolicyTest, CorrectionsAreSaid) {
  for (const Correction& c :
       {Correction{R"("cameraQuality":101)", "outside 0 to 100; using 100"},
        Correction{R"("cameraQuality":-1)", "using 0"},
        Correction{R"("cameraQuality":1e99)", "using 100"},
        Correction{R"("cameraQuality":"much")",
                   R"(cameraQuality "much" is not a number; using 50)"},
        Correction{R"("cameraQualty":70,"colour":1)",
                   R"(not known and left out: "cameraQualty", "colour")"},
        Correction{R"("cameraQuality":"nan")", "not a number; using 50"},
        Correction{R"("cameraQuality":"inf")", "using 100"},
        Correction{R"("cameraFrameInternal":999999)", "using 10000"},
        Correction{R"("cameraFrameInternal":null)", "cameraFrameInternal null is not"},
        Correction{R"("cameraMaxResolution":"*")", "using 1920*1080"},
        Correction{R"("cameraMaxResolution":"640")", "using 1920*1080"},
        Correction{R"("cameraMaxResolution":"1*2*3")", "using 1920*1080"},
        Correction{R"("cameraMaxResolution":5)", "cameraMaxResolution 5 is not"},
        Correction{R"("cameraMaxResolution":"99999*640")", "using 8192"},
        Correction{R"("cameraMaxResolution":"1*640")", "using 16"},
        Correction{R"("cameraEncodeType":"VP9")", "using MJPG"},
        Correction{R"("cameraEncodeType":7)",
                   "cameraEncodeType 7 is not MJPG, H264 or AUTO; using MJPG"},
        Correction{R"("cameraEncodeType":"H264")", "none is installed"},
        Correction{R"("cameraEnableFRC":"MAYBE")", R"("MAYBE" is neither ON nor OFF; using ON)"},
        Correction{R"("cameraPixelFormat":["XYZ","MJPG"])", R"("XYZ" is not known)"},
        Correction{R"("cameraPixelFormat":"MJPG")", "names no known format"},
        Correction{R"("cameraVID":"webcam")", "not a USB id"},
        Correction{R"("cameraPID":"12345")", "not a USB id"},
        Correction{R"("cameraVID":1133)", "not a string"},
        Correction{R"("cameraPID":null)", "not a string"}}) {
    const PolicyReading reading = readRule(c.members);
    ASSERT_TRUE(reading.policy.has_value()) << c.members;
    ASSERT_EQ(reading.notes.size(), 1U) << c.members;
    EXPECT_NE(reading.notes.front().find(c.note), std::string::npos) << reading.notes.front();
  }
}

TEST(PolicyTest, WhatIsReadIsShownInPartWhenItIsLong) {
  const std::string key(5000, 'k');
  for (const std::string& members : {"\"" + key + "\":1", R"("cameraQuality":")" + key + "\"",
                                     R"("cameraVID":")" + key + "\""}) {
    ASSERT_EQ(readRule(members).notes.size(), 1U);
    EXPECT_LT(readRule(members).notes.front().size(), 400U);
  }
}

TEST(PolicyTest, WhatIsCorrectedIsUsed) {
  EXPECT_EQ(rule(R"("cameraQuality":1000)").quality, 100);
  EXPECT_EQ(rule(R"("cameraFrameInternal":-5)").intervalMs, 0);
  EXPECT_EQ(rule(R"("cameraMaxResolution":"*")").maxWidth, 1920);
  EXPECT_EQ(rule(R"("cameraMaxResolution":"*")").maxHeight, 1080);
  EXPECT_EQ(rule(R"("cameraEncodeType":"H264")").encoding, service::SentEncoding::Mjpg);
}

TEST(PolicyTest, ARuleForOneCameraCountsBeforeTheGeneralOne) {
  const PolicyReading reading = readPolicy(
      R"({"policy":[{"cameraQuality":10},{"cameraVID":"046d","cameraPID":"0825","cameraQuality":20},)"
      R"({"cameraVID":"046D","cameraQuality":30},5]})",
      false);
  ASSERT_TRUE(reading.policy.has_value());
  EXPECT_EQ(reading.notes.size(), 1U) << "an element that is no object is said";
  CameraInfo camera;
  EXPECT_EQ(reading.policy->ruleFor(camera).quality, 10);
  camera.vendorId = 0x046d;
  EXPECT_EQ(reading.policy->ruleFor(camera).quality, 30);
  camera.productId = 0x0825;
  EXPECT_EQ(reading.policy->ruleFor(camera).quality, 20);
}

TEST(PolicyTest, ARuleForAnotherCameraDoesNotCount) {
  const PolicyReading reading =
      readPolicy(R"({"policy":[{"cameraVID":"1234","cameraQuality":10}]})", false);
  EXPECT_EQ(reading.policy->ruleFor(CameraInfo{}).quality, 50);
}

}  // namespace
}  // namespace lumsar::test
