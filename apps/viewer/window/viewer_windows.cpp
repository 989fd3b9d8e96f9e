#include "window/viewer_windows.h"

#include <utility>

#include "window/texts.h"

namespace lumsar::viewer {

namespace {

constexpr const char* kAdopted = "lumsar-adopted";

bool isShortcut(const GdkEventKey& key) {
  constexpr unsigned kModifiers = GDK_CONTROL_MASK | GDK_MOD1_MASK;
  const auto all = static_cast<unsigned>(gtk_accelerator_get_default_mod_mask());
  return (key.state & all) == kModifiers && gdk_keyval_to_lower(key.keyval) == GDK_KEY_c;
}

}  // namespace

ViewerWindows::ViewerWindows(GtkWidget* own, std::function<void(GtkWindow*)> open)
    : m_own(own), m_open(std::move(open)) {
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

void ViewerWindows::adopt(GtkWindow* window) {
  const bool isPopup = gtk_window_get_window_type(window) != GTK_WINDOW_TOPLEVEL;
  if (isPopup || GTK_IS_DIALOG(window) || GTK_WIDGET(window) == m_own) return;
  if (g_object_get_data(G_OBJECT(window), kAdopted) != nullptr) return;
  g_object_set_data(G_OBJECT(window), kAdopted, this);
  // Before the window's own handling: a desktop takes all keys that are left.
  g_signal_connect(window, "key-press-event",
                   G_CALLBACK(+[](GtkWindow* pressed, GdkEventKey* key, gpointer data) -> gboolean {
                     auto& self = *static_cast<ViewerWindows*>(data);
                     if (!self.m_visible || !isShortcut(*key)) return FALSE;
                     self.m_open(pressed);
                     return TRUE;
                   }),
                   this);
  addButton(window);
}

void ViewerWindows::addButton(GtkWindow* window) {
  GtkWidget* header = gtk_window_get_titlebar(window);
  if (header == nullptr || !GTK_IS_HEADER_BAR(header)) return;
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

void ViewerWindows::setIndicator(bool visible, bool inUse) {
  m_visible = visible;
  m_inUse = inUse;
  for (const GList* item = m_buttons; item != nullptr; item = item->next) {
    update(GTK_WIDGET(item->data));
  }
}

void ViewerWindows::update(GtkWidget* button) const {
  const char* text = m_inUse ? tr("Cameras: in use by the VM") : tr("Cameras");
  gtk_widget_set_tooltip_text(button, text);
  atk_object_set_name(gtk_widget_get_accessible(button), text);
  GtkStyleContext* style = gtk_widget_get_style_context(button);
  if (m_inUse) {
    gtk_style_context_add_class(style, "destructive-action");
  } else {
    gtk_style_context_remove_class(style, "destructive-action");
  }
  gtk_widget_set_visible(button, m_visible ? TRUE : FALSE);
}

}  // namespace lumsar::viewer
