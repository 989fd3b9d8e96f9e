// What a desktop is told while a VM uses cameras, on a bus of the test's own.
#include "app/notification.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include "support/eventually.h"

namespace lumsar::test {
namespace {

using namespace viewer;

constexpr const char* kInterface =
    "<node><interface name='org.freedesktop.Notifications'>"
    "<method name='Notify'><arg type='s'/><arg type='u'/><arg type='s'/><arg type='s'/>"
    "<arg type='s'/><arg type='as'/><arg type='a{sv}'/><arg type='i'/>"
    "<arg type='u' direction='out'/></method>"
    "<method name='Ping'/><method name='CloseNotification'><arg "
    "type='u'/></method></interface></node>";

struct Notifications : testing::Test {
  void SetUp() override {
    if (g_autofree char* daemon = g_find_program_in_path("dbus-daemon"); daemon == nullptr) {
      GTEST_SKIP() << "install dbus-daemon";
    }
    g_test_dbus_up(bus);
    if (hasDesktop) serve();
    application = g_application_new("org.lumsar.Test", GApplicationFlags{});
    ASSERT_TRUE(g_application_register(application, nullptr, nullptr));
    g_application_set_default(application);
  }
  // As the desktop would.
  void serve() {
    desktop = g_dbus_connection_new_for_address_sync(
        g_test_dbus_get_bus_address(bus),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    ASSERT_NE(desktop, nullptr);
    static const GDBusInterfaceVTable calls = {called, nullptr, nullptr, {}};
    GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(kInterface, nullptr);
    g_dbus_connection_register_object(desktop, "/org/freedesktop/Notifications",
                                      info->interfaces[0], &calls, this, nullptr, nullptr);
    bool isOwned = false;
    g_bus_own_name_on_connection(
        desktop, "org.freedesktop.Notifications", G_BUS_NAME_OWNER_FLAGS_NONE,
        [](GDBusConnection*, const char*, gpointer owned) { *static_cast<bool*>(owned) = true; },
        nullptr, &isOwned, nullptr);
    ASSERT_TRUE(comes([&] { return isOwned; }));
  }
  static void called(GDBusConnection*, const char*, const char*, const char*, const char* method,
                     GVariant* parameters, GDBusMethodInvocation* call, gpointer self) {
    std::string& told = static_cast<Notifications*>(self)->told;
    if (std::string_view(method) == "CloseNotification") {
      told += "closed\n";
      return g_dbus_method_invocation_return_value(call, nullptr);
    }
    if (std::string_view(method) == "Ping") {
      return g_dbus_method_invocation_return_value(call, nullptr);
    }
    const char* title = nullptr;
    const char* body = nullptr;
    g_variant_get_child(parameters, 3, "&s", &title);
    g_variant_get_child(parameters, 4, "&s", &body);
    told += std::string(title) + ": " + body + "\n";
    g_dbus_method_invocation_return_value(call, g_variant_new("(u)", 7U));
  }
  // What the application has asked for is answered before this is.
  void roundTrip() {
    bool isBack = false;
    g_dbus_connection_call(
        g_application_get_dbus_connection(application), "org.freedesktop.Notifications",
        "/org/freedesktop/Notifications", "org.freedesktop.Notifications", "Ping", nullptr, nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        [](GObject*, GAsyncResult*, gpointer back) { *static_cast<bool*>(back) = true; }, &isBack);
    EXPECT_TRUE(comes([&] { return isBack; }));
  }
  static bool comes(const std::function<bool()>& condition) {
    return eventually([&] {
      while (g_main_context_iteration(nullptr, FALSE) == TRUE) {
      }
      return condition();
    });
  }

  bool hasDesktop = true;
  GTestDBus* bus = g_test_dbus_new(G_TEST_DBUS_NONE);  // as long as the process
  GDBusConnection* desktop = nullptr;
  GApplication* application = nullptr;
  std::string told;
};

TEST_F(Notifications, AUseIsToldAndTakenBack) {
  const CameraModel off{.cameras = {{"a", "Front", CameraState::On, true}}};
  const CameraModel used{.cameras = {{"a", "Front", CameraState::InUse, true},
                                     {"b", "Desk", CameraState::InUse, true}}};
  EXPECT_TRUE(notifyOfUse("VM-1", {}, off));
  roundTrip();
  EXPECT_TRUE(notifyOfUse("VM-1", off, used));
  EXPECT_TRUE(notifyOfUse("VM-1", used, used));
  EXPECT_TRUE(comes([this] { return told == "VM-1 uses your camera: Front, Desk\n"; })) << told;
  roundTrip();
  EXPECT_TRUE(notifyOfUse("VM-1", used, {.problem = Problem::ConnectionEnded}));
  EXPECT_TRUE(comes([this] { return told == "VM-1 uses your camera: Front, Desk\nclosed\n"; }))
      << told;
}

struct NotificationsWithoutADesktop : Notifications {
  NotificationsWithoutADesktop() { hasDesktop = false; }
};

TEST_F(NotificationsWithoutADesktop, SayThatNobodyWasTold) {
  const CameraModel used{.cameras = {{"a", "Front", CameraState::InUse, true}}};
  EXPECT_TRUE(notifyOfUse("VM-1", {}, {}));
  roundTrip();
  EXPECT_FALSE(notifyOfUse("VM-1", {}, used));
}

TEST(NotificationsWithoutABus, SayThatNobodyWasTold) {
  const CameraModel used{.cameras = {{"a", "Front", CameraState::InUse, true}}};
  EXPECT_FALSE(notifyOfUse("VM-1", {}, used));
  EXPECT_TRUE(notifyOfUse("VM-1", used, {}));
}

}  // namespace
}  // namespace lumsar::test
