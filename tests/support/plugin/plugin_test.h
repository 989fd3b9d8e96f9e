// PluginTest: a host around the built plug-in. It loads the nine exports, keeps the records of log,
// IPC library and host, and starts sessions of both kinds.
// Each test needs a process of its own, for the plug-in has one object per process; ctest gives it.
// A test must name everything: whatever log line, IPC call or send it leaves untaken fails it,
// unless its fixture is Loose.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "lumsar/plugin.h"
#include "support/plugin/expected_lines.h"
#include "support/plugin/host_record.h"
#include "support/plugin/ipc_peer.h"
#include "support/plugin/log_record.h"
#include "support/plugin/wire.h"

namespace lumsar::test {

// The plug-in that this test program loads.
extern const char* const kPluginFile;
// A configuration that leads to the IPC library for tests, and what it leads to.
extern const std::string kConfig;
extern const std::string kIpcName;
std::string applicationDir();
std::string libraryDir();
// A configuration whose library directory is `directory` below the test program's.
std::string configFor(const std::string& directory);
// Whether the IPC library in `directory` is in the process now.
bool isLibraryLoaded(const std::string& directory);

// The plug-in before its first use.
class FreshPluginTest : public testing::Test {
 protected:
  FreshPluginTest();
  void SetUp() override;
  void TearDown() override;
  virtual void expectNothingUntaken();

  int spiceInit(const std::string& config = kConfig, const std::string& vmId = "vm-7") const;
  int rdpInit(const char* vmId = "vm-7") const;
  // As above; must succeed, and leaves empty records.
  void startSpice(const std::string& config = kConfig, const std::string& vmId = "vm-7");
  void startRdp(const char* vmId = "vm-7");
  void forget();

  int ctrl(const std::string& command) const;
  void handle(Bytes bytes) const;
  // A SPICE or an RDP session whose HELLO has gone out; returns the HELLO's token.
  unsigned int openSpiceChannel();
  unsigned int openRdpChannel();

  LogRecord& log = LogRecord::instance();
  IpcPeer& ipc = IpcPeer::instance();
  HostRecord& host = HostRecord::instance();
  Plugin plugin;
};

// The plug-in with its object made, so that no test meets the constructor's line by the way.
class PluginTest : public FreshPluginTest {
 protected:
  void SetUp() override;
};

// For tests that compare only what they are about: what such a test leaves untaken, or what a
// detached event thread logs after it, does not fail it.
template <class Fixture>
class Loose : public Fixture {
 protected:
  void expectNothingUntaken() override {}
};
using LooseFreshPluginTest = Loose<FreshPluginTest>;

// For tests that begin with a host of one kind being served.
template <class Fixture>
class OverSpice : public Fixture {
 protected:
  void SetUp() override {
    Fixture::SetUp();
    this->startSpice();
  }
};
template <class Fixture>
class OverRdp : public Fixture {
 protected:
  void SetUp() override {
    Fixture::SetUp();
    this->startRdp();
  }
};

}  // namespace lumsar::test
