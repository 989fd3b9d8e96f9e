// Guest: a virtual machine under plain emulation, and a shell inside it over a virtio port of its
// own. Bound to the test's thread.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "support/process.h"
#include "support/raw_peer.h"

namespace lumsar::test {

using Path = std::filesystem::path;

struct GuestSetup {
  Path kernel;
  Path initramfs;
  int megabytes = 256;
  int spicePort = 0;  // on the loopback interface, in place of a Unix socket
  int tlsPort = 0;    // beside it, with what is in `certificates`
  Path certificates = {};
  std::string ticket = {};  // none if empty
  bool display = false;     // a picture for viewers
  bool programs = false;    // this machine's, to be run with chroot /programs
  bool network = false;     // reaches this machine's loopback interface as 10.0.2.2

  // The guest whose parts run-vm-test has exported.
  static GuestSetup desktop();
  static GuestSetup user();
};

// A TCP port of the loopback interface that nobody uses now.
int freePort();

// Short, for the names of sockets: the directory that run-vm-test has made.
Path testDirectory();

class Guest {
 public:
  // `directory` takes its sockets and logs, named after `name`.
  Guest(std::string name, Path directory, GuestSetup setup);
  ~Guest();

  // Boots and waits for the shell. False, with the console on stderr, when it does not come.
  bool boot();
  // Waits for the shell after the guest has rebooted by itself.
  bool awaitShell();
  // As if the power failed.
  void pullThePlug();
  bool running() { return m_qemu && m_qemu->running(); }

  struct Result {
    int status = -1;  // -1: no answer in time
    std::string output;
  };
  // Runs a shell command. The guest has but one shell: nothing else happens in it at that time.
  Result run(const std::string& command, milliseconds time = kTimeout);
  // Starts a command that goes on, with its output in the guest's file /tmp/NAME.log.
  void start(const std::string& name, const std::string& command);
  // Waits until the guest's file /tmp/NAME.log holds `text`.
  bool expectIn(const std::string& name, const std::string& text, milliseconds time = kTimeout);
  // Sends a command that gets no answer, such as "reboot -f".
  void order(const std::string& command);

  // For a SPICE client.
  std::string address() const { return "spice+unix://" + m_spiceSocket.string(); }
  const Path& spiceSocket() const { return m_spiceSocket; }
  Process& qemu() { return *m_qemu; }

 private:
  std::vector<std::string> command() const;
  std::string spiceOptions() const;
  bool connectShell();

  std::string m_name;
  Path m_directory;
  GuestSetup m_setup;
  Path m_spiceSocket;
  Path m_shellSocket;
  std::unique_ptr<Process> m_qemu;
  RawPeer m_shell;
  int m_commands = 0;
};

}  // namespace lumsar::test
