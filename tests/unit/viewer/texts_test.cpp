// The camera window's words.
#include "window/texts.h"

#include <gtest/gtest.h>
#include <libintl.h>

#include <clocale>
#include <cstdlib>

namespace lumsar::test {
namespace {

using namespace viewer;

TEST(ViewerTexts, OneMessageForEachProblem) {
  EXPECT_EQ(problemText({}), "");
  EXPECT_EQ(problemText({.problem = Problem::CannotStart}),
            "There are no cameras: a part of Lumsar is missing or cannot be loaded. The viewer's "
            "standard error says which.");
  EXPECT_EQ(problemText({.problem = Problem::Failure}), "The cameras have failed. Connect again.");
  EXPECT_EQ(problemText({.problem = Problem::ConnectionEnded}),
            "The connection to the VM has ended.");
  EXPECT_EQ(problemText({.problem = Problem::TooMuch}),
            "The VM sent more than the camera service takes, so its camera port was closed. "
            "Connect again.");
  EXPECT_EQ(problemText({.problem = Problem::ServiceSilent}),
            "The camera service does not answer.");
  EXPECT_EQ(problemText({.problem = Problem::NoService}),
            "The camera service is not running. Start lumsar-camera-service.");
  EXPECT_EQ(problemText({.problem = Problem::PortClosed}),
            "No program in the VM has the camera port open. Is lumsar-agent running there?");
  EXPECT_EQ(problemText({.problem = Problem::NoAnswer}),
            "The VM has not answered yet. Is lumsar-agent running there?");
  EXPECT_EQ(problemText({.problem = Problem::NotOurs}),
            "The program at the VM's camera port is not lumsar-agent.");
  EXPECT_EQ(problemText({.problem = Problem::NoChannel}),
            "There is no camera channel to the VM. Does the RDP server allow it?");
  EXPECT_EQ(problemText({.problem = Problem::ChannelSilent}),
            "The VM has not answered yet. Is lumsar-agent running there, and does the RDP server "
            "allow the channel?");
}

// Only of a list that there is.
TEST(ViewerTexts, AMachineWithoutCameras) {
  EXPECT_EQ(problemText({.isListed = true}), "This machine has no cameras.");
  EXPECT_EQ(problemText({.isListed = true, .cameras = {{"a", "A"}}}), "");
}

TEST(ViewerTexts, StatesOfACamera) {
  EXPECT_EQ(stateText({"a", "A"}), "Off");
  EXPECT_EQ(stateText({"a", "A", CameraState::On, true}), "Shared, not in use");
  EXPECT_EQ(stateText({"a", "A", CameraState::InUse, true}), "In use by the VM");
  EXPECT_EQ(stateText({"a", "A", CameraState::Unplugged, false}), "Unplugged");
  EXPECT_EQ(stateText({"a", "A", CameraState::Unplugged, true}),
            "Unplugged; shared once it is back");
  EXPECT_EQ(stateText({"a", "A", CameraState::Refused, false, "denied\nby a rule"}),
            "Refused: denied?by a rule");
}

TEST(ViewerTexts, InTheLanguageOfTheDesktop) {
#ifdef LUMSAR_LOCALE_DIRECTORY
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  setenv("LANGUAGE", "de", 1);
  bindTexts();
  bindtextdomain(kTextDomain, LUMSAR_LOCALE_DIRECTORY);
  EXPECT_EQ(stateText({"a", "A"}), "Aus");
#else
  GTEST_SKIP() << "install gettext";
#endif
}

}  // namespace
}  // namespace lumsar::test
