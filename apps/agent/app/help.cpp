// The text of --help. Called by main.
#include "app/agent_options.h"

namespace lumsar::agent {

std::string helpText() {
  return R"(lumsar-agent - the VM's side of camera redirection

usage: lumsar-agent [where the host comes from] [where pictures go] [options]

Where the host comes from (one of these; without any, --port org.lumsar.camera.0):
  --port NAME          the virtio port of this name, found without udev
  --device PATH        a character device
  --listen ADDRESS     unix:PATH, tcp:PORT (loopback only) or tcp:ADDRESS:PORT
  --xrdp[=LIBRARY]     the channel of the xrdp session that this runs in, through xrdp's library
  --kind spice|rdp     how the host's channel begins (default spice: the host greets first)
  --direct ADDRESS     camera services may come here by themselves, several at once;
                       with it alone no host is waited for

Where pictures go (any of these; a camera runs only while one of them wants it):
  --v4l2 [DEVICE]      a v4l2loopback device, /dev/videoN; may be given more than once;
                       without DEVICE all that are there
  --view [PORT]        a live page on http://127.0.0.1:PORT/ (default 8080)
  --save FOLDER        one JPEG file a picture, NAME-CAMERA-000001.jpg and so on;
                       files of the same name are replaced
  --save-mjpeg FOLDER  one growing file a camera, NAME-CAMERA.mjpeg
  --discard            nowhere: only count them

Options:
  --for TIME           end after this time, such as 500ms, 10s, 2m
  --json               print a summary as one JSON object at the end
  --status-file PATH   keep the same in a file, replaced each second
  --share-all          ask the host to share all cameras at once
  --session N          this VM's session number, told to the host (default 1)
  --vm-version A.B     protocol version told to the host (default 1.1)
  --verbose            log more
  --version, --help

For tests of the other side:
  --wrong-token        answer a HELLO with another token than the host's

Exit status: 0 ended as asked (also by Ctrl-C), 1 failure, 2 wrong command line.
)";
}

}  // namespace lumsar::agent
