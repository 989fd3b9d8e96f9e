// A browser without a screen that shows one page, steered over its debugging pipe.
// Used by the tests of lumsar-agent.
#pragma once

#include <QJsonObject>
#include <optional>
#include <string>

#include "base/system/fd.h"
#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

class Browser {
 public:
  // Whether one is installed.
  static bool installed();

  struct Setup {
    Process::Words arguments = {};
    std::map<std::string, std::string> environment = {};
  };

  // Opens the page; `problem()` is empty when that went well.
  explicit Browser(const std::string& page, const Setup& setup);
  explicit Browser(const std::string& page) : Browser(page, Setup()) {}

  // The value of an expression in the page; empty when it has none or the browser does not answer.
  std::string evaluate(const std::string& expression);
  // True as soon as the expression is.
  bool becomesTrue(const std::string& expression);
  // What the page looks like, as PNG.
  std::string screenshot();
  // Ends the browser in the hardest way.
  void kill();

  const std::string& problem() const { return m_problem; }

 private:
  void start(const Setup& setup);
  QJsonObject call(const char* method, const QJsonObject& parameters);
  std::optional<QJsonObject> receive();

  TemporaryDirectory m_folder;
  base::UniqueFd m_commands;
  base::UniqueFd m_answers;
  std::optional<Process> m_child;
  std::string m_received;
  std::string m_problem;
  QString m_session;
  int m_calls = 0;
};

}  // namespace lumsar::test
