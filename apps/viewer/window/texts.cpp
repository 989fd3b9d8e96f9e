#include "window/texts.h"

#include <glib.h>
#include <libintl.h>

#include "base/text/utf8.h"

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
  switch (model.problem) {
    case Problem::None:
      return {};
    case Problem::Failure:
      return tr("There are no cameras: ") + model.details;
    case Problem::NoService:
      return tr("The camera service is not running. Start lumsar-camera-service.");
    case Problem::PortClosed:
      return tr("No program in the VM has the camera port open. Is lumsar-agent running there?");
    case Problem::NoAnswer:
      return tr("The VM has not answered yet. Is lumsar-agent running there?");
    case Problem::NotOurs:
      return tr("The program at the VM's camera port is not lumsar-agent.");
  }
  return {};
}

}  // namespace lumsar::viewer
