// CameraDisplay: what one program shows of the cameras: the window, a button where there is a
// header bar, a notification. Bound to GTK's thread; lives as long as the process.
#pragma once

#include <memory>
#include <string>

#include "cameras/camera_control.h"
#include "preview/previews.h"
#include "window/camera_window.h"
#include "window/viewer_windows.h"

namespace lumsar::viewer {

class CameraDisplay {
 public:
  // Images that are made of the frames that leave; showPreviews() is to be called when there are
  // new ones.
  explicit CameraDisplay(Previews& previews);

  // Whom a person asks from here on; nobody, if it is null.
  void serve(host::CameraControl* control);
  // `vm` is the VM's name, if there is one; `note` is said of other VMs.
  void show(const std::string& vm, const CameraModel& model, const std::string& note = {});
  void showPreviews();
  // The program ends.
  void end();

 private:
  CameraWindow& window();
  CameraWindow::Actions windowActions();
  bool isOpen() const;
  void preview(int scale);

  Previews& m_previews;
  bool m_hasEnded = false;
  host::CameraControl* m_control = nullptr;
  std::string m_vm;
  CameraModel m_model;
  std::string m_note;
  std::unique_ptr<CameraWindow> m_window;
  ViewerWindows m_windows;
};

}  // namespace lumsar::viewer
