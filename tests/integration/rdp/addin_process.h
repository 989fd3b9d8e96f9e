// AddInProcess: a plain_client, which connects when it is made. The RDP library makes what it
// shares between connections when it is first used, without a lock: a client and a server that
// begin at the same time in one process break each other.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "integration/rdp/addin_client.h"
#include "support/process.h"

namespace lumsar::test {

class AddInProcess {
 public:
  AddInProcess(const std::string& server, const std::string& state, const Process::Words& words)
      : m_process(command(server, state, words), {.input = true}), m_connected(awaitConnection()) {}
  ~AddInProcess() {
    m_process.write("quit\n");
    EXPECT_EQ(m_process.wait(), 0) << output();
  }
  AddInProcess(const AddInProcess&) = delete;
  AddInProcess& operator=(const AddInProcess&) = delete;

  bool connected() const { return m_connected; }
  const std::string& output() { return m_process.output(); }

  // Waits until the server has ended the connection, and makes a new one.
  bool connectAgain() {
    m_process.write("again\n");
    return m_connected = awaitConnection();
  }

 private:
  static Process::Words command(const std::string& server, const std::string& state,
                                const Process::Words& words) {
    Process::Words command{LUMSAR_PLAIN_CLIENT, server, state};
    command.insert(command.end(), words.begin(), words.end());
    return command;
  }
  bool awaitConnection() { return m_process.expect("client: connected\n"); }

  Process m_process;
  bool m_connected;
};

}  // namespace lumsar::test
