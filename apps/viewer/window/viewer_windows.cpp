#include "window/viewer_windows.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "window/texts.h"

namespace lumsar::viewer {

namespace {

constexpr const char* kAdopted = "lumsar-adopted";

// The letter where a keyboard has one; the key that has it on another of its layouts where this one
// is Greek, say; else the key where it usually is.
bool isLetterC(const GdkEventKey& key) {
  constexpr unsigned kLastLatin = 0x24F;
  constexpr guint16 kUsualKey = 54;
  if (const unsigned typed = gdk_keyval_to_unicode(key.keyval); typed != 0 && typed <= kLastLatin) {
    return gdk_keyval_to_lower(key.keyval) == GDK_KEY_c;
  }
  g_autofree GdkKeymapKey* keys = nullptr;
  int count = 0;
  gdk_keymap_get_entries_for_keyval(gdk_keymap_get_for_display(gdk_window_get_display(key.window)),
                                    GDK_KEY_c, &keys, &count);
  if (count == 0) return key.hardware_keycode == kUsualKey;
  return std::any_of(keys, keys + count, [&](const GdkKeymapKey& each) {
    return each.keycode == key.hardware_keycode;
  });
}

bool isShortcut(const GdkEventKey& key) {
  constexpr unsigned kModifiers = GDK_CONTROL_MASK | GDK_MOD1_MASK;
  const auto all = static_cast<unsigned>(gtk_accelerator_get_default_mod_mask());
  return (key.state & all) == kModifiers && isLetterC(key);
}

// What remote-viewer shows at the upper edge of a full screen, which hides the title.
GtkWidget* findToolbar(GtkWidget* widget) {
  const char* name =
      GTK_IS_BUILDABLE(widget) ? gtk_buildable_get_name(GTK_BUILDABLE(widget)) : nullptr;
  if (GTK_IS_HEADER_BAR(widget) && name != nullptr && std::string_view(name) == "toolbar") {
    return widget;
  }
  if (!GTK_IS_CONTAINER(widget)) return nullptr;
  g_autoptr(GList) children = gtk_container_get_children(GTK_CONTAINER(widget));
  for (const GList* child = children; child != nullptr; child = child->next) {
    if (GtkWidget* found = findToolbar(GTK_WIDGET(child->data))) return found;
  }
  return nullptr;
}

}  // namespace

ViewerWindows::ViewerWindows(std::function<void(GtkWindow*)> open) : m_open(std::move(open)) {
  g_autoptr(GList) windows = gtk_window_list_toplevels();
  for (const GList* item = windows; item != nullptr; item = item->next) {
    adopt(GTK_WINDOW(item->data));
  }
  // Those to come.
  g_signal_add_emission_hook(
      g_signal_lookup("map", GTK_TYPE_WIDGET), 0,
      [](GSignalInvocationHint*, guint, const GValue* values, gpointer self) -> gboolean {
        void* widget = g_value_get_object(values);
        if (GTK_IS_WINDOW(widget)) static_cast<ViewerWindows*>(self)->adopt(GTK_WINDOW(widget));
        return TRUE;
      },
      this, nullptr);
}

void ViewerWindows::leaveAlone(GtkWindow* window) {
  g_object_set_data(G_OBJECT(window), kAdopted, this);
}

void ViewerWindows::adopt(GtkWindow* window) {
  const bool isPopup = gtk_window_get_window_type(window) != GTK_WINDOW_TOPLEVEL;
  if (isPopup || GTK_IS_DIALOG(window)) return;
  if (g_object_get_data(G_OBJECT(window), kAdopted) != nullptr) return;
  leaveAlone(window);
  // Before the window's own handling: a desktop takes all keys that are left.
  g_signal_connect(window, "key-press-event",
                   G_CALLBACK(+[](GtkWindow* pressed, GdkEventKey* key, gpointer data) -> gboolean {
                     auto& self = *static_cast<ViewerWindows*>(data);
                     if (!self.m_indicator.isVisible || !isShortcut(*key)) return FALSE;
                     self.m_open(pressed);
                     return TRUE;
                   }),
                   this);
  GtkWidget* header = gtk_window_get_titlebar(window);
  if (header != nullptr && GTK_IS_HEADER_BAR(header)) addButton(header);
  GtkWidget* toolbar = findToolbar(GTK_WIDGET(window));
  if (toolbar != nullptr && toolbar != header) addButton(toolbar);
}

void ViewerWindows::addButton(GtkWidget* header) {
  GtkWidget* button = gtk_button_new();
  gtk_widget_set_no_show_all(button, TRUE);
  gtk_widget_set_focus_on_click(button, FALSE);
  gtk_button_set_image(GTK_BUTTON(button),
                       gtk_image_new_from_icon_name("camera-web-symbolic", GTK_ICON_SIZE_BUTTON));
  g_signal_connect(button, "clicked", G_CALLBACK(+[](GtkWidget* clicked, gpointer self) {
                     GtkWidget* top = gtk_widget_get_toplevel(clicked);
                     static_cast<ViewerWindows*>(self)->m_open(GTK_WINDOW(top));
                   }),
                   this);
  g_signal_connect(button, "destroy", G_CALLBACK(+[](GtkWidget* destroyed, gpointer data) {
                     auto& self = *static_cast<ViewerWindows*>(data);
                     self.m_buttons = g_list_remove(self.m_buttons, destroyed);
                   }),
                   this);
  m_buttons = g_list_prepend(m_buttons, button);
  gtk_header_bar_pack_end(GTK_HEADER_BAR(header), button);
  update(button);
}

void ViewerWindows::setIndicator(const Indicator& indicator) {
  m_indicator = indicator;
  for (const GList* item = m_buttons; item != nullptr; item = item->next) {
    update(GTK_WIDGET(item->data));
  }
}

// No desktop tells whether a window lies behind others or is on another of its workspaces. The one
// that is used does not.
bool ViewerWindows::isIndicatorSeen() const {
  for (const GList* item = m_buttons; item != nullptr; item = item->next) {
    GtkWidget* button = GTK_WIDGET(item->data);
    if (gtk_widget_get_mapped(button) == FALSE) continue;
    if (gtk_window_is_active(GTK_WINDOW(gtk_widget_get_toplevel(button))) == TRUE) return true;
  }
  return false;
}

void ViewerWindows::update(GtkWidget* button) const {
  const char* vm = m_indicator.vm.c_str();
  g_autofree char* text = m_indicator.vm.empty() ? g_strdup(tr("Cameras"))
                          : m_indicator.inUse    ? g_strdup_printf(tr("Cameras: in use by %s"), vm)
                                                 : g_strdup_printf(tr("Cameras for %s"), vm);
  gtk_widget_set_tooltip_text(button, text);
  atk_object_set_name(gtk_widget_get_accessible(button), text);
  GtkStyleContext* style = gtk_widget_get_style_context(button);
  if (m_indicator.inUse) {
    gtk_style_context_add_class(style, "destructive-action");
  } else {
    gtk_style_context_remove_class(style, "destructive-action");
  }
  gtk_widget_set_visible(button, m_indicator.isVisible ? TRUE : FALSE);
}

}  // namespace lumsar::viewer
