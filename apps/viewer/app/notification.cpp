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

// Whether somebody shows notifications, as far as the bus has told since the first call.
bool areShown(GDBusConnection* bus) {
  static bool isOwned = false;
  static const guint watch = g_bus_watch_name_on_connection(
      bus, "org.freedesktop.Notifications", G_BUS_NAME_WATCHER_FLAGS_AUTO_START,
      [](GDBusConnection*, const char*, const char*, gpointer) { isOwned = true; },
      [](GDBusConnection*, const char*, gpointer) { isOwned = false; }, nullptr, nullptr);
  return watch != 0 && isOwned;
}

}  // namespace

bool notifyOfUse(const std::string& vm, const CameraModel& before, const CameraModel& now) {
  const std::string names = namesInUse(now);
  GApplication* application = g_application_get_default();
  GDBusConnection* bus =
      application != nullptr ? g_application_get_dbus_connection(application) : nullptr;
  const bool shown = bus != nullptr && areShown(bus);
  if (names == namesInUse(before)) return true;
  if (bus == nullptr) return names.empty();
  if (names.empty()) {
    g_application_withdraw_notification(application, kId);
    return true;
  }
  g_autofree char* title = g_strdup_printf(tr("%s uses your camera"), vm.c_str());
  g_autoptr(GNotification) notification = g_notification_new(title);
  g_notification_set_body(notification, names.c_str());
  g_application_send_notification(application, kId, notification);
  return shown;
}

}  // namespace lumsar::viewer
