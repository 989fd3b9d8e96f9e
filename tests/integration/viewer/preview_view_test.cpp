// The previews in the camera window: there while a camera is used, and never an old one.
#include "window/preview_view.h"

#include <cstdlib>

#include "integration/viewer/camera_window_fixture.h"
#include "unit/viewer/preview_frames.h"

namespace lumsar::test {
namespace {

struct PreviewViewTest : CameraWindowTest {
  void SetUp() override {
    CameraWindowTest::SetUp();
    window->present(nullptr);
    ASSERT_TRUE(comes([&] { return previewScale > 0; }));
  }
  // Of the first camera, if it is to be seen.
  GtkWidget* area() const {
    const Widgets areas = find(window->widget(), [](GtkWidget* each) {
      return GTK_IS_DRAWING_AREA(each) && gtk_widget_get_mapped(each) == TRUE;
    });
    return areas.empty() ? nullptr : areas.front();
  }
  // What is drawn there, on a screen of this scale.
  Image drawn(int scale) const {
    const ImageSize size = previewSize(scale);
    cairo_surface_t* surface =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size.width, size.height);
    cairo_surface_set_device_scale(surface, scale, scale);
    cairo_t* context = cairo_create(surface);
    gtk_widget_draw(area(), context);
    cairo_destroy(context);
    Image image(gdk_pixbuf_get_from_surface(surface, 0, 0, size.width, size.height),
                g_object_unref);
    cairo_surface_destroy(surface);
    return image;
  }
  // Once it has its place. The image comes again and again, as an old one is not shown.
  bool shows(guint32 colour, const Image& image, int scale = 1) const {
    return comes([&] {
      preview(image);
      return area() != nullptr && gtk_widget_get_allocated_width(area()) >= kPreviewWidth &&
             isLike(colour, drawn(scale));
    });
  }
  void preview(const Image& image, std::uint32_t encoding = kEncodingMjpg) const {
    window->show(Preview{"a", image, encoding});
    turn();
  }
};

TEST_F(PreviewViewTest, IsThereWhileTheCameraIsUsed) {
  show({row("a", CameraState::On)});
  preview(imageOf(kRed, 96, 54));
  EXPECT_EQ(area(), nullptr);
  show({row("a", CameraState::InUse)});
  ASSERT_TRUE(shows(kRed, imageOf(kRed, 96, 54)));
  EXPECT_EQ(spoken(area()), "Preview of Camera a");
  EXPECT_FALSE(gtk_widget_get_can_focus(area()));
  EXPECT_TRUE(shows(kBlue, imageOf(kBlue, 54, 54)));
  show({row("a", CameraState::On)});
  EXPECT_EQ(area(), nullptr);
  show({row("a", CameraState::InUse)});
  EXPECT_EQ(area(), nullptr) << "that was another use";
  EXPECT_TRUE(says("No preview"));
}

TEST_F(PreviewViewTest, SaysWhatCannotBeShown) {
  show({row("a", CameraState::InUse)});
  EXPECT_TRUE(says("No preview"));
  preview(imageOf(kRed, 96, 54));
  EXPECT_NE(area(), nullptr);
  preview(nullptr, kEncodingH264);
  EXPECT_EQ(area(), nullptr);
  EXPECT_TRUE(says("No preview of H.264"));
  preview(imageOf(kRed, 96, 54));
  EXPECT_NE(area(), nullptr);
}

TEST_F(PreviewViewTest, DoesNotStandStillWithoutAWord) {
  show({row("a", CameraState::InUse)});
  preview(imageOf(kRed, 96, 54));
  ASSERT_NE(area(), nullptr);
  EXPECT_TRUE(comes([&] { return area() == nullptr; }));
  EXPECT_TRUE(says("No preview"));
}

TEST_F(PreviewViewTest, GoesWithItsRow) {
  show({row("a", CameraState::InUse)});
  preview(imageOf(kRed, 96, 54));
  show({});
  preview(imageOf(kRed, 96, 54));
  EXPECT_EQ(area(), nullptr);
}

TEST_F(PreviewViewTest, IsWantedOnlyWhileTheWindowIsThere) {
  EXPECT_EQ(previewScale, 1);
  gtk_widget_hide(window->widget());
  EXPECT_TRUE(comes([&] { return previewScale == 0; }));
  window->appear();
  EXPECT_TRUE(comes([&] { return previewScale == 1; }));
}

TEST_F(PreviewViewTest, LeavesTheWindowAsSmallAsTheScreenNeeds) {
  std::vector<CameraRow> many;
  many.reserve(40);
  for (int i = 0; i < 40; ++i) many.push_back(row(std::to_string(100 + i), CameraState::InUse));
  show(many);
  const auto height = [&] { return gtk_widget_get_allocated_height(window->widget()); };
  EXPECT_TRUE(comes([&] { return height() > 300; }));
  EXPECT_LT(height(), 800);
  EXPECT_LT(gtk_widget_get_allocated_width(window->widget()), 600);
}

struct ScaledPreviewViewTest : PreviewViewTest {
  void SetUp() override {
    setenv("GDK_SCALE", "2", 1);
    PreviewViewTest::SetUp();
  }
};

// Columns of one pixel each.
TEST_F(ScaledPreviewViewTest, HasAllThePixelsOfTheScreen) {
  EXPECT_EQ(previewScale, 2);
  const ImageSize size = previewSize(2);
  const Image image = imageOf(kRed, size.width, size.height);
  for (int i = 0; i < size.width; i += 2) {
    const Image column(gdk_pixbuf_new_subpixbuf(image.get(), i, 0, 1, size.height), g_object_unref);
    gdk_pixbuf_fill(column.get(), kBlue);
  }
  show({row("a", CameraState::InUse)});
  EXPECT_TRUE(shows(kBlue, image, 2));
}

}  // namespace
}  // namespace lumsar::test
