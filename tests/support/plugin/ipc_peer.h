// IpcPeer: the body of the IPC library for tests. It answers the plug-in's eight calls as a test
// scripts them, records each call whole, and calls the plug-in's four callbacks.
// Called by the plug-in on any thread; scripted and read by the test on its own.
// One per process, for there is one plug-in per process.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "lumsar/vdi_ipc.h"
#include "support/plugin/log_record.h"
#include "support/plugin/wire.h"

namespace lumsar::test {

struct IpcCall {
  std::string text;               // as IpcPeer::take returns it
  const void* address = nullptr;  // of the parameter record, the data or the request
  const void* reply = nullptr;
  std::thread::id thread;
  std::chrono::steady_clock::time_point time;
};

class IpcPeer {
 public:
  static IpcPeer& instance();

  // The script. A connect or disconnect that succeeds changes `connected`.
  bool makesClient = true;
  std::atomic<bool> connected = false;
  bool connectEstablishes = true;
  int connectResult = 0;
  int asyncConnectResult = 0;
  int disconnectResult = 0;
  std::deque<int> sendResults;  // one for each send; 0 when empty
  int syncResult = 0;
  Bytes syncReply;                            // what the service answers
  std::optional<unsigned int> syncReplySize;  // reported size; that of syncReply when not set
  std::function<void()> onEntry;              // runs first inside each send
  std::function<void()> duringSend;           // runs inside each send
  std::function<void()> duringDisconnect;     // runs inside each disconnect
  std::function<void(const std::string&)> duringCall;  // runs inside each call, with its text

  // The calls since the last take: "Create <name>", "Destroy", "Connect <channel>",
  // "AsyncConnect <channel>", "Disconnect", "IsConnected", "SendData <bytes>",
  // "SyncCall <bytes> capacity <n>"; a call with another client than the live one ends in "?".
  Lines take();
  std::vector<IpcCall> takeCalls();

  // What the last Create was given: the record itself and a copy made at that moment.
  IpcClientParams* params = nullptr;
  IpcClientParams paramsCopy;

  // The callbacks, each on a thread of its own that has ended when the call returns. `receive`
  // hands over the message itself, which the plug-in may change.
  int receive(Bytes& message) const;
  int receive(Bytes&& message) const { return receive(message); }
  int receive(unsigned char* data, int length) const;
  int receiveHere(Bytes& message) const;
  int receiveHere(unsigned char* data, int length) const;
  int connectedCallback(int connectId) const;
  int sentCallback(int connectId) const;
  int closedCallback(int connectId, int error) const;

 private:
  IpcPeer();

  static void* create(IpcClientParams* params);
  static void destroy(void* client);
  static int connect(void* client, const char* ipcName);
  static int asyncConnect(void* client, const char* ipcName);
  static int disconnect(void* client);
  static bool isConnected(void* client);
  static int sendData(void* client, const unsigned char* data, int length);
  static int syncCall(void* client, const unsigned char* request, unsigned int requestLength,
                      unsigned char* reply, unsigned int* replyLength);

  void record(const void* client, std::string text, const void* address = nullptr,
              const void* reply = nullptr);

  std::mutex m_mutex;
  std::vector<IpcCall> m_calls;
  std::uintptr_t m_clientsMade = 0;
  void* m_client = nullptr;
};

// How a send of one message appears in IpcPeer::take.
std::string sendOf(std::uint32_t type, std::string_view payload = {});
std::string sendOf(std::uint32_t type, const Bytes& payload);
// How the camera list request appears there.
std::string listRequest(unsigned int capacity);

}  // namespace lumsar::test
