#include "app/commands.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>

namespace lumsar::host {

namespace {

constexpr int kUsage = STATUS_MISSING_ITEM;  // a command that the host itself refuses
constexpr std::size_t kListSize = std::size_t{64} * 1024;

QString qt(const std::string& text) {
  return QString::fromStdString(text);
}

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

std::string textOf(const QJsonObject& object) {
  return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

std::string textAt(const QJsonObject& object, const char* key) {
  return object[QLatin1String(key)].toString().toStdString();
}

bool isNumber(const std::string& word) {
  return word.find_first_not_of("0123456789") == std::string::npos;
}

std::string noSuchNumber(const std::string& word) {
  return "the list has no camera " + word + "; \"list\" shows the numbers";
}

std::string describeCamera(const QJsonObject& camera) {
  std::string text = textAt(camera, "id") + "  " + textAt(camera, "name");
  if (!camera[QLatin1String("present")].toBool(true)) text += "  unplugged";
  if (!camera[QLatin1String("sharedWith")].toArray().isEmpty()) text += "  shared";
  if (camera[QLatin1String("inUse")].toBool()) text += "  in use";
  return text;
}

std::string describeRefusal(const QJsonObject& refusal) {
  const std::string camera = textAt(refusal, "camera");
  return textAt(refusal, "change") + ": " + (camera.empty() ? "" : camera + ": ") +
         textAt(refusal, "reason");
}

}  // namespace

Commands::Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
                   std::function<int(int)> shareAll, bool keepsResults)
    : m_plugin(plugin),
      m_report(report),
      m_status(std::move(status)),
      m_shareAll(std::move(shareAll)),
      m_directory(std::filesystem::current_path()),
      m_keepsResults(keepsResults) {}

std::string Commands::help() {
  return "  list                     cameras of this machine\n"
         "  share ID                 share a camera with the VM (ID or its number in the list)\n"
         "  share-tcp ID HOST PORT   share it over a direct connection to the VM\n"
         "  share-all [SESSION]      share all cameras with a session of the VM (default 0)\n"
         "  unshare ID               stop sharing a camera\n"
         "  unshare-all              stop sharing all cameras\n"
         "  policy FILE              replace the camera policy by the JSON object in FILE\n"
         "  status                   what is connected and what went through\n"
         "  help, quit";
}

bool Commands::run(const std::string& line) {
  const Words words = split(line);
  if (words.empty()) return true;
  if (words[0] == "quit" || words[0] == "exit") return false;
  Result result = carryOut(line, words);
  result.command = line;
  std::string said = line + ": " + statusText(result.status);
  if (!result.answer.empty()) said += "\n" + result.answer;
  m_report.say(said);
  const std::lock_guard lock(m_mutex);
  m_anyFailed |= result.status != STATUS_OK;
  if (m_keepsResults) m_results.push_back(std::move(result));
  return true;
}

Commands::Result Commands::carryOut(const std::string& line, const Words& words) {
  const std::string& name = words[0];
  if (name == "list") {
    std::string text;
    const int status = list(text);
    return {line, status, status == STATUS_OK ? describeList() : text};
  }
  if (name == "share") return share(words);
  if (name == "share-tcp") return shareTcp(words);
  if (name == "share-all") return shareAllSession(words);
  if (name == "unshare") return unshare(words);
  if (name == "unshare-all") return unshareAll();
  if (name == "policy") return policy(words);
  if (name == "status") return {line, STATUS_OK, m_status()};
  if (name == "help") return {line, STATUS_OK, help()};
  return {line, STATUS_UNKNOWN_COMMAND, "\"help\" lists the commands"};
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

// Remembered is only a camera of the list: another the service refuses, and it must not be shared
// at some later time without being asked for.
Commands::Result Commands::shareCamera(const std::string& word, QJsonObject command) {
  std::string ignored;
  list(ignored);
  const std::optional<Camera> camera = findCamera(word);
  if (!camera && isNumber(word)) return {{}, kUsage, noSuchNumber(word)};
  if (camera) command[QStringLiteral("deviceId")] = qt(camera->id);
  const int status = control(command);
  if (status == STATUS_OK && camera) {
    m_shared[camera->id] = {camera->name, command};
    m_takenBack.erase(camera->id);
  }
  return {{}, status, {}};
}

Commands::Result Commands::shareAllSession(const Words& words) {
  const std::string session = words.size() == 2 ? words[1] : "0";
  int number = 0;
  const auto [end, error] =
      std::from_chars(session.data(), session.data() + session.size(), number);
  if (words.size() > 2 || error != std::errc() || *end != '\0') {
    return {{}, kUsage, "usage: share-all [SESSION], a number"};
  }
  const int status = m_shareAll(number);
  if (status == STATUS_OK) {
    m_shareAllSession = number;
    m_unsharedAll = false;
    m_takenBack.clear();
  }
  return {{}, status, {}};
}

Commands::Result Commands::unshare(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: unshare ID"};
  std::string ignored;
  list(ignored);
  const std::optional<Camera> camera = findCamera(words[1]);
  if (!camera && isNumber(words[1])) return {{}, kUsage, noSuchNumber(words[1])};
  const std::string id = camera ? camera->id : words[1];
  // Even when the service cannot be told now: it must not be shared again.
  m_shared.erase(id);
  m_takenBack.insert(id);
  return {{}, control(deviceCommand("unshare", id)), {}};
}

Commands::Result Commands::unshareAll() {
  m_shared.clear();
  m_shareAllSession.reset();
  m_unsharedAll = true;
  m_takenBack.clear();
  return {{}, control({{QStringLiteral("command"), QStringLiteral("unshareall")}}), {}};
}

Commands::Result Commands::policy(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: policy FILE"};
  QFile file(qt((m_directory / words[1]).string()));
  if (!file.open(QIODevice::ReadOnly)) {
    return {{}, kUsage, "cannot read " + words[1] + ": " + file.errorString().toStdString()};
  }
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
  if (!document.isObject()) {
    const QString why =
        document.isNull() ? error.errorString() : QStringLiteral("it holds no JSON object");
    return {{}, STATUS_NOT_JSON, words[1] + ": " + why.toStdString()};
  }
  QJsonObject command = document.object();
  command[QStringLiteral("command")] = QStringLiteral("setpolicy");
  const int status = control(command);
  if (status == STATUS_OK) m_policy = command;
  return {{}, status, {}};
}

int Commands::control(const QJsonObject& command) {
  char output[1] = {};
  int size = sizeof output;
  return m_plugin.Ctrl(textOf(command), output, size);
}

int Commands::list(std::string& text) {
  const std::string command = R"({"command":"list"})";
  std::vector<char> output;
  int size = kListSize;
  int status = STATUS_OK;
  // Cameras that are plugged in between two calls may make it grow once more.
  while (status == STATUS_OK && size > static_cast<int>(output.size())) {
    output.assign(static_cast<std::size_t>(size), '\0');
    status = m_plugin.Ctrl(command, output.data(), size);
  }
  if (status != STATUS_OK && status != STATUS_LIST_ERROR) return status;
  text.assign(output.data(), std::min(static_cast<std::size_t>(size), output.size()));
  if (status == STATUS_OK) {
    m_list = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
  }
  return status;
}

bool Commands::serviceAnswers() {
  std::string text;
  const int status = list(text);
  return status == STATUS_OK || status == STATUS_LIST_ERROR;
}

// By its id, its number in the list or its name, also one that has been shared and is gone.
std::optional<Commands::Camera> Commands::findCamera(const std::string& word) const {
  std::vector<Camera> cameras;
  const QJsonArray listed = m_list[QStringLiteral("cameras")].toArray();
  for (const auto& value : listed) {
    cameras.push_back({textAt(value.toObject(), "id"), textAt(value.toObject(), "name")});
  }
  const std::size_t inList = cameras.size();
  for (const auto& [id, share] : m_shared) cameras.push_back({id, share.name});

  for (const Camera& camera : cameras) {
    if (camera.id == word) return camera;
  }
  if (isNumber(word)) {
    const std::size_t index = std::strtoul(word.c_str(), nullptr, 10);
    if (index < inList) return cameras[index];
    return std::nullopt;
  }
  for (const Camera& camera : cameras) {
    if (camera.name == word) return camera;
  }
  return std::nullopt;
}

std::string Commands::describeList() const {
  std::string text;
  int number = 0;
  const QJsonArray cameras = m_list[QStringLiteral("cameras")].toArray();
  for (const auto& camera : cameras) {
    text += "  " + std::to_string(number++) + "  " + describeCamera(camera.toObject()) + "\n";
  }
  if (cameras.isEmpty()) text += "  no camera\n";
  const QJsonArray refusals = m_list[QStringLiteral("refusals")].toArray();
  for (const auto& refusal : refusals) text += "  " + describeRefusal(refusal.toObject()) + "\n";
  const QJsonArray notes = m_list[QStringLiteral("policyNotes")].toArray();
  for (const auto& note : notes) text += "  policy: " + note.toString().toStdString() + "\n";
  text.pop_back();
  return text;
}

void Commands::shareAgain(bool sharesAll) {
  if (m_policy) repeat("setting the policy", control(*m_policy));
  if (m_shareAllSession) repeat("sharing all cameras", m_shareAll(*m_shareAllSession));
  if (m_shareAllSession || sharesAll) takeBackAgain();
  for (const auto& [id, share] : m_shared) repeat("sharing " + id, control(share.command));
}

void Commands::takeBackAgain() {
  if (m_unsharedAll) {
    repeat("taking back all cameras",
           control({{QStringLiteral("command"), QStringLiteral("unshareall")}}));
  }
  for (const std::string& id : m_takenBack) {
    repeat("taking back " + id, control(deviceCommand("unshare", id)));
  }
}

void Commands::repeat(const std::string& what, int status) {
  m_report.say(what + " again: " + statusText(status));
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
