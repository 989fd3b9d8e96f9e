// The command line: see options.h. Called once, on the main thread.
#include "app/service_options.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <stdexcept>

#include "app/log.h"
#include "ipc/channel_path.h"
#include "lumsar/ipc_transport.h"
#include "sources/synthetic.h"

namespace lumsar::service {
namespace {

const QCommandLineOption kChannel("ipc-channel", "Listen on channel NAME, or at an absolute path.",
                                  "NAME", "lumsar");
const QCommandLineOption kCamera(
    "camera",
    "Offer another camera: test:NAME[,WIDTHxHEIGHT[@RATE]] for a synthetic one, file:PATH for a "
    "picture or movie. May be given several times.",
    "CAMERA");
const QCommandLineOption kWatch(
    "watch", "Offer each picture and movie in folder DIR, as it comes and goes, as a camera.",
    "DIR");
const QCommandLineOption kAllow(
    "allow", "Allow only this camera, by id or name, to all VMs or to one: CAMERA or CAMERA@VM.",
    "CAMERA");
const QCommandLineOption kDeny(
    "deny", "Deny this camera, by id or name, to all VMs or to one: CAMERA or CAMERA@VM.",
    "CAMERA");
const QCommandLineOption kStatus("status", "Ask the running service what it does, and exit.");
const QCommandLineOption kJson("json", "With --status: answer as JSON.");
const QCommandLineOption kVerbose("verbose", "Log more.");
const QCommandLineOption kHelp({"h", "help"}, "Show this help.");
const QCommandLineOption kVersion("version", "Show the version.");

[[noreturn]] void reject(const QCommandLineOption& option, const QString& value,
                         const std::string& why) {
  throw std::invalid_argument(
      joined("--", option.names().last().toStdString(), " ", value.toStdString(), ": ", why));
}

void addCamera(const QString& value, Options& options) {
  const std::string text = value.toStdString();
  if (text.starts_with("test:")) {
    try {
      options.synthetic.push_back(syntheticCamera(text.substr(5)));
    } catch (const std::invalid_argument& error) {
      reject(kCamera, value, error.what());
    }
  } else if (text.starts_with("file:")) {
    const QFileInfo file(value.mid(5));
    if (!file.isFile() || !file.isReadable()) {
      reject(kCamera, value, "there is no readable file of this name");
    }
    options.files.push_back(file.absoluteFilePath().toStdString());
  } else {
    reject(kCamera, value, "expected test:NAME,1280x720@30 or file:PATH");
  }
}

void addFolder(const QString& value, Options& options) {
  const QFileInfo folder(value);
  if (!folder.isDir() || !folder.isReadable()) {
    reject(kWatch, value, "there is no readable folder of this name; make it first");
  }
  options.folders.push_back(folder.absoluteFilePath().toStdString());
}

void addRules(const QCommandLineParser& parser, Options& options) {
  const auto each = [&](const QCommandLineOption& option, auto add) {
    for (const QString& value : parser.values(option)) {
      try {
        add(value.toStdString());
      } catch (const std::invalid_argument& error) {
        reject(option, value, error.what());
      }
    }
  };
  each(kAllow, [&](const std::string& rule) { options.access.allow(rule); });
  each(kDeny, [&](const std::string& rule) { options.access.deny(rule); });
}

void checkChannel(const Options& options) {
  const int error = ipc::channelPath(options.channel.c_str()).error;
  if (error != 0) reject(kChannel, QString::fromStdString(options.channel), ipcErrorText(error));
}

}  // namespace

Options readOptions(const QStringList& arguments) {
  QCommandLineParser parser;
  parser.setApplicationDescription(
      "Owns this machine's cameras and streams them, as VMs ask for them, through the hosts that "
      "are connected.\nWithout a camera and without --camera or --watch it offers a synthetic "
      "one.");
  parser.addOptions(
      {kChannel, kCamera, kWatch, kAllow, kDeny, kStatus, kJson, kVerbose, kHelp, kVersion});
  if (!parser.parse(arguments)) throw std::invalid_argument(parser.errorText().toStdString());
  Options options;
  if (parser.isSet(kHelp) || parser.isSet(kVersion)) {
    options.action = Options::Action::PrintAndExit;
    options.text = parser.isSet(kHelp) ? parser.helpText().toStdString()
                                       : "lumsar-camera-service " LUMSAR_VERSION "\n";
    return options;
  }
  if (!parser.positionalArguments().isEmpty()) {
    throw std::invalid_argument("unexpected argument '" +
                                parser.positionalArguments().first().toStdString() + "'");
  }
  if (parser.isSet(kStatus)) options.action = Options::Action::Status;
  options.json = parser.isSet(kJson);
  options.verbose = parser.isSet(kVerbose);
  options.channel = parser.value(kChannel).toStdString();
  checkChannel(options);
  for (const QString& value : parser.values(kCamera)) addCamera(value, options);
  for (const QString& value : parser.values(kWatch)) addFolder(value, options);
  addRules(parser, options);
  return options;
}

}  // namespace lumsar::service
