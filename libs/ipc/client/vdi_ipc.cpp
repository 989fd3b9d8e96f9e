// The eight functions of libvdi_ipc.so, bound by name and called on any thread. No exception leaves
// them; what they return is in lumsar/ipc_transport.h.
#include "lumsar/vdi_ipc.h"

#include <memory>

#include "ipc/client/client.h"
#include "lumsar/ipc_transport.h"

#define LUMSAR_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using lumsar::ipc::IpcClient;

template <class Use>
int withClient(void* client, Use use) noexcept {
  if (client == nullptr) return lumsar::IPC_ERROR_PARAMETER;
  try {
    return use(*static_cast<IpcClient*>(client));
  } catch (...) {
    return lumsar::IPC_ERROR_SYSTEM;
  }
}

}  // namespace

// `params` is read again at each connection and must outlive the client.
LUMSAR_EXPORT void* VDI_CreateIpcClient(lumsar::IpcClientParams* params) {
  if (params == nullptr) return nullptr;
  try {
    return std::make_unique<IpcClient>(params).release();
  } catch (...) {
    return nullptr;
  }
}

// Waits for a callback that is running, unless called by that callback: then its thread ends by
// itself and the library stays loaded for good.
LUMSAR_EXPORT void VDI_DestroyIpcClient(void* client) {
  const std::unique_ptr<IpcClient> owned(static_cast<IpcClient*>(client));
}

// Returns when the service has accepted the client, at the latest after kIpcConnectTimeout.
// onConnect follows on the library's thread.
LUMSAR_EXPORT int VDI_ConnectIpcClient(void* client, const char* ipcName) {
  return withClient(client, [=](IpcClient& c) { return c.connect(ipcName); });
}

// Returns at once. onConnect follows, or onClose with the error.
LUMSAR_EXPORT int VDI_AsyncConnectIpcClient(void* client, const char* ipcName) {
  return withClient(client, [=](IpcClient& c) { return c.connectInBackground(ipcName); });
}

// After this no callback begins, not even onClose. Does not wait for one that is running; one that
// was about to begin has 20 ms to do so. Whoever frees what callbacks use destroys the client
// first, which waits.
LUMSAR_EXPORT int VDI_DisconnectIpcClient(void* client) {
  return withClient(client, [](IpcClient& c) { return c.disconnect(); });
}

LUMSAR_EXPORT bool VDI_IsIpcClientConnected(void* client) {
  return withClient(client, [](IpcClient& c) { return c.connected() ? 1 : 0; }) == 1;
}

// Returns when the system has taken the message, at the latest after kIpcSendTimeout. onSend
// follows on the library's thread.
LUMSAR_EXPORT int VDI_IpcClientSendData(void* client, const unsigned char* data, int length) {
  if (data == nullptr || length <= 0) return lumsar::IPC_ERROR_PARAMETER;
  return withClient(client, [=](IpcClient& c) {
    return c.send({data, static_cast<std::size_t>(length)});
  });
}

// Waits for the reply, at most kIpcCallTimeout. A reply that does not fit leaves `reply` untouched
// and its size in `*replyLength`. Refused inside a callback of the same client.
LUMSAR_EXPORT int VDI_IpcClientSyncCall(void* client, const unsigned char* request,
                                        unsigned int requestLength, unsigned char* reply,
                                        unsigned int* replyLength) {
  if (request == nullptr || replyLength == nullptr) return lumsar::IPC_ERROR_PARAMETER;
  return withClient(client, [=](IpcClient& c) {
    return c.call({request, requestLength}, reply, replyLength);
  });
}

namespace {

// The symbols are bound by name, so only this compares them with what the plug-in calls.
[[maybe_unused]] constexpr lumsar::VDI_CreateIpcClient_t* kCreate = &VDI_CreateIpcClient;
[[maybe_unused]] constexpr lumsar::VDI_DestroyIpcClient_t* kDestroy = &VDI_DestroyIpcClient;
[[maybe_unused]] constexpr lumsar::VDI_ConnectIpcClient_t* kConnect = &VDI_ConnectIpcClient;
[[maybe_unused]] constexpr lumsar::VDI_AsyncConnectIpcClient_t* kAsync = &VDI_AsyncConnectIpcClient;
[[maybe_unused]] constexpr lumsar::VDI_DisconnectIpcClient_t* kLeave = &VDI_DisconnectIpcClient;
[[maybe_unused]] constexpr lumsar::VDI_IsIpcClientConnected_t* kAsk = &VDI_IsIpcClientConnected;
[[maybe_unused]] constexpr lumsar::VDI_IpcClientSendData_t* kSend = &VDI_IpcClientSendData;
[[maybe_unused]] constexpr lumsar::VDI_IpcClientSyncCall_t* kCall = &VDI_IpcClientSyncCall;

}  // namespace
