// Tests of catalogue.h. Test's main thread.
#include "camera/catalogue.h"

#include <gtest/gtest.h>

namespace lumsar::test {
namespace {

using service::Camera;
using service::CameraInfo;
using service::Catalogue;

CameraInfo camera(const std::string& id, const std::string& name = "n") {
  CameraInfo info;
  info.id = id;
  info.name = name;
  return info;
}

TEST(CatalogueTest, NumbersAreNeverUsedForAnotherCamera) {
  Catalogue catalogue;
  EXPECT_EQ(catalogue.plug(camera("a"))->number, 0U);
  EXPECT_EQ(catalogue.plug(camera("b"))->number, 1U);
  catalogue.unplug("a");
  EXPECT_EQ(catalogue.plug(camera("c"))->number, 2U);
  EXPECT_EQ(catalogue.plug(camera("a"))->number, 0U) << "the same camera has its number again";
}

TEST(CatalogueTest, TwiceAnnouncedIsPluggedOnce) {
  Catalogue catalogue;
  EXPECT_NE(catalogue.plug(camera("a")), nullptr);
  EXPECT_EQ(catalogue.plug(camera("a")), nullptr);
  EXPECT_NE(catalogue.unplug("a"), nullptr);
  EXPECT_EQ(catalogue.unplug("a"), nullptr);
  EXPECT_EQ(catalogue.unplug("unknown"), nullptr);
}

TEST(CatalogueTest, FindsByIdNumberAndName) {
  Catalogue catalogue;
  const Camera* front = catalogue.plug(camera("test:Front", "Front"));
  const Camera* back = catalogue.plug(camera("test:Back", "Back"));
  EXPECT_EQ(catalogue.find("test:Front"), front);
  EXPECT_EQ(catalogue.find("1"), back);
  EXPECT_EQ(catalogue.find("Back"), back);
  EXPECT_EQ(catalogue.find("2"), nullptr);
  EXPECT_EQ(catalogue.find(""), nullptr);
  EXPECT_EQ(catalogue.find("1"), back);
  EXPECT_EQ(catalogue.find("2"), nullptr);
}

TEST(CatalogueTest, ANameOfTwoCamerasNamesNone) {
  Catalogue catalogue;
  catalogue.plug(camera("a", "Webcam"));
  catalogue.plug(camera("b", "Webcam"));
  EXPECT_EQ(catalogue.find("Webcam"), nullptr);
}

TEST(CatalogueTest, ANameIsThatOfTheCameraThatIsThere) {
  Catalogue catalogue;
  catalogue.plug(camera("usb-1", "Webcam"));
  catalogue.unplug("usb-1");
  EXPECT_NE(catalogue.find("Webcam"), nullptr) << "none is there, and one had it";
  const Camera* moved = catalogue.plug(camera("usb-2", "Webcam"));
  EXPECT_EQ(catalogue.find("Webcam"), moved);
  catalogue.unplug("usb-2");
  EXPECT_EQ(catalogue.find("Webcam"), nullptr);
  const Camera* back = catalogue.plug(camera("usb-1", "Webcam"));
  EXPECT_EQ(catalogue.find("Webcam"), back);
  catalogue.plug(camera("usb-3", "Webcam"));
  EXPECT_EQ(catalogue.find("Webcam"), nullptr);
  catalogue.plug(camera("usb-4", "Webcam"));
  catalogue.unplug("usb-4");
  EXPECT_EQ(catalogue.find("Webcam"), nullptr) << "two that are there still have it";
}

TEST(CatalogueTest, AnIdCountsMoreThanANumber) {
  Catalogue catalogue;
  catalogue.plug(camera("x"));
  const Camera* zero = catalogue.plug(camera("0"));
  EXPECT_EQ(catalogue.find("0"), zero);
}

TEST(CatalogueTest, KeepsTheOrderOfArrival) {
  Catalogue catalogue;
  const Camera* z = catalogue.plug(camera("z"));
  const Camera* a = catalogue.plug(camera("a"));
  EXPECT_EQ(catalogue.all(), (std::vector<const Camera*>{z, a}));
}

}  // namespace
}  // namespace lumsar::test
