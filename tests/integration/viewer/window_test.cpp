// The camera window and what is added to a viewer's windows, on a screen of the test's own.
#include "app/camera_display.h"
#include "integration/viewer/camera_window_fixture.h"
#include "window/viewer_windows.h"

namespace lumsar::test {
namespace {

// In the upper left corner, as all are here.
GtkWidget* shownWindow() {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_default_size(GTK_WINDOW(window), 500, 500);
  gtk_widget_show_all(window);
  gtk_window_present(GTK_WINDOW(window));
  return window;
}

// Of those below the pointer.
bool isInFront(GtkWidget* window) {
  GdkSeat* seat = gdk_display_get_default_seat(gtk_widget_get_display(window));
  GdkWindow* found =
      gdk_device_get_window_at_position(gdk_seat_get_pointer(seat), nullptr, nullptr);
  return found != nullptr && gdk_window_get_toplevel(found) == gtk_widget_get_window(window);
}

TEST_F(CameraWindowTest, EachCameraHasASwitchAndSaysWhatItDoes) {
  CameraRow refused = row("c", CameraState::Refused);
  refused.reason = "a rule denies it";
  show({row("a"), row("b", CameraState::InUse), refused});
  EXPECT_EQ(spokenRows(), (std::vector<std::string>{"Camera a, Off", "Camera b, In use by the VM",
                                                    "Camera c, Refused: a rule denies it"}));
  EXPECT_TRUE(says("Refused: a rule denies it"));
  EXPECT_TRUE(gtk_switch_get_active(GTK_SWITCH(switches().at(1))));
  EXPECT_TRUE(asked.empty()) << "what is shown is not a person's doing";
  gtk_switch_set_active(GTK_SWITCH(switches().at(0)), TRUE);
  gtk_switch_set_active(GTK_SWITCH(switches().at(1)), FALSE);
  EXPECT_EQ(asked, (std::vector<std::string>{"a on", "b off"}));
}

TEST_F(CameraWindowTest, ACameraThatIsBackIsWhereItWas) {
  show({row("a"), row("b")});
  show({row("b")});
  show({row("a"), row("b")});
  EXPECT_EQ(spokenRows(), (std::vector<std::string>{"Camera a, Off", "Camera b, Off"}));
}

TEST_F(CameraWindowTest, TheKeyboardStaysWhereItIs) {
  show({row("a"), row("b")});
  window->present(nullptr);
  ASSERT_TRUE(comes([&] { return gtk_widget_get_mapped(window->widget()) == TRUE; }));
  EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(window->widget())), switches().at(0));
  gtk_widget_grab_focus(rememberBox());
  show({});
  show({row("c")});
  EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(window->widget())), rememberBox());
}

TEST_F(CameraWindowTest, NothingCanBeRememberedWithoutAList) {
  show({});
  EXPECT_TRUE(says("This machine has no cameras."));
  EXPECT_TRUE(gtk_widget_is_sensitive(rememberBox()));
  model.isListed = false;
  show({});
  EXPECT_FALSE(says("This machine has no cameras."));
  EXPECT_FALSE(gtk_widget_is_sensitive(rememberBox()));
}

TEST_F(CameraWindowTest, TheBoxGoesBackWhenTheChoiceCannotBeSaved) {
  show({row("a")});
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(rememberBox()), TRUE);
  EXPECT_EQ(asked, std::vector<std::string>{"remember"});
  model.notSaved = true;
  show({row("a")});
  EXPECT_FALSE(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(rememberBox())));
  EXPECT_TRUE(says("This choice could not be saved."));
}

TEST_F(CameraWindowTest, ManyCamerasAreScrolled) {
  window->present(nullptr);
  const auto height = [&] { return gtk_widget_get_allocated_height(window->widget()); };
  show({row("a")});
  ASSERT_TRUE(comes([&] { return height() > 1; }));
  const int one = height();
  show({row("a"), row("b"), row("c")});
  EXPECT_TRUE(comes([&] { return height() > one; }));
  const int three = height();
  std::vector<CameraRow> many;
  many.reserve(40);
  for (int i = 0; i < 40; ++i) many.push_back(row(std::to_string(100 + i)));
  show(many);
  EXPECT_TRUE(comes([&] { return height() > three; }));
  EXPECT_LT(height(), 800);
  EXPECT_EQ(switches().size(), 40U);
}

TEST_F(CameraWindowTest, AppearsWithoutTakingTheKeyboard) {
  GtkWidget* desktop = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_widget_show_all(desktop);
  show({row("a", CameraState::InUse)});
  window->appear();
  ASSERT_TRUE(comes([&] { return gtk_widget_get_mapped(window->widget()) == TRUE; }));
  EXPECT_TRUE(watched);
  EXPECT_FALSE(gtk_window_get_focus_on_map(GTK_WINDOW(window->widget())));
}

// That it has lost the keyboard is told later.
TEST_F(CameraWindowTest, AppearsRightAfterItWasClosed) {
  show({row("a", CameraState::InUse)});
  window->present(nullptr);
  gdk_window_focus(gtk_widget_get_window(window->widget()), GDK_CURRENT_TIME);
  ASSERT_TRUE(comes([&] { return gtk_window_is_active(GTK_WINDOW(window->widget())) == TRUE; }));
  gtk_widget_hide(window->widget());
  window->appear();
  EXPECT_TRUE(gtk_widget_get_visible(window->widget()));
}

TEST_F(CameraWindowTest, ComesToTheFrontWithoutTakingTheKeyboard) {
  show({row("a", CameraState::InUse)});
  window->present(nullptr);
  GtkWidget* other = shownWindow();
  screen.movePointer(50, 50);
  ASSERT_TRUE(comes([&] { return isInFront(other) && gtk_window_is_active(GTK_WINDOW(other)); }));
  window->appear();
  EXPECT_TRUE(comes([&] { return isInFront(window->widget()); }));
  EXPECT_TRUE(gtk_window_is_active(GTK_WINDOW(other)));
}

struct ViewerWindowsTest : Windows {
  // A viewer's window.
  void showDesktop(GtkWidget* content = nullptr) {
    desktop = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* header = gtk_header_bar_new();
    gtk_window_set_titlebar(GTK_WINDOW(desktop), header);
    if (content != nullptr) gtk_container_add(GTK_CONTAINER(desktop), content);
    gtk_widget_show_all(desktop);
  }
  // With the module in it.
  void watch(GtkWidget* content = nullptr) {
    showDesktop(content);
    windows = new ViewerWindows([this](GtkWindow* beside) { opened.push_back(beside); });
  }
  Widgets buttons() const { return find(desktop, isOurs); }
  static bool isOurs(GtkWidget* widget) {
    return GTK_IS_BUTTON(widget) && spoken(widget).starts_with("Cameras");
  }
  static bool isColoured(GtkWidget* widget) {
    return gtk_style_context_has_class(gtk_widget_get_style_context(widget),
                                       "destructive-action") == TRUE;
  }
  // Ctrl+Alt and a key.
  void press(unsigned keyval, guint16 keycode) const {
    GdkEvent* event = gdk_event_new(GDK_KEY_PRESS);
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(desktop)));
    event->key.state = GDK_CONTROL_MASK | GDK_MOD1_MASK;
    event->key.keyval = keyval;
    event->key.hardware_keycode = keycode;
    gtk_widget_event(desktop, event);
    gdk_event_free(event);
  }

  GtkWidget* desktop = nullptr;
  ViewerWindows* windows = nullptr;  // lives as long as the process
  std::vector<GtkWindow*> opened;
};

TEST_F(ViewerWindowsTest, TheButtonSaysWhichVmUsesACamera) {
  watch();
  EXPECT_FALSE(windows->isIndicatorSeen());
  windows->setIndicator({true, false, "VM-1"});
  gtk_window_present(GTK_WINDOW(desktop));
  EXPECT_TRUE(comes([this] { return windows->isIndicatorSeen(); }));
  ASSERT_EQ(buttons().size(), 1U);
  GtkWidget* button = buttons().at(0);
  EXPECT_EQ(spoken(button), "Cameras for VM-1");
  EXPECT_FALSE(isColoured(button));
  windows->setIndicator({true, true, "VM-1"});
  EXPECT_EQ(spoken(button), "Cameras: in use by VM-1");
  EXPECT_TRUE(isColoured(button));
  gtk_button_clicked(GTK_BUTTON(button));
  EXPECT_EQ(opened, std::vector{GTK_WINDOW(desktop)});
  windows->setIndicator({});
  EXPECT_FALSE(windows->isIndicatorSeen());
}

TEST_F(ViewerWindowsTest, TheButtonIsSeenInTheWindowThatIsUsed) {
  watch();
  windows->setIndicator({true, true, "VM-1"});
  gtk_window_present(GTK_WINDOW(desktop));
  EXPECT_TRUE(comes([this] { return windows->isIndicatorSeen(); }));
  GtkWidget* other = shownWindow();
  EXPECT_TRUE(comes([this] { return !windows->isIndicatorSeen(); }));
  gtk_widget_destroy(other);
  gtk_window_present(GTK_WINDOW(desktop));
  EXPECT_TRUE(comes([this] { return windows->isIndicatorSeen(); }));
}

// Without a bus there are no notifications.
TEST_F(ViewerWindowsTest, TheCameraWindowAppearsWhereTheButtonIsNotSeen) {
  showDesktop();
  auto* const display = new CameraDisplay(*new Previews([] {}));  // live as long as the process
  const auto isOpen = [this] { return screen.hasWindow("--name", "^Cameras$"); };
  const auto use = [&](CameraState state) {
    display->show("VM-1", {.isListed = true, .cameras = {row("a", state)}});
    turn();
  };
  use(CameraState::On);
  gtk_window_present(GTK_WINDOW(desktop));
  ASSERT_TRUE(comes([this] { return gtk_window_is_active(GTK_WINDOW(desktop)) == TRUE; }));
  use(CameraState::InUse);
  EXPECT_FALSE(isOpen());
  use(CameraState::On);
  shownWindow();
  ASSERT_TRUE(comes([this] { return gtk_window_is_active(GTK_WINDOW(desktop)) == FALSE; }));
  use(CameraState::InUse);
  EXPECT_TRUE(comes(isOpen));
}

TEST_F(ViewerWindowsTest, AFullScreensToolbarHasTheButton) {
  GtkWidget* toolbar = gtk_header_bar_new();
  gtk_buildable_set_name(GTK_BUILDABLE(toolbar), "toolbar");
  GtkWidget* revealer = gtk_revealer_new();
  gtk_container_add(GTK_CONTAINER(revealer), toolbar);
  watch(revealer);
  windows->setIndicator({true, true, "VM-1"});
  EXPECT_EQ(buttons().size(), 2U);
}

TEST_F(ViewerWindowsTest, TheShortcutWorksOnEachLayout) {
  watch();
  windows->setIndicator({.isVisible = true});
  constexpr guint16 kKeyOfC = 54;
  press(GDK_KEY_c, kKeyOfC);
  press(GDK_KEY_C, kKeyOfC);
  press(GDK_KEY_Cyrillic_es, kKeyOfC);
  press(GDK_KEY_Greek_psi, kKeyOfC);
  press(GDK_KEY_Arabic_hamzaonwaw, kKeyOfC);
  EXPECT_EQ(opened.size(), 5U);
  press(GDK_KEY_j, kKeyOfC);  // as on a Dvorak keyboard
  press(GDK_KEY_Cyrillic_em, 55);
  press(GDK_KEY_Delete, 119);
  EXPECT_EQ(opened.size(), 5U);
  press(GDK_KEY_c, 31);
  EXPECT_EQ(opened.size(), 6U);
}

}  // namespace
}  // namespace lumsar::test
