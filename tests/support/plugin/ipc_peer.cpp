// Reached through the table of ipc_stub/stub.h, on whatever thread the plug-in calls.
// The callbacks run on a thread of their own, as those of a real library do.
#include "support/plugin/ipc_peer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "support/ipc_stub/stub.h"

namespace lumsar::test {
namespace {

int onOwnThread(const std::function<int()>& callback) {
  int result = 0;
  std::thread([&] { result = callback(); }).join();
  return result;
}

std::string clientName(const IpcClientParams& params) {
  const char* end = std::find(params.clientName, params.clientName + sizeof params.clientName, 0);
  return {params.clientName, end};
}

}  // namespace

IpcPeer& IpcPeer::instance() {
  // Never destroyed: detached event threads may outlive main.
  static IpcPeer& peer = *new IpcPeer;
  return peer;
}

IpcPeer::IpcPeer() {
  static const IpcTable table{.create = &IpcPeer::create,
                              .destroy = &IpcPeer::destroy,
                              .connect = &IpcPeer::connect,
                              .asyncConnect = &IpcPeer::asyncConnect,
                              .disconnect = &IpcPeer::disconnect,
                              .isConnected = &IpcPeer::isConnected,
                              .sendData = &IpcPeer::sendData,
                              .syncCall = &IpcPeer::syncCall};
  std::string digits(20, '\0');
  std::snprintf(digits.data(), digits.size(), "%p", static_cast<const void*>(&table));
  setenv(kIpcTableVariable, digits.c_str(), 1);
}

void IpcPeer::record(const void* client, std::string text, const void* address, const void* reply) {
  if (duringCall) duringCall(text);
  const std::lock_guard lock(m_mutex);
  if (client != m_client || client == nullptr) text += "?";
  m_calls.push_back({std::move(text), address, reply, std::this_thread::get_id(),
                     std::chrono::steady_clock::now()});
}

std::vector<IpcCall> IpcPeer::takeCalls() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_calls, {});
}

Lines IpcPeer::take() {
  Lines lines;
  for (IpcCall& call : takeCalls()) lines.push_back(std::move(call.text));
  return lines;
}

void* IpcPeer::create(IpcClientParams* params) {
  IpcPeer& peer = instance();
  peer.params = params;
  peer.paramsCopy = *params;
  // A handle is opaque: any two differ, none can be followed.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  peer.m_client = reinterpret_cast<void*>(++peer.m_clientsMade << 4U);
  peer.record(peer.m_client, "Create " + clientName(*params), params);
  if (!peer.makesClient) peer.m_client = nullptr;
  return peer.m_client;
}

void IpcPeer::destroy(void* client) {
  instance().record(client, "Destroy");
  instance().m_client = nullptr;
}

int IpcPeer::connect(void* client, const char* ipcName) {
  IpcPeer& peer = instance();
  peer.record(client, std::string("Connect ") + ipcName);
  if (peer.connectResult == 0 && peer.connectEstablishes) peer.connected = true;
  return peer.connectResult;
}

int IpcPeer::asyncConnect(void* client, const char* ipcName) {
  instance().record(client, std::string("AsyncConnect ") + ipcName);
  return instance().asyncConnectResult;
}

int IpcPeer::disconnect(void* client) {
  IpcPeer& peer = instance();
  peer.record(client, "Disconnect");
  if (peer.duringDisconnect) peer.duringDisconnect();
  if (peer.disconnectResult == 0) peer.connected = false;
  return peer.disconnectResult;
}

bool IpcPeer::isConnected(void* client) {
  instance().record(client, "IsConnected");
  return instance().connected;
}

int IpcPeer::sendData(void* client, const unsigned char* data, int length) {
  IpcPeer& peer = instance();
  if (peer.onEntry) peer.onEntry();
  peer.record(client, "SendData " + show({data, data + length}), data);
  if (peer.duringSend) peer.duringSend();
  if (peer.sendResults.empty()) return 0;
  const int result = peer.sendResults.front();
  peer.sendResults.pop_front();
  return result;
}

int IpcPeer::syncCall(void* client, const unsigned char* request, unsigned int requestLength,
                      unsigned char* reply, unsigned int* replyLength) {
  IpcPeer& peer = instance();
  peer.record(client,
              "SyncCall " + show({request, request + requestLength}) + " capacity " +
                  std::to_string(*replyLength),
              request, reply);
  if (peer.syncReply.size() <= *replyLength && reply != nullptr) {
    std::ranges::copy(peer.syncReply, reply);
  }
  *replyLength = peer.syncReplySize.value_or(static_cast<unsigned int>(peer.syncReply.size()));
  return peer.syncResult;
}

int IpcPeer::receive(unsigned char* data, int length) const {
  return onOwnThread([&] { return params->onReceive(7, data, length, params->userData); });
}

int IpcPeer::receive(Bytes& message) const {
  return receive(message.data(), static_cast<int>(message.size()));
}

int IpcPeer::receiveHere(Bytes& message) const {
  return receiveHere(message.data(), static_cast<int>(message.size()));
}

int IpcPeer::receiveHere(unsigned char* data, int length) const {
  return params->onReceive(7, data, length, params->userData);
}

int IpcPeer::connectedCallback(int connectId) const {
  return onOwnThread([&] { return params->onConnect(connectId, params->userData); });
}

int IpcPeer::sentCallback(int connectId) const {
  return onOwnThread([&] { return params->onSend(connectId, params->userData); });
}

int IpcPeer::closedCallback(int connectId, int error) const {
  return onOwnThread([&] { return params->onClose(connectId, error, params->userData); });
}

std::string sendOf(std::uint32_t type, std::string_view payload) {
  return sendOf(type, bytesOf(payload));
}

std::string sendOf(std::uint32_t type, const Bytes& payload) {
  return "SendData " + show(message(type, payload));
}

std::string listRequest(unsigned int capacity) {
  return "SyncCall " + show(message(1)) + " capacity " + std::to_string(capacity);
}

}  // namespace lumsar::test
