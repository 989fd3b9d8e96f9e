// CameraWindowTest: the fixture of the tests of the camera window, on a screen of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "integration/viewer/screen.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"
#include "window/camera_window.h"

namespace lumsar::test {

using namespace viewer;

using Widgets = std::vector<GtkWidget*>;

// All below `widget` for which `matches`, in the order of the screen.
template <class Matches>
Widgets find(GtkWidget* widget, Matches matches) {
  Widgets found;
  if (matches(widget)) found.push_back(widget);
  if (!GTK_IS_CONTAINER(widget)) return found;
  g_autoptr(GList) children = gtk_container_get_children(GTK_CONTAINER(widget));
  for (const GList* child = children; child != nullptr; child = child->next) {
    const Widgets below = find(GTK_WIDGET(child->data), matches);
    found.insert(found.end(), below.begin(), below.end());
  }
  return found;
}

inline std::string spoken(GtkWidget* widget) {
  const char* name = atk_object_get_name(gtk_widget_get_accessible(widget));
  return name != nullptr ? name : "";
}

inline void turn() {
  while (gtk_events_pending() == TRUE) gtk_main_iteration();
}
inline bool comes(const std::function<bool()>& condition) {
  return eventually([&] {
    turn();
    return condition();
  });
}

inline CameraRow row(const std::string& id, CameraState state = CameraState::Off) {
  return {id, "Camera " + id, state, state == CameraState::On || state == CameraState::InUse};
}

struct Windows : testing::Test {
  void SetUp() override {
    ASSERT_TRUE(screen.isUp());
    for (const auto& [name, value] : screen.environment(directory.path())) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    ASSERT_TRUE(gtk_init_check(nullptr, nullptr));
  }

  Screen screen;
  TemporaryDirectory directory;
};

struct CameraWindowTest : Windows {
  void SetUp() override {
    Windows::SetUp();
    window = new CameraWindow(
        {.share = [this](const std::string& id,
                         bool on) { asked.push_back(id + (on ? " on" : " off")); },
         .shareAll = [](bool) {},
         .remember = [this](bool on) { asked.emplace_back(on ? "remember" : "forget"); },
         .watch = [this](bool on) { watched = on; },
         .preview = [this](int scale) { previewScale = scale; }});
  }
  void show(const std::vector<CameraRow>& rows) {
    model.cameras = rows;
    window->update("VM-1", model, {});
    turn();
  }
  Widgets switches() const {
    return find(window->widget(), [](GtkWidget* widget) { return GTK_IS_SWITCH(widget); });
  }
  std::vector<std::string> spokenRows() const {
    std::vector<std::string> names;
    for (GtkWidget* each : switches()) names.push_back(spoken(each));
    return names;
  }
  GtkWidget* rememberBox() const {
    return find(window->widget(), [](GtkWidget* each) { return GTK_IS_CHECK_BUTTON(each); }).at(0);
  }
  bool says(const std::string& text) const {
    return !find(window->widget(), [&](GtkWidget* each) {
              return GTK_IS_LABEL(each) && gtk_widget_get_visible(each) == TRUE &&
                     gtk_label_get_text(GTK_LABEL(each)) == text;
            }).empty();
  }

  CameraWindow* window = nullptr;  // lives as long as the process
  CameraModel model{.isListed = true, .canRemember = true};
  std::vector<std::string> asked;
  bool watched = false;
  int previewScale = 0;
};

}  // namespace lumsar::test
