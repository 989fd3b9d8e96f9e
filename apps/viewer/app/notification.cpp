#include "app/notification.h"

#include <gio/gio.h>

namespace lumsar::viewer {

namespace {

constexpr const char* kId = "lumsar-camera-in-use";

// The names of all cameras in use.
std::string namesInUse(const CameraModel& model) {
  std::string names;
  for (const CameraRow& camera : model.cameras) {
    if (camera.state != CameraState::InUse) continue;
    names += (names.empty() ? "" : ", ") + camera.name;
  }
  return names;
}

}  // namespace

bool notifyOfUse(const std::string& vm, const CameraModel& before, const CameraModel& now) {
  const std::string names = namesInUse(now);
  if (names == namesInUse(before)) return true;
  GApplication* application = g_application_get_default();
  // A program that is on no bus has nobody who would show them.
  if (application == nullptr || g_application_get_dbus_connection(application) == nullptr) {
    return names.empty();
  }
  if (names.empty()) {
    g_application_withdraw_notification(application, kId);
    return true;
  }
  g_autofree char* title = g_strdup_printf(tr("%s uses your camera"), vm.c_str());
  g_autoptr(GNotification) notification = g_notification_new(title);
  g_notification_set_body(notification, names.c_str());
  g_application_send_notification(application, kId, notification);
  return true;
}

}  // namespace lumsar::viewer
