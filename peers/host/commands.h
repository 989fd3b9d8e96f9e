// Commands: the host's commands in words, such as "share 0", as JSON commands to the plug-in, and
// the memory of what is shared so that it can be shared again after a recovery.
// Thread-safe towards the main loop; commands run on the worker, one after another.
#ifndef LUMSAR_HOST_COMMANDS_H
#define LUMSAR_HOST_COMMANDS_H

#include <QJsonArray>
#include <QJsonObject>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "lumsar/plugin.h"
#include "report.h"

namespace lumsar::host {

class Commands {
 public:
  struct Result {
    std::string command;
    int status;
    std::string answer;  // what the service or the host said, if anything
  };

  // `status` makes the text of the "status" command; `shareAll` shares all cameras with a session.
  // Both are called on the worker.
  Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
           std::function<int(int)> shareAll);

  // Carries out one line and reports it. False when the line asks to quit.
  bool run(const std::string& line);
  // Shares again what was shared before a recovery.
  void shareAgain();
  // Whether the camera service answers; quiet.
  bool serviceAnswers();

  std::vector<Result> results() const;
  static std::string help();

 private:
  using Words = std::vector<std::string>;

  Result carryOut(const std::string& line, const Words& words);
  Result share(const Words& words);
  Result shareTcp(const Words& words);
  Result unshare(const Words& words);
  Result unshareAll();
  Result policy(const Words& words);
  Result shareAllSession(const Words& words);
  int control(const QJsonObject& command);
  int list(QJsonArray& cameras, std::string& text);
  std::string deviceId(const std::string& word);
  std::string describeList(const QJsonArray& cameras) const;
  void remember(const std::string& id, const QJsonObject& command);

  const Plugin& m_plugin;
  Report& m_report;
  std::function<std::string()> m_status;
  std::function<int(int)> m_shareAll;
  std::filesystem::path m_directory;  // where relative file names begin
  std::map<std::string, QJsonObject> m_shared;
  mutable std::mutex m_mutex;  // guards the results, which the main loop reads at the end
  std::vector<Result> m_results;
};

}  // namespace lumsar::host

#endif
