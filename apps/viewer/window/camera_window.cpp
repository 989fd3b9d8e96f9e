#include "window/camera_window.h"

#include <algorithm>
#include <utility>

#include "window/texts.h"

namespace lumsar::viewer {

namespace {

constexpr int kSpacing = 12;
constexpr int kWidth = 380;

// A screen reader says more than an icon or a switch shows.
void setSpoken(GtkWidget* widget, const std::string& text) {
  atk_object_set_name(gtk_widget_get_accessible(widget), text.c_str());
}

void setText(GtkWidget* label, const std::string& text) {
  gtk_label_set_text(GTK_LABEL(label), text.c_str());
  gtk_widget_set_visible(label, text.empty() ? FALSE : TRUE);
}

GtkWidget* makeLabel(bool isDim) {
  GtkWidget* label = gtk_label_new(nullptr);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_max_width_chars(GTK_LABEL(label), 48);
  gtk_widget_set_no_show_all(label, TRUE);
  if (isDim) gtk_style_context_add_class(gtk_widget_get_style_context(label), "dim-label");
  return label;
}

// A desktop that has the pointer keeps all keys to itself, whichever window has the focus, until
// somebody else takes them.
void takeKeyboard(GtkWidget* window) {
  GdkWindow* surface = gtk_widget_get_window(window);
  GdkSeat* seat = gdk_display_get_default_seat(gdk_window_get_display(surface));
  const GdkGrabStatus status = gdk_seat_grab(seat, surface, GDK_SEAT_CAPABILITY_KEYBOARD, TRUE,
                                             nullptr, nullptr, nullptr, nullptr);
  if (status == GDK_GRAB_SUCCESS) gdk_seat_ungrab(seat);
}

template <class Widget>
void add(GtkWidget* container, Widget* child) {
  gtk_container_add(GTK_CONTAINER(container), child);
}

}  // namespace

CameraWindow::CameraWindow(Actions actions)
    : m_actions(std::move(actions)),
      m_window(gtk_window_new(GTK_WINDOW_TOPLEVEL)),
      m_header(gtk_header_bar_new()),
      m_message(makeLabel(false)),
      m_note(makeLabel(true)),
      m_list(gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing)),
      m_remember(gtk_check_button_new_with_mnemonic(tr("_Remember for this VM"))) {
  build();
}

void CameraWindow::build() {
  GtkWindow* window = GTK_WINDOW(m_window);
  gtk_window_set_titlebar(window, m_header);
  gtk_header_bar_set_show_close_button(GTK_HEADER_BAR(m_header), TRUE);
  gtk_header_bar_set_title(GTK_HEADER_BAR(m_header), tr("Cameras"));
  gtk_window_set_title(window, tr("Cameras"));
  gtk_window_set_icon_name(window, "camera-web");
  gtk_window_set_default_size(window, kWidth, -1);
  gtk_window_set_resizable(window, FALSE);

  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
  gtk_container_set_border_width(GTK_CONTAINER(box), kSpacing);
  setSpoken(m_list, tr("Cameras"));
  add(m_window, box);
  add(box, m_message);
  add(box, m_list);
  add(box, m_remember);
  add(box, makeButtons());
  add(box, m_note);
  gtk_widget_show_all(box);
  gtk_widget_show(m_header);

  g_signal_connect(m_window, "delete-event", G_CALLBACK(gtk_widget_hide_on_delete), nullptr);
  g_signal_connect(m_window, "key-press-event",
                   G_CALLBACK(+[](GtkWidget* widget, GdkEventKey* key, gpointer) -> gboolean {
                     if (key->keyval != GDK_KEY_Escape) return FALSE;
                     gtk_widget_hide(widget);
                     return TRUE;
                   }),
                   nullptr);
  g_signal_connect(m_window, "map-event",
                   G_CALLBACK(+[](GtkWidget* widget, GdkEvent*, gpointer) -> gboolean {
                     takeKeyboard(widget);
                     return FALSE;
                   }),
                   nullptr);
  const auto watch = [this](const char* signal, GCallback callback) {
    g_signal_connect(m_window, signal, callback, this);
  };
  watch("show", G_CALLBACK(+[](GtkWidget*, gpointer self) {
          static_cast<CameraWindow*>(self)->m_actions.watch(true);
        }));
  watch("hide", G_CALLBACK(+[](GtkWidget*, gpointer self) {
          static_cast<CameraWindow*>(self)->m_actions.watch(false);
        }));
  g_signal_connect(m_remember, "toggled", G_CALLBACK(+[](GtkToggleButton* button, gpointer data) {
                     auto& self = *static_cast<CameraWindow*>(data);
                     if (self.m_updating) return;
                     self.m_actions.remember(gtk_toggle_button_get_active(button) == TRUE);
                   }),
                   this);
}

GtkWidget* CameraWindow::makeButtons() {
  GtkWidget* box = gtk_button_box_new(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_set_spacing(GTK_BOX(box), kSpacing);
  GtkWidget* all = gtk_button_new_with_mnemonic(tr("Share _all"));
  GtkWidget* none = gtk_button_new_with_mnemonic(tr("Share _none"));
  g_signal_connect(all, "clicked", G_CALLBACK(+[](GtkButton*, gpointer self) {
                     static_cast<CameraWindow*>(self)->m_actions.shareAll(true);
                   }),
                   this);
  g_signal_connect(none, "clicked", G_CALLBACK(+[](GtkButton*, gpointer self) {
                     static_cast<CameraWindow*>(self)->m_actions.shareAll(false);
                   }),
                   this);
  add(box, all);
  add(box, none);
  return box;
}

void CameraWindow::present(GtkWindow* beside) {
  gtk_window_set_transient_for(GTK_WINDOW(m_window), beside);
  if (gtk_widget_get_mapped(m_window) == TRUE) takeKeyboard(m_window);
  gtk_window_present(GTK_WINDOW(m_window));
}

void CameraWindow::update(const std::string& vm, const CameraModel& model,
                          const std::string& note) {
  m_updating = true;
  gtk_header_bar_set_subtitle(GTK_HEADER_BAR(m_header), vm.c_str());
  std::string message = problemText(model);
  if (message.empty() && model.cameras.empty()) message = tr("This machine has no cameras.");
  setText(m_message, message);
  setText(m_note, note);
  updateRows(model.cameras);
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(m_remember), model.remembered ? TRUE : FALSE);
  m_updating = false;
}

// Rows stay what they are, and so does the keyboard's focus.
void CameraWindow::updateRows(const std::vector<CameraRow>& cameras) {
  std::erase_if(m_rows, [&](const auto& entry) {
    if (std::ranges::count(cameras, entry.first, &CameraRow::id) > 0) return false;
    gtk_widget_destroy(entry.second.line);
    return true;
  });
  for (const CameraRow& camera : cameras) {
    auto row = m_rows.find(camera.id);
    if (row == m_rows.end()) row = m_rows.emplace(camera.id, makeRow(camera.id)).first;
    updateRow(row->second, camera);
  }
}

CameraWindow::Row CameraWindow::makeRow(const std::string& id) {
  const Row row{gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kSpacing), makeLabel(false),
                makeLabel(true), gtk_switch_new()};
  GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  add(texts, row.name);
  add(texts, row.state);
  gtk_box_pack_start(GTK_BOX(row.line), texts, TRUE, TRUE, 0);
  gtk_widget_set_valign(row.toggle, GTK_ALIGN_CENTER);
  gtk_box_pack_end(GTK_BOX(row.line), row.toggle, FALSE, FALSE, 0);
  g_object_set_data_full(G_OBJECT(row.toggle), "camera", g_strdup(id.c_str()), g_free);
  g_signal_connect(row.toggle, "state-set",
                   G_CALLBACK(+[](GtkSwitch* toggle, gboolean on, gpointer self) -> gboolean {
                     static_cast<CameraWindow*>(self)->toggled(toggle, on == TRUE);
                     return TRUE;  // its state follows the camera's
                   }),
                   this);
  add(m_list, row.line);
  gtk_widget_show_all(row.line);
  // The keyboard begins at the first one.
  if (m_rows.empty()) gtk_widget_grab_focus(row.toggle);
  return row;
}

void CameraWindow::updateRow(Row& row, const CameraRow& camera) const {
  const std::string state = stateText(camera);
  setText(row.name, camera.name);
  setText(row.state, state);
  setSpoken(row.toggle, camera.name + ", " + state);
  gtk_switch_set_active(GTK_SWITCH(row.toggle), camera.shared ? TRUE : FALSE);
  gtk_switch_set_state(GTK_SWITCH(row.toggle), camera.shared ? TRUE : FALSE);
}

void CameraWindow::toggled(GtkSwitch* toggle, bool on) {
  if (m_updating) return;
  const auto* id = static_cast<const char*>(g_object_get_data(G_OBJECT(toggle), "camera"));
  m_actions.share(id, on);
}

}  // namespace lumsar::viewer
