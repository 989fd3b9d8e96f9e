// ViewerCameras: the cameras in one viewer, from its SPICE ports to the window. The plug-in serves
// one host per process: the first VM has the cameras, and the next one gets them when it ends.
// Bound to GTK's thread; lives as long as the process.
#pragma once

#include <spice-client.h>

#include <list>
#include <memory>
#include <string>

#include "app/camera_display.h"
#include "cameras/viewer_host.h"
#include "port/port_transport.h"
#include "port/vm_identity.h"
#include "preview/previews.h"

namespace lumsar::viewer {

class ViewerCameras {
 public:
  static ViewerCameras& instance();

  // Any number of times for one port.
  void portAppeared(SpicePortChannel* port, bool isOpen);
  // Waits for the plug-in, a few seconds at worst. There are no cameras from here on.
  void shutDown();
  // The same when there are no widgets any more, as at the end of the process.
  void end();

 private:
  struct Vm {
    VmIdentity identity;
    SpicePortChannel* port;  // to tell it from others; may be gone
    std::shared_ptr<PortTransport> transport = {};
    std::unique_ptr<ViewerHost> host = {};
    CameraModel model = {};
    bool portEnded = false;
    bool hostEnded = false;
  };

  ViewerCameras();
  void begin(Vm& vm);
  ViewerHost::Actions hostActions(Vm& vm);
  void portEnded(Vm& vm, PortEnd why);
  void hostEnded(Vm& vm);
  void remove(Vm& vm);
  void show(Vm& vm, const CameraModel& model);
  void update();
  std::string noteOnOthers() const;

  std::list<Vm> m_vms;                // the first one has the cameras
  Problem m_lastEnd = Problem::None;  // why the last one ended
  Previews m_previews;
  CameraDisplay m_display;
  bool m_isDown = false;
};

}  // namespace lumsar::viewer
