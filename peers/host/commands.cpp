#include "commands.h"

#include <QFile>
#include <QJsonDocument>
#include <charconv>
#include <sstream>
#include <stdexcept>

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

}  // namespace

Commands::Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
                   std::function<int(int)> shareAll)
    : m_plugin(plugin),
      m_report(report),
      m_status(std::move(status)),
      m_shareAll(std::move(shareAll)),
      m_directory(std::filesystem::current_path()) {}

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
  m_results.push_back(std::move(result));
  return true;
}

Commands::Result Commands::carryOut(const std::string& line, const Words& words) {
  const std::string& name = words[0];
  if (name == "list") {
    QJsonArray cameras;
    std::string text;
    const int status = list(cameras, text);
    return {line, status, status == STATUS_OK ? describeList(cameras) : text};
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
  const std::string id = deviceId(words[1]);
  const QJsonObject command = deviceCommand("share", id);
  const int status = control(command);
  if (status == STATUS_OK) remember(id, command);
  return {{}, status, {}};
}

Commands::Result Commands::shareTcp(const Words& words) {
  if (words.size() != 4) return {{}, kUsage, "usage: share-tcp ID HOST PORT"};
  const std::string id = deviceId(words[1]);
  QJsonObject command = deviceCommand("sharetcp", id);
  command[QStringLiteral("remoteIp")] = qt(words[2]);
  command[QStringLiteral("remotePort")] = qt(words[3]);
  const int status = control(command);
  if (status == STATUS_OK) remember(id, command);
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
  return {{}, m_shareAll(number), {}};
}

Commands::Result Commands::unshare(const Words& words) {
  if (words.size() != 2) return {{}, kUsage, "usage: unshare ID"};
  const std::string id = deviceId(words[1]);
  m_shared.erase(id);
  return {{}, control(deviceCommand("unshare", id)), {}};
}

Commands::Result Commands::unshareAll() {
  m_shared.clear();
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
  return {{}, control(command), {}};
}

int Commands::control(const QJsonObject& command) {
  char output[1] = {};
  int size = sizeof output;
  return m_plugin.Ctrl(textOf(command), output, size);
}

int Commands::list(QJsonArray& cameras, std::string& text) {
  const std::string command = R"({"command":"list"})";
  std::vector<char> output(kListSize);
  int size = static_cast<int>(output.size());
  int status = m_plugin.Ctrl(command, output.data(), size);
  if (status == STATUS_OK && size > static_cast<int>(output.size())) {
    output.assign(static_cast<std::size_t>(size) + 1, '\0');
    size = static_cast<int>(output.size());
    status = m_plugin.Ctrl(command, output.data(), size);
  }
  if (status != STATUS_OK && status != STATUS_LIST_ERROR) return status;
  text.assign(output.data(), static_cast<std::size_t>(size));
  const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(text));
  cameras = document.object()[QStringLiteral("cameras")].toArray();
  return status;
}

bool Commands::serviceAnswers() {
  QJsonArray cameras;
  std::string text;
  const int status = list(cameras, text);
  return status == STATUS_OK || status == STATUS_LIST_ERROR;
}

// A number that is nobody's id counts along the list.
std::string Commands::deviceId(const std::string& word) {
  if (word.find_first_not_of("0123456789") != std::string::npos || word.size() > 6) return word;
  QJsonArray cameras;
  std::string text;
  if (list(cameras, text) != STATUS_OK) return word;
  for (const auto& camera : cameras) {
    if (camera.toObject()[QStringLiteral("id")].toString() == qt(word)) return word;
  }
  const auto camera = cameras.at(std::atoi(word.c_str())).toObject();
  const std::string id = camera[QStringLiteral("id")].toString().toStdString();
  return id.empty() ? word : id;
}

std::string Commands::describeList(const QJsonArray& cameras) const {
  if (cameras.isEmpty()) return "  no camera";
  std::string text;
  for (int i = 0; i < cameras.size(); ++i) {
    const QJsonObject camera = cameras.at(i).toObject();
    if (i > 0) text += "\n";
    text += "  " + std::to_string(i) + "  " +
            camera[QStringLiteral("id")].toString().toStdString() + "  " +
            camera[QStringLiteral("name")].toString().toStdString();
  }
  return text;
}

void Commands::remember(const std::string& id, const QJsonObject& command) {
  m_shared[id] = command;
}

void Commands::shareAgain() {
  for (const auto& [id, command] : m_shared) {
    m_report.say("sharing " + id + " again: " + statusText(control(command)));
  }
}

std::vector<Commands::Result> Commands::results() const {
  const std::lock_guard lock(m_mutex);
  return m_results;
}

}  // namespace lumsar::host
