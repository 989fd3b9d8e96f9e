// CameraWindow: a small window of its own with a switch for each camera. Closing it hides it, and
// it keeps no program from ending. Bound to GTK's thread; lives as long as the process.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "preview/preview.h"
#include "window/preview_view.h"
#include "window/texts.h"

namespace lumsar::viewer {

class CameraWindow {
 public:
  struct Actions {
    std::function<void(const std::string& id, bool shared)> share;
    std::function<void(bool shared)> shareAll;
    std::function<void(bool remembered)> remember;
    std::function<void(bool watched)> watch;
    // The screen's scale while previews can be seen, else 0.
    std::function<void(int scale)> preview = [](int) {};
  };

  explicit CameraWindow(Actions actions);

  // A person asks for it.
  void present(GtkWindow* beside);
  // It shows by itself what there is no other sign of, and leaves the keyboard where it is.
  void appear();
  // `vm` is the VM's name; `note` is said of other VMs.
  void update(const std::string& vm, const CameraModel& model, const std::string& note);
  void show(const Preview& preview);
  GtkWidget* widget() const { return m_window; }

 private:
  struct Row {
    GtkWidget* line;
    GtkWidget* name;
    GtkWidget* state;
    GtkWidget* toggle;
    std::unique_ptr<PreviewView> preview;
  };

  void build();
  GtkWidget* makeButtons();
  void watchPreviews();
  void updateRows(const std::vector<CameraRow>& cameras);
  Row makeRow(const std::string& id);
  void updateRow(Row& row, const CameraRow& camera) const;
  void focusFirst();
  void toggled(GtkSwitch* toggle, bool on);

  const Actions m_actions;
  GtkWidget* m_window;
  GtkWidget* m_header;
  GtkWidget* m_message;
  GtkWidget* m_note;
  GtkWidget* m_scrolled;
  GtkWidget* m_list;
  GtkWidget* m_remember;
  GtkWidget* m_notSaved;
  GtkWidget* m_buttons;
  std::map<std::string, Row> m_rows;  // by the camera's id
  bool m_updating = false;            // what changes is not a person's doing
  bool m_wanted = false;              // a person has asked for the window
};

}  // namespace lumsar::viewer
