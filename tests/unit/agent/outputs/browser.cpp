// The browser's debugging protocol: JSON texts, each followed by a zero byte, on descriptors 3
// and 4.
#include "unit/agent/outputs/browser.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <QByteArray>
#include <QJsonDocument>
#include <array>
#include <csignal>

#include "support/eventually.h"

namespace lumsar::test {
namespace {

constexpr milliseconds kLongTimeout = kTimeout;

std::string executable() {
  for (const char* path :
       {"/usr/bin/chromium", "/usr/bin/chromium-browser", "/usr/bin/google-chrome"}) {
    if (access(path, X_OK) == 0) return path;
  }
  return {};
}

std::vector<std::string> commandLine(const std::string& profile, const Process::Words& more) {
  Process::Words command = {executable(),
                            "--headless",
                            "--no-sandbox",
                            "--disable-gpu",
                            "--disable-quic",
                            "--no-first-run",
                            "--disable-background-networking",
                            "--disable-component-update",
                            "--disable-sync",
                            "--hide-scrollbars",
                            "--remote-debugging-pipe",
                            "--user-data-dir=" + profile,
                            "--window-size=1280,900"};
  command.insert(command.end(), more.begin(), more.end());
  return command;
}

struct Pipe {
  base::UniqueFd reading{-1};
  base::UniqueFd writing{-1};
};

// Both ends above the descriptors that the browser expects.
Pipe pipeOutOfTheWay() {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return Pipe();
  const base::UniqueFd reading(ends[0]);
  const base::UniqueFd writing(ends[1]);
  return {base::UniqueFd(fcntl(reading.get(), F_DUPFD_CLOEXEC, 10)),
          base::UniqueFd(fcntl(writing.get(), F_DUPFD_CLOEXEC, 10))};
}

}  // namespace

bool Browser::installed() {
  return !executable().empty();
}

Browser::Browser(const std::string& page, const Setup& setup) {
  start(setup);
  const QJsonObject target = call("Target.createTarget", {{"url", QString::fromStdString(page)}});
  const QJsonObject session =
      call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}});
  m_session = session["sessionId"].toString();
  if (m_session.isEmpty() && m_problem.empty()) m_problem = "no page: " + m_child->output();
}

void Browser::start(const Setup& setup) {
  auto [theirCommands, commands] = pipeOutOfTheWay();
  auto [answers, theirAnswers] = pipeOutOfTheWay();
  m_commands = std::move(commands);
  m_answers = std::move(answers);
  const auto useDescriptors = [input = theirCommands.get(), output = theirAnswers.get()] {
    dup2(input, 3);
    dup2(output, 4);
  };
  ProcessSetup process{.environment = setup.environment, .before = useDescriptors};
  process.environment.insert({{"HOME", m_folder.path()}, {"TMPDIR", m_folder.path()}});
  m_child.emplace(commandLine(m_folder / "profile", setup.arguments), process);
}

std::string Browser::evaluate(const std::string& expression) {
  const QJsonObject answer =
      call("Runtime.evaluate",
           {{"expression", QString::fromStdString(expression)}, {"returnByValue", true}});
  return answer["result"].toObject()["value"].toVariant().toString().toStdString();
}

bool Browser::becomesTrue(const std::string& expression) {
  return eventually([&] { return evaluate(expression) == "true"; }, kLongTimeout);
}

std::string Browser::screenshot() {
  const QJsonObject answer = call("Page.captureScreenshot", {{"format", "png"}});
  return QByteArray::fromBase64(answer["data"].toString().toLatin1()).toStdString();
}

void Browser::kill() {
  m_child->stop(SIGKILL);
}

QJsonObject Browser::call(const char* method, const QJsonObject& parameters) {
  QJsonObject request{{"id", ++m_calls}, {"method", method}, {"params", parameters}};
  if (!m_session.isEmpty()) request["sessionId"] = m_session;
  const QByteArray text = QJsonDocument(request).toJson(QJsonDocument::Compact) + '\0';
  if (write(m_commands.get(), text.data(), static_cast<std::size_t>(text.size())) != text.size()) {
    m_problem = "the browser takes no commands";
    return {};
  }
  while (const auto message = receive()) {
    if ((*message)["id"].toInt() == m_calls) return (*message)["result"].toObject();
  }
  m_problem = std::string(method) + ": no answer: " + m_child->output();
  return {};
}

std::optional<QJsonObject> Browser::receive() {
  std::size_t end = 0;
  while ((end = m_received.find('\0')) == std::string::npos) {
    pollfd entry{m_answers.get(), POLLIN, 0};
    std::array<char, 65536> piece;
    if (poll(&entry, 1, static_cast<int>(kLongTimeout.count())) <= 0) return {};
    const ssize_t got = read(m_answers.get(), piece.data(), piece.size());
    if (got <= 0) return {};
    m_received.append(piece.data(), static_cast<std::size_t>(got));
  }
  const QByteArray text = QByteArray::fromStdString(m_received.substr(0, end));
  m_received.erase(0, end + 1);
  return QJsonDocument::fromJson(text).object();
}

}  // namespace lumsar::test
