#include "window/texts.h"

#include <glib.h>
#include <libintl.h>

#include "base/text/utf8.h"
#include "lumsar/camera_data.h"
#include "protocol/camera_record.h"

namespace lumsar::viewer {

void bindTexts() {
  bindtextdomain(kTextDomain, LUMSAR_LOCALE_DIRECTORY);
  bind_textdomain_codeset(kTextDomain, "UTF-8");
}

const char* tr(const char* text) {
  return g_dgettext(kTextDomain, text);
}

std::string stateText(const CameraRow& camera) {
  switch (camera.state) {
    case CameraState::Off:
      return tr("Off");
    case CameraState::On:
      return tr("Shared, not in use");
    case CameraState::InUse:
      return tr("In use by the VM");
    case CameraState::Unplugged:
      return camera.shared ? tr("Unplugged; shared once it is back") : tr("Unplugged");
    case CameraState::Refused:
      return tr("Refused: ") + base::clean(camera.reason);
  }
  return {};
}

std::string problemText(const CameraModel& model) {
  const bool isEmpty = model.isListed && model.cameras.empty();
  switch (model.problem) {
    case Problem::None:
      return isEmpty ? tr("This machine has no cameras.") : "";
    case Problem::CannotStart:
      return tr(
          "There are no cameras: a part of Lumsar is missing or cannot be loaded. The viewer's "
          "standard error says which.");
    case Problem::Failure:
      return tr("The cameras have failed. Connect again.");
    case Problem::ConnectionEnded:
      return tr("The connection to the VM has ended.");
    case Problem::TooMuch:
      return tr(
          "The VM sent more than the camera service takes, so its camera port was closed. "
          "Connect again.");
    case Problem::NoService:
      return tr("The camera service is not running. Start lumsar-camera-service.");
    case Problem::ServiceSilent:
      return tr("The camera service does not answer.");
    case Problem::PortClosed:
      return tr("No program in the VM has the camera port open. Is lumsar-agent running there?");
    case Problem::NoAnswer:
      return tr("The VM has not answered yet. Is lumsar-agent running there?");
    case Problem::NotOurs:
      return tr("The program at the VM's camera port is not lumsar-agent.");
    case Problem::NoChannel:
      return tr("There is no camera channel to the VM. Does the RDP server allow it?");
    case Problem::ChannelSilent:
      return tr(
          "The VM has not answered yet. Is lumsar-agent running there, and does the RDP server "
          "allow the channel?");
  }
  return {};
}

std::string noPreviewText(std::uint32_t encoding) {
  const std::string name = encoding == kEncodingH264 ? "H.264" : protocol::encodingName(encoding);
  g_autofree char* text = g_strdup_printf(tr("No preview of %s"), name.c_str());
  return text;
}

}  // namespace lumsar::viewer
