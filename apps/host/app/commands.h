// Commands: the host's commands in words, such as "share 0", as JSON commands to the plug-in, and
// the memory of what the user asked for, so that it holds after a recovery, too.
// Thread-safe towards the main loop; commands run on the worker, one after another.
#ifndef LUMSAR_HOST_APP_COMMANDS_H
#define LUMSAR_HOST_APP_COMMANDS_H

#include <QJsonObject>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lumsar/plugin.h"
#include "session/report.h"

namespace lumsar::host {

class Commands {
 public:
  struct Result {
    std::string command;
    int status;
    std::string answer;  // what the service or the host said, if anything
  };

  // `status` makes the text of the "status" command; `shareAll` shares all cameras with a session.
  // Both are called on the worker. Only with `keepsResults` are there results.
  Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
           std::function<int(int)> shareAll, bool keepsResults);

  // Carries out one line and reports it. False when the line asks to quit.
  bool run(const std::string& line);
  // Repeats policy and shares, which the camera service forgets with its connection. When the VM
  // `sharesAll` with each greeting, what the user has taken back is taken back again.
  void shareAgain(bool sharesAll);
  // Whether the camera service answers; quiet.
  bool serviceAnswers();

  std::vector<Result> results() const;
  bool anyFailed() const;
  static std::string help();

 private:
  using Words = std::vector<std::string>;
  struct Camera {
    std::string id;
    std::string name;
  };
  struct Share {
    std::string name;  // the camera's
    QJsonObject command;
  };

  Result carryOut(const std::string& line, const Words& words);
  Result share(const Words& words);
  Result shareTcp(const Words& words);
  Result unshare(const Words& words);
  Result unshareAll();
  Result policy(const Words& words);
  Result shareAllSession(const Words& words);
  Result shareCamera(const std::string& word, QJsonObject command);
  int control(const QJsonObject& command);
  int list(std::string& text);
  std::optional<Camera> findCamera(const std::string& word) const;
  std::string describeList() const;
  void takeBackAgain();
  void repeat(const std::string& what, int status);

  const Plugin& m_plugin;
  Report& m_report;
  std::function<std::string()> m_status;
  std::function<int(int)> m_shareAll;
  std::filesystem::path m_directory;      // where relative file names begin
  QJsonObject m_list;                     // the latest that the service gave
  std::map<std::string, Share> m_shared;  // by the camera's id, whatever it was called
  std::optional<QJsonObject> m_policy;
  std::optional<int> m_shareAllSession;
  bool m_unsharedAll = false;         // after which only m_shared is to be shared
  std::set<std::string> m_takenBack;  // ids that are not to be shared with all others
  bool m_keepsResults;
  mutable std::mutex m_mutex;  // guards what follows, which the main loop reads at the end
  bool m_anyFailed = false;
  std::vector<Result> m_results;
};

}  // namespace lumsar::host

#endif
