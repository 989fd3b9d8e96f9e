// Commands: the host's commands in words, such as "share 0", as JSON commands to the plug-in, and
// remembers what the user asked for, so that it can be repeated after a recovery.
// Bound to the thread that calls the plug-in, except for results() and anyFailed().
#pragma once

#include <QJsonObject>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lumsar/plugin.h"
#include "session/camera_list.h"
#include "session/report.h"

namespace lumsar::host {

class Commands {
  using Words = std::vector<std::string>;

 public:
  struct Result {
    std::string command;
    int status;          // the plug-in's or kStatusRefused
    std::string answer;  // what the service or the host said, if anything
  };

  // `status` makes the text of the "status" command. Only with `keepsResults` are there results.
  Commands(const Plugin& plugin, Report& report, std::function<std::string()> status,
           bool keepsResults);

  // How often to check a new direct connection.
  static constexpr std::chrono::milliseconds kCheckInterval{100};

  // Carries out one line and reports it, but for a new direct connection: before the next line, it
  // is checked until isConnecting() is false, and reported then. False when the line asks to quit.
  bool run(const std::string& line);
  bool isConnecting() const { return m_connecting.has_value(); }
  void checkConnection();
  // The same for a program with a window: nothing is reported. An id may be any text.
  Result share(const std::string& id) { return share(Words{"share", id}); }
  Result unshare(const std::string& id) { return unshare(Words{"unshare", id}); }
  // None when the service cannot be asked.
  std::optional<CameraList> cameras();
  // Repeats policy and shares, which the camera service forgets with its connection. When the VM
  // `sharesAll` with each handshake, what the user has unshared is unshared again.
  void shareAgain(bool sharesAll);
  // Whether the camera service answers; quiet.
  bool serviceAnswers();

  std::vector<Result> results() const;
  bool anyFailed() const;
  static std::string help();

 private:
  struct Share {
    std::string name;  // the camera's
    QJsonObject command;
  };
  struct Connecting {
    std::string line;       // the command
    std::string camera;     // as in m_shared
    std::string reference;  // as in the command
    Share previous;         // of the same camera, if its command is not empty
    int checks = 0;
  };

  Result carryOut(const Words& words);
  Result share(const Words& words);
  Result shareTcp(const Words& words);
  Result unshare(const Words& words);
  Result unshareAll();
  Result policy(const Words& words);
  Result shareAllSession(const Words& words);
  Result shareCamera(const std::string& word, QJsonObject command);
  void finish(Result result);
  int control(const QJsonObject& command);
  Result verdict(const std::string& reference, bool connects = false);
  ListReply list();
  void remember(const ListedControl& control);
  void forgetShare(const std::string& id, const std::optional<ListedCamera>& camera);
  void forgetShares();
  std::optional<ListedCamera> findCamera(const std::string& word) const;
  std::string mistyped(const std::string& word) const;
  bool isAwaited(const std::string& id) const;
  void unshareAgain();
  void shareEachAgain();
  void repeat(const char* what, const std::string& id, int status, const char* more = "");

  const Plugin& m_plugin;
  Report& m_report;
  std::function<std::string()> m_status;
  std::filesystem::path m_directory;      // where relative file names begin
  CameraList m_list;                      // the latest
  std::map<std::string, Share> m_shared;  // by the camera's id, if it has been listed
  std::optional<QJsonObject> m_policy;
  std::optional<int> m_shareAllSession;
  bool m_unsharedAll = false;        // after which only m_shared is to be shared
  std::set<std::string> m_unshared;  // ids that are not to be shared with all others
  std::optional<Connecting> m_connecting;
  bool m_keepsResults;
  mutable std::mutex m_mutex;  // guards what follows
  bool m_anyFailed = false;
  std::vector<Result> m_results;
};

}  // namespace lumsar::host
