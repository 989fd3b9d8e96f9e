// lumsar-cameras: which hosts run on this machine, which cameras each shares, and who is being
// watched now; shares and unshares for any of them, by the camera service.
#include <QJsonArray>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <thread>

#include "app/service_call.h"
#include "app/status_words.h"
#include "base/command_line.h"
#include "base/errors.h"
#include "base/text/format.h"
#include "base/text/table.h"
#include "json/json.h"
#include "lumsar/ipc_transport.h"
#include "protocol/names.h"

namespace lumsar::service {
namespace {

using base::text;

constexpr std::chrono::seconds kWatchInterval{1};

struct Options {
  std::string channel = protocol::kDefaultIpcChannel;
  std::string share;
  std::string unshare;
  bool unshareAll = false;
  std::string host;
  bool watch = false;
  bool json = false;
};

QJsonObject askStatus(const Options& options) {
  return json::readObject(callService(options.channel, IPC_MSG_STATUS)).object;
}

QJsonArray hostsOf(const QJsonObject& status) {
  return status.value("hosts").toArray();
}

// Cameras by id, as people call them.
std::map<std::string, std::string> namesOf(const QJsonObject& status) {
  std::map<std::string, std::string> names;
  const QJsonArray cameras = status.value("cameras").toArray();
  for (const auto& value : cameras) {
    const QJsonObject camera = value.toObject();
    names[field(camera, "id")] = field(camera, "name");
  }
  return names;
}

// A camera of a host.
struct Shared {
  std::string host;  // its number
  std::string vm;
  std::string camera;
  std::string state;
};
constexpr const char* kInUse = "in use by the VM";

// In the order of the hosts.
std::vector<Shared> sharedIn(const QJsonObject& status) {
  const auto names = namesOf(status);
  std::vector<Shared> all;
  const QJsonArray hosts = hostsOf(status);
  for (const auto& value : hosts) {
    const QJsonObject host = value.toObject();
    const auto add = [&](const QJsonObject& share, const char* state) {
      const std::string id = field(share, "camera");
      const auto name = names.find(id);
      all.push_back({field(host, "client"), field(host, "vmId"),
                     name == names.end() ? id : name->second, state});
    };
    const QJsonArray shares = host.value("shares").toArray();
    for (const auto& share : shares) {
      const QJsonObject object = share.toObject();
      add(object, object.value("started").toBool() ? kInUse : "shared, not in use");
    }
    const QJsonArray waiting = host.value("waiting").toArray();
    for (const auto& share : waiting) add(share.toObject(), "shared once it is plugged in");
  }
  return all;
}

std::string hostTable(const QJsonObject& status) {
  const QJsonArray hosts = hostsOf(status);
  if (hosts.isEmpty()) return "no host is connected\n";
  const std::vector<Shared> all = sharedIn(status);
  std::vector<base::TableRow> rows{{"HOST", "VM", "CAMERA", "STATE"}};
  for (const auto& value : hosts) {
    const QJsonObject host = value.toObject();
    const std::size_t before = rows.size();
    for (const Shared& shared : all) {
      if (shared.host != field(host, "client")) continue;
      rows.push_back({shared.host, shared.vm, shared.camera, shared.state});
    }
    if (rows.size() == before) {
      rows.push_back({field(host, "client"), field(host, "vmId"), "-", "nothing is shared"});
    }
  }
  return "hosts:\n" + base::table(rows);
}

std::string cameraTable(const QJsonObject& status) {
  const QJsonArray cameras = status.value("cameras").toArray();
  if (cameras.isEmpty()) return "no cameras\n";
  std::vector<base::TableRow> rows{{"ID", "NAME", "STATE"}};
  for (const auto& value : cameras) {
    const QJsonObject camera = value.toObject();
    rows.push_back({field(camera, "id"), field(camera, "name"), stateOf(camera)});
  }
  return "cameras:\n" + base::table(rows);
}

void list(const Options& options) {
  const QJsonObject status = askStatus(options);
  const std::string shown =
      options.json ? json::compact(status) + "\n" : cameraTable(status) + hostTable(status);
  std::fputs(shown.c_str(), stdout);
}

void print(const Options& options, const Shared& shared) {
  if (options.json) {
    const QJsonObject object{{"host", json::qt(shared.host)},
                             {"vmId", json::qt(shared.vm)},
                             {"camera", json::qt(shared.camera)},
                             {"state", json::qt(shared.state)}};
    std::puts(json::compact(object).c_str());
  } else {
    std::puts(text("host {}, VM {}: {}: {}", shared.host, shared.vm, shared.camera, shared.state)
                  .c_str());
  }
  std::fflush(stdout);
}

// Until Ctrl-C, or the service has ended.
[[noreturn]] void watch(const Options& options) {
  std::signal(SIGINT, [](int) { std::_Exit(0); });
  std::signal(SIGTERM, [](int) { std::_Exit(0); });
  using Key = std::pair<std::string, std::string>;
  for (std::map<Key, Shared> before;; std::this_thread::sleep_for(kWatchInterval)) {
    std::map<Key, Shared> now;
    for (Shared& shared : sharedIn(askStatus(options))) {
      const Key key{shared.host, shared.camera};
      now[key] = std::move(shared);
    }
    for (auto& [key, shared] : before) {
      if (now.contains(key)) continue;
      shared.state = "no longer shared";
      print(options, shared);
    }
    for (const auto& [key, shared] : now) {
      const auto known = before.find(key);
      if (known == before.end() || known->second.state != shared.state) print(options, shared);
    }
    before = std::move(now);
  }
}

// By its number or by its VM; the only one without.
qint64 chooseHost(const QJsonObject& status, const std::string& wanted) {
  const QJsonArray hosts = hostsOf(status);
  if (hosts.isEmpty()) throw base::Failure("no host is connected; start one, or a viewer, first");
  std::vector<qint64> chosen;
  std::string all;
  for (const auto& value : hosts) {
    const QJsonObject host = value.toObject();
    const std::string number = field(host, "client");
    all += text("{}{} (VM {})", all.empty() ? "" : ", ", number, field(host, "vmId"));
    if (wanted.empty() || wanted == number || wanted == json::textAt(host, "vmId")) {
      chosen.push_back(host.value("client").toInt());
    }
  }
  if (chosen.size() == 1) return chosen.front();
  if (chosen.empty()) throw base::Failure(text("no host \"{}\"; there are {}", wanted, all));
  throw base::Failure(
      text("{} hosts could be meant; choose one with --host NUMBER: {}", chosen.size(), all));
}

int control(const Options& options, const char* command, const std::string& camera) {
  QJsonObject request{{"command", command},
                      {"client", chooseHost(askStatus(options), options.host)}};
  if (!camera.empty()) request["deviceId"] = json::qt(camera);
  const std::string answer = callService(options.channel, IPC_MSG_CONTROL, json::compact(request));
  const QJsonObject change = json::readObject(answer).object;
  const bool refused = json::textAt(change, "change") == "refused";
  if (options.json) {
    std::puts(answer.c_str());
  } else {
    const std::string what = camera.empty() ? "all cameras" : json::shown(camera);
    std::fprintf(refused ? stderr : stdout, "%s: %s\n", what.c_str(),
                 field(change, "reason").c_str());
  }
  return refused ? 1 : 0;
}

void addManual(base::CommandLine& line) {
  line.section("Exit status", {{"0", "done, or interrupted while watching"},
                               {"1", "refused, or there is no such host or no camera service"},
                               {"2", "wrong usage"}});
  line.section("Environment", {{"XDG_RUNTIME_DIR", "where the camera service's socket is"}});
  line.section("Files",
               {{"$XDG_RUNTIME_DIR/lumsar/lumsar.sock", "the socket of the camera service"}});
  line.section("Examples",
               {{"lumsar-cameras", "the cameras and hosts of this machine"},
                {"lumsar-cameras --share Front", "for the only host"},
                {"lumsar-cameras --unshare-all --host vm-7", "for a desktop shortcut"}});
}

std::optional<Options> parseOptions(int argc, const char* const* argv) {
  Options options;
  base::CommandLine line(
      "lumsar-cameras", "[OPTION...]",
      "Shows which hosts run on this machine, which cameras each shares with its "
      "VM and which\nare in use there, and shares and unshares for any of them. "
      "A host remembers it as if\nit had been told itself.");
  line.option("--share CAMERA", options.share, "share a camera, by its id or its name");
  line.option("--unshare CAMERA", options.unshare, "stop sharing it");
  line.option("--unshare-all", options.unshareAll, "stop sharing all cameras");
  line.option("--host HOST", options.host,
              "for this host, by its number or its VM (default: the only one)");
  line.option("--watch", options.watch, "print what changes, until interrupted");
  line.option("--json", options.json, "print JSON, with --watch a line for each change");
  line.option("--ipc-channel NAME", options.channel,
              text("the camera service's IPC channel, or the absolute path of its socket "
                   "(default {})",
                   options.channel));
  line.exclusive({"--share", "--unshare", "--unshare-all", "--watch"});
  addManual(line);
  if (!line.parse(argc, argv)) return std::nullopt;
  return options;
}

int run(int argc, char** argv) {
  const auto options = parseOptions(argc, argv);
  if (!options) return 0;
  if (!options->share.empty()) return control(*options, "share", options->share);
  if (!options->unshare.empty()) return control(*options, "unshare", options->unshare);
  if (options->unshareAll) return control(*options, "unshareall", {});
  if (options->watch) watch(*options);
  list(*options);
  return 0;
}

}  // namespace
}  // namespace lumsar::service

int main(int argc, char** argv) {
  return lumsar::base::runProgram("lumsar-cameras",
                                  [&] { return lumsar::service::run(argc, argv); });
}
