#include "window/camera_window.h"

#include <algorithm>
#include <utility>

namespace lumsar::viewer {

namespace {

constexpr int kSpacing = 12;
constexpr int kWidth = 380;
constexpr int kLongestList = 360;  // its height; more is scrolled

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
      m_scrolled(gtk_scrolled_window_new(nullptr, nullptr)),
      m_list(gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing)),
      m_remember(gtk_check_button_new_with_mnemonic(tr("_Remember for this VM"))),
      m_notSaved(makeLabel(false)),
      m_buttons(makeButtons()) {
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
  GtkScrolledWindow* scrolled = GTK_SCROLLED_WINDOW(m_scrolled);
  gtk_scrolled_window_set_policy(scrolled, GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
  gtk_widget_set_can_focus(m_scrolled, FALSE);
  add(m_scrolled, m_list);
  add(box, m_scrolled);
  add(box, m_remember);
  add(box, m_notSaved);
  add(box, m_buttons);
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
                   G_CALLBACK(+[](GtkWidget* widget, GdkEvent*, gpointer self) -> gboolean {
                     if (static_cast<CameraWindow*>(self)->m_wanted) takeKeyboard(widget);
                     return FALSE;
                   }),
                   this);
  const auto watch = [this](const char* signal, GCallback callback) {
    g_signal_connect(m_window, signal, callback, this);
  };
  watch("show", G_CALLBACK(+[](GtkWidget*, gpointer self) {
          static_cast<CameraWindow*>(self)->m_actions.watch(true);
        }));
  watch("hide", G_CALLBACK(+[](GtkWidget* widget, gpointer self) {
          gtk_window_set_keep_above(GTK_WINDOW(widget), FALSE);
          static_cast<CameraWindow*>(self)->m_actions.preview(0);
          static_cast<CameraWindow*>(self)->m_actions.watch(false);
        }));
  g_signal_connect(m_remember, "toggled", G_CALLBACK(+[](GtkToggleButton* button, gpointer data) {
                     auto& self = *static_cast<CameraWindow*>(data);
                     if (self.m_updating) return;
                     self.m_actions.remember(gtk_toggle_button_get_active(button) == TRUE);
                   }),
                   this);
  watchPreviews();
}

// A window that is minimised is not mapped, though it is shown.
void CameraWindow::watchPreviews() {
  g_signal_connect(m_window, "map-event",
                   G_CALLBACK(+[](GtkWidget* window, GdkEvent*, gpointer self) -> gboolean {
                     const int scale = gtk_widget_get_scale_factor(window);
                     static_cast<CameraWindow*>(self)->m_actions.preview(scale);
                     return FALSE;
                   }),
                   this);
  g_signal_connect(m_window, "unmap-event",
                   G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer self) -> gboolean {
                     static_cast<CameraWindow*>(self)->m_actions.preview(0);
                     return FALSE;
                   }),
                   this);
  g_signal_connect(m_window, "notify::scale-factor",
                   G_CALLBACK(+[](GtkWidget* window, GParamSpec*, gpointer self) {
                     if (gtk_widget_get_mapped(window) == FALSE) return;
                     const int scale = gtk_widget_get_scale_factor(window);
                     static_cast<CameraWindow*>(self)->m_actions.preview(scale);
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
  m_wanted = true;
  GtkWindow* window = GTK_WINDOW(m_window);
  gtk_window_set_transient_for(window, beside);
  gtk_window_set_focus_on_map(window, TRUE);
  if (gtk_widget_get_mapped(m_window) == TRUE) takeKeyboard(m_window);
  focusFirst();
  gtk_window_present(window);
}

// If it is open, it may be minimised or lie behind others.
void CameraWindow::appear() {
  GtkWindow* window = GTK_WINDOW(m_window);
  const bool isVisible = gtk_widget_get_visible(m_window) == TRUE;
  if (isVisible && gtk_window_is_active(window) == TRUE) return;
  m_wanted = false;
  gtk_window_set_focus_on_map(window, FALSE);
  gtk_window_set_keep_above(window, TRUE);
  gtk_widget_show(m_window);
  gtk_window_deiconify(window);
}

void CameraWindow::update(const std::string& vm, const CameraModel& model,
                          const std::string& note) {
  m_updating = true;
  gtk_header_bar_set_subtitle(GTK_HEADER_BAR(m_header), vm.c_str());
  setText(m_message, problemText(model));
  setText(m_notSaved, model.notSaved ? tr("This choice could not be saved.") : "");
  setText(m_note, note);
  updateRows(model.cameras);
  const bool mayRemember = model.isListed && model.canRemember;
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(m_remember), model.remembered ? TRUE : FALSE);
  gtk_widget_set_sensitive(m_remember, mayRemember ? TRUE : FALSE);
  gtk_widget_set_sensitive(m_buttons, model.isListed ? TRUE : FALSE);
  m_updating = false;
}

// Rows stay what they are, and so does the keyboard's focus.
void CameraWindow::updateRows(const std::vector<CameraRow>& cameras) {
  std::erase_if(m_rows, [&](const auto& entry) {
    if (std::ranges::count(cameras, entry.first, &CameraRow::id) > 0) return false;
    gtk_widget_destroy(entry.second.line);
    return true;
  });
  int position = 0;
  for (const CameraRow& camera : cameras) {
    auto row = m_rows.find(camera.id);
    if (row == m_rows.end()) row = m_rows.emplace(camera.id, makeRow(camera.id)).first;
    updateRow(row->second, camera);
    gtk_box_reorder_child(GTK_BOX(m_list), row->second.line, position++);
  }
  gtk_widget_set_visible(m_scrolled, m_rows.empty() ? FALSE : TRUE);
  int height = 0;
  gtk_widget_get_preferred_height_for_width(m_list, kWidth, nullptr, &height);
  gtk_scrolled_window_set_min_content_height(GTK_SCROLLED_WINDOW(m_scrolled),
                                             std::min(height, kLongestList));
  focusFirst();
}

// The keyboard begins at the first camera.
void CameraWindow::focusFirst() {
  if (gtk_window_get_focus(GTK_WINDOW(m_window)) != nullptr) return;
  g_autoptr(GList) lines = gtk_container_get_children(GTK_CONTAINER(m_list));
  if (lines == nullptr) return;
  const auto row = std::ranges::find_if(
      m_rows, [&](const auto& entry) { return entry.second.line == lines->data; });
  if (row != m_rows.end()) gtk_widget_grab_focus(row->second.toggle);
}

CameraWindow::Row CameraWindow::makeRow(const std::string& id) {
  Row row{gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kSpacing), makeLabel(false), makeLabel(true),
          gtk_switch_new(), std::make_unique<PreviewView>()};
  GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  add(texts, row.name);
  add(texts, row.state);
  gtk_widget_set_valign(texts, GTK_ALIGN_CENTER);
  gtk_box_pack_start(GTK_BOX(row.line), row.preview->widget(), FALSE, FALSE, 0);
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
  return row;
}

void CameraWindow::updateRow(Row& row, const CameraRow& camera) const {
  const std::string state = stateText(camera);
  setText(row.name, camera.name);
  setText(row.state, state);
  setSpoken(row.toggle, camera.name + ", " + state);
  row.preview->update(camera.name, camera.state == CameraState::InUse);
  gtk_switch_set_active(GTK_SWITCH(row.toggle), camera.shared ? TRUE : FALSE);
  gtk_switch_set_state(GTK_SWITCH(row.toggle), camera.shared ? TRUE : FALSE);
}

void CameraWindow::show(const Preview& preview) {
  const auto row = m_rows.find(preview.camera);
  if (row != m_rows.end()) row->second.preview->show(preview);
}

void CameraWindow::toggled(GtkSwitch* toggle, bool on) {
  if (m_updating) return;
  const auto* id = static_cast<const char*>(g_object_get_data(G_OBJECT(toggle), "camera"));
  m_actions.share(id, on);
}

}  // namespace lumsar::viewer
