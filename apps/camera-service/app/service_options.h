// The command line of lumsar-camera-service. Called once, at the start, on the main thread.
#ifndef LUMSAR_CAMERA_SERVICE_APP_SERVICE_OPTIONS_H
#define LUMSAR_CAMERA_SERVICE_APP_SERVICE_OPTIONS_H

#include <QStringList>
#include <string>
#include <vector>

#include "session/access_rules.h"
#include "sources/virtual_cameras.h"

namespace lumsar::service {

struct Options {
  enum class Action { Serve, Status, PrintAndExit } action = Action::Serve;
  std::string channel = "lumsar";
  bool verbose = false;
  bool json = false;
  std::vector<VirtualCamera> synthetic;
  std::vector<std::string> files;
  std::vector<std::string> folders;
  AccessRules access;
  std::string text;  // to be printed, for PrintAndExit
};

// Throws std::invalid_argument with a text for the user.
Options readOptions(const QStringList& arguments);

}  // namespace lumsar::service

#endif
