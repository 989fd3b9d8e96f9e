// ViewerWindows: what is added to the windows of somebody else's program: Ctrl+Alt+C, and a button
// where a window has a header bar. Bound to GTK's thread; lives as long as the process.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

namespace lumsar::viewer {

class ViewerWindows {
 public:
  // `open` gets the window in which a person asked for the cameras. `own` is left alone.
  ViewerWindows(GtkWidget* own, std::function<void(GtkWindow*)> open);

  // What the buttons look like, and whether there are any.
  void setIndicator(bool visible, bool inUse);

 private:
  void adopt(GtkWindow* window);
  void addButton(GtkWindow* window);
  void update(GtkWidget* button) const;

  GtkWidget* m_own;
  std::function<void(GtkWindow*)> m_open;
  GList* m_buttons = nullptr;  // those that exist
  bool m_visible = false;
  bool m_inUse = false;
};

}  // namespace lumsar::viewer
