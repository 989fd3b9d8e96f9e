#include "session/commands.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <utility>

#include "base/errors.h"
#include "base/text/distance.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "json/json.h"

namespace lumsar::host {

namespace {

using json::qt;

constexpr int kUsage = STATUS_MISSING_ITEM;  // a command that the host itself refuses
// A new direct connection that has not failed within a second counts as made.
constexpr int kConnectionChecks = 10;
static_assert(kConnectionChecks * Commands::kCheckInterval == std::chrono::seconds(1));

std::vector<std::string> split(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

QJsonObject deviceCommand(const char* name, const std::string& id) {
  return {{QStringLiteral("command"), QString::fromLatin1(name)},
          {QStringLiteral("deviceId"), qt(id)}};
}

bool isNumber(const std::string& word) {
  return word.find_first_not_of("0123456789") == std::string::npos;
}

constexpr const char* kWaits = "the share waits until the camera is plugged in";
constexpr const char* kNobodyYet = "no camera has this id or name yet; ";

std::string noSuchNumber(const std::string& word) {
  return base::text("the list has no camera {}; \"list\" shows the numbers", word);
}

}  // namespace

Commands::Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
                   bool keepsResults)
    : m_plugin(plugin),
      m_report(report),
      m_status(std::move(status)),
      m_directory(std::filesystem::current_path()),
      m_keepsResults(keepsResults) {}

std::string Commands::help() {
  return "  list                     list the cameras of this machine\n"
         "  share ID                 share a camera with the VM (ID or its number in the list)\n"
         "  share-tcp ID HOST PORT   share it over a direct connection to the VM\n"
         "  share-all [SESSION]      share all cameras with a session of the VM (default 0)\n"
         "  unshare ID               stop sharing a camera\n"
         "  unshare-all              stop sharing all cameras\n"
         "  policy FILE              replace the camera policy with the JSON object in FILE\n"
         "  status                   show what is connected and what was delivered\n"
         "  help, quit";
}

bool Commands::run(const std::string& line) {
  const Words words = split(line);
  if (words.empty()) return true;
  if (words[0] == "quit" || words[0] == "exit") return false;
  Result result = carryOut(words);
  if (m_connecting) {
    m_connecting->line = line;
    return true;
  }
  result.command = line;
  finish(std::move(result));
  return true;
}

void Commands::finish(Result result) {
  m_report.say(result.command + ": " + statusText(result.status), result.answer);
  const std::lock_guard lock(m_mutex);
  m_anyFailed |= result.status != STATUS_OK;
  if (m_keepsResults) m_results.push_back(std::move(result));
}

// A connection fails a moment after it has been asked for, if it does.
void Commands::checkConnection() {
  Connecting& connecting = *m_connecting;
  Result result = verdict(connecting.reference, true);
  const bool failed = result.status != STATUS_OK;
  if (!failed && ++connecting.checks < kConnectionChecks && !isAwaited(connecting.camera)) return;
  if (!failed) {
    m_unshared.erase(connecting.camera);
  } else if (connecting.previous.command.isEmpty()) {
    m_shared.erase(connecting.camera);
  } else {
    m_shared[connecting.camera] = connecting.previous;
  }
  result.command = connecting.line;
  m_connecting.reset();
  finish(std::move(result));
}

Commands::Result Commands::carryOut(const Words& words) {
  const std::string& name = words[0];
  if (name == "list") {
    const ListReply reply = list();
    return {{}, reply.status, reply.status == STATUS_OK ? m_list.description : reply.text};
  }
  if (name == "share") return share(words);
  if (name == "share-tcp") return shareTcp(words);
  if (name == "share-all") return shareAllSession(words);
  if (name == "unshare") return unshare(words);
  if (name == "unshare-all") return unshareAll();
  if (name == "policy") return policy(words);
  if (name == "status") return {{}, STATUS_OK, m_status()};
  if (name == "help") return {{}, STATUS_OK, help()};
  return {{}, STATUS_UNKNOWN_COMMAND, "\"help\" lists the commands"};
}

Commands::Result Commands::share(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: share ID"};
  return shareCamera(words[1], deviceCommand("share", words[1]));
}

Commands::Result Commands::shareTcp(const Words& words) {
  if (words.size() != 4) return {{}, kUsage, "usage: share-tcp ID HOST PORT"};
  QJsonObject command = deviceCommand("sharetcp", words[1]);
  command[QStringLiteral("remoteIp")] = qt(words[2]);
  command[QStringLiteral("remotePort")] = qt(words[3]);
  return shareCamera(words[1], command);
}

// Remembered is only what the service lists or waits for: it refuses anything else, which must not
// be shared at some later time without being asked for.
Commands::Result Commands::shareCamera(const std::string& word, QJsonObject command) {
  // A service that hangs would not answer the next question either.
  if (list().status == STATUS_LIST_CALL_FAILED) return {{}, STATUS_LIST_CALL_FAILED, {}};
  std::optional<ListedCamera> camera = findCamera(word);
  if (!camera && isNumber(word)) return {{}, kUsage, noSuchNumber(word)};
  if (const std::string hint = mistyped(word); !camera && !hint.empty()) return {{}, kUsage, hint};
  if (camera) command[QStringLiteral("deviceId")] = qt(camera->id);
  const int status = control(command);
  if (status != STATUS_OK) return {{}, status, {}};
  const bool isDirect = json::textAt(command, "command") == "sharetcp";
  const std::string reference = json::textAt(command, "deviceId");
  Result result = verdict(reference, isDirect);
  if (result.status != STATUS_OK) return result;
  const bool isKnown = camera.has_value();
  if (!camera) camera = findCamera(word);
  if (!camera && isAwaited(word)) camera = {word, word, false};
  if (!camera) return result;
  const bool waits = isAwaited(camera->id);
  const Share previous = std::exchange(m_shared[camera->id], {camera->name, command});
  if (isDirect && !waits) {
    m_connecting = {{}, camera->id, reference, previous};
    return result;
  }
  m_unshared.erase(camera->id);
  if (!waits) return result;
  return {{}, status, isKnown ? kWaits : kNobodyYet + std::string(kWaits)};
}

Commands::Result Commands::shareAllSession(const Words& words) {
  const std::string session = words.size() == 2 ? words[1] : "0";
  int number = 0;
  const auto [end, error] =
      std::from_chars(session.data(), session.data() + session.size(), number);
  if (words.size() > 2 || error != std::errc() || *end != '\0') {
    return {{}, kUsage, "usage: share-all [SESSION], a number"};
  }
  const int status = m_plugin.ShareAll(number);
  if (status == STATUS_OK) {
    m_shareAllSession = number;
    m_unsharedAll = false;
    m_unshared.clear();
  }
  return {{}, status, {}};
}

Commands::Result Commands::unshare(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: unshare ID"};
  const int listed = list().status;
  const std::optional<ListedCamera> camera = findCamera(words[1]);
  if (!camera && isNumber(words[1])) return {{}, kUsage, noSuchNumber(words[1])};
  const std::string id = camera ? camera->id : words[1];
  // Even when the service cannot be told now: it must not be shared again.
  forgetShare(id, camera);
  const int status = control(deviceCommand("unshare", id));
  if (status == STATUS_OK && listed == STATUS_LIST_CALL_FAILED) return {{}, listed, {}};
  return status == STATUS_OK ? verdict(id) : Result{{}, status, {}};
}

Commands::Result Commands::unshareAll() {
  forgetShares();
  return {{}, control({{QStringLiteral("command"), QStringLiteral("unshareall")}}), {}};
}

Commands::Result Commands::policy(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: policy FILE"};
  const std::string path = (m_directory / words[1]).string();
  if (!std::ifstream(path)) {
    return {{}, kUsage, base::text("cannot read {}: {}", words[1], base::systemError())};
  }
  QJsonObject command;
  try {
    command = json::readFile(path);
  } catch (const base::Failure& error) {
    return {{}, STATUS_NOT_JSON, error.what()};
  }
  command[QStringLiteral("command")] = QStringLiteral("setpolicy");
  const int status = control(command);
  if (status != STATUS_OK) return {{}, status, {}};
  Result result = verdict({});
  if (result.status != STATUS_OK) return result;
  m_policy = command;
  result.answer = m_list.policyNotes.substr(0, m_list.policyNotes.rfind('\n'));
  return result;
}

int Commands::control(const QJsonObject& command) {
  char output[1] = {};
  int size = sizeof output;
  return m_plugin.Ctrl(json::compact(command), output, size);
}

// The service carries out one command after another, and its list names those that it has not.
// `reference` is the camera as the command named it. A command that `connects` fails with its
// connection, too.
Commands::Result Commands::verdict(const std::string& reference, bool connects) {
  const ListReply reply = list();
  if (reply.status != STATUS_OK) return {{}, reply.status, reply.text};
  for (const ListedRefusal& refusal : m_list.refusals) {
    if (refusal.camera != reference && (reference.empty() || refusal.name != reference)) continue;
    if (refusal.change != "refused" && !(connects && refusal.change == "failed")) continue;
    return {{}, kStatusRefused, refusal.reason};
  }
  return {{}, STATUS_OK, {}};
}

ListReply Commands::list() {
  ListReply reply = askForList(m_plugin);
  if (reply.status != STATUS_OK) return reply;
  m_list = readList(reply.text);
  for (const ListedControl& control : m_list.controls) remember(control);
  return reply;
}

// As if the user had given the command here.
void Commands::remember(const ListedControl& control) {
  const std::string& id = control.camera;
  if (id.empty()) return forgetShares();
  const std::optional<ListedCamera> camera = findCamera(id);
  if (control.shared) {
    m_shared.try_emplace(id, Share{camera ? camera->name : id, deviceCommand("share", id)});
    m_unshared.erase(id);
  } else {
    forgetShare(id, camera);
  }
}

void Commands::forgetShare(const std::string& id, const std::optional<ListedCamera>& camera) {
  m_shared.erase(id);
  if (camera) m_shared.erase(camera->name);  // as it may have been waited for
  m_unshared.insert(id);
}

void Commands::forgetShares() {
  m_shared.clear();
  m_shareAllSession.reset();
  m_unsharedAll = true;
  m_unshared.clear();
}

std::optional<CameraList> Commands::cameras() {
  return list().status == STATUS_OK ? std::optional(m_list) : std::nullopt;
}

bool Commands::serviceAnswers() {
  const int status = list().status;
  return status == STATUS_OK || status == STATUS_LIST_ERROR;
}

// By its id, its number in the list or its name, also one that was shared and has been removed.
std::optional<ListedCamera> Commands::findCamera(const std::string& word) const {
  const auto& listed = m_list.cameras;
  const auto byId = std::ranges::find(listed, word, &ListedCamera::id);
  if (byId != listed.end()) return *byId;
  if (isNumber(word)) {
    std::size_t index = 0;
    std::from_chars(word.data(), word.data() + word.size(), index);
    return index < listed.size() ? std::optional(listed[index]) : std::nullopt;
  }
  const auto byName = std::ranges::find(listed, word, &ListedCamera::name);
  if (byName != listed.end()) return *byName;
  for (const auto& [id, share] : m_shared) {
    if (id == word || share.name == word) return ListedCamera{id, share.name, false};
  }
  return std::nullopt;
}

// A hint, when no camera has this name and one has almost the same.
std::string Commands::mistyped(const std::string& word) const {
  for (const ListedCamera& camera : m_list.cameras) {
    if (!base::isMistyped(word, camera.name)) continue;
    return base::text("no camera is called \"{}\"; did you mean \"{}\"?", word,
                      base::clean(camera.name));
  }
  return {};
}

bool Commands::isAwaited(const std::string& id) const {
  const auto listed = std::ranges::find(m_list.cameras, id, &ListedCamera::id);
  if (listed != m_list.cameras.end()) return !listed->present;
  return std::ranges::find(m_list.awaited, id, &ListedCamera::id) != m_list.awaited.end();
}

void Commands::shareAgain(bool sharesAll) {
  if (m_policy) repeat("setting the policy", {}, control(*m_policy));
  if (m_shareAllSession) repeat("sharing all cameras", {}, m_plugin.ShareAll(*m_shareAllSession));
  if (m_shareAllSession || sharesAll) unshareAgain();
  shareEachAgain();
}

// A service that has just been started may not have found the cameras yet.
void Commands::shareEachAgain() {
  std::vector<int> statuses;
  for (const auto& [id, share] : m_shared) statuses.push_back(control(share.command));
  const bool allSent = std::ranges::count(statuses, STATUS_OK) == std::ssize(statuses);
  const bool isListed = !statuses.empty() && allSent && list().status == STATUS_OK;
  auto status = statuses.begin();
  for (const auto& [id, share] : m_shared) {
    const bool waits = isListed && isAwaited(id);
    repeat("sharing ", id, *status++, waits ? "; it waits until the camera is plugged in" : "");
  }
}

void Commands::unshareAgain() {
  if (m_unsharedAll) {
    repeat("unsharing ", "all cameras",
           control({{QStringLiteral("command"), QStringLiteral("unshareall")}}));
  }
  for (const std::string& id : m_unshared) {
    repeat("unsharing ", id, control(deviceCommand("unshare", id)));
  }
}

void Commands::repeat(const char* what, const std::string& id, int status, const char* more) {
  m_report.note(what, id + " again: " + statusText(status) + more);
}

std::vector<Commands::Result> Commands::results() const {
  const std::lock_guard lock(m_mutex);
  return m_results;
}

bool Commands::anyFailed() const {
  const std::lock_guard lock(m_mutex);
  return m_anyFailed;
}

}  // namespace lumsar::host
