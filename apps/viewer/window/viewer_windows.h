// ViewerWindows: what is added to the windows of somebody else's program: Ctrl+Alt+C, and a button
// where a window has a header bar or a full screen's toolbar. Bound to GTK's thread; lives as long
// as the process.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

namespace lumsar::viewer {

class ViewerWindows {
 public:
  // `open` gets the window in which a person asked for the cameras.
  explicit ViewerWindows(std::function<void(GtkWindow*)> open);
  // Nothing is added to it, if it has not been shown yet.
  void leaveAlone(GtkWindow* window);

  struct Indicator {
    bool isVisible = false;
    bool inUse = false;
    std::string vm = {};  // whose cameras they are, as all windows of the program have the buttons
  };
  void setIndicator(const Indicator& indicator);
  // Whether a person sees one of the buttons: a full screen has none, and a window that is not used
  // may be hidden.
  bool isIndicatorSeen() const;

 private:
  void adopt(GtkWindow* window);
  void addButton(GtkWidget* header);
  void update(GtkWidget* button) const;

  std::function<void(GtkWindow*)> m_open;
  GList* m_buttons = nullptr;  // those that exist
  Indicator m_indicator;
};

}  // namespace lumsar::viewer
