// An IPC library that passes everything on to the real one ($LUMSAR_REAL_IPC) and writes down each
// frame that the service sends, one line with number, size and hash, in $LUMSAR_IPC_RECORD.
// Loaded by the plug-in in place of the real one; the callbacks come on the real one's threads.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "lumsar/camera_data.h"
#include "lumsar/message.h"
#include "lumsar/vdi_ipc.h"
#include "support/messages.h"

#define LUMSAR_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using namespace lumsar;

template <class Function>
Function* real(const char* symbol) {
  static void* const library = dlopen(std::getenv("LUMSAR_REAL_IPC"), RTLD_NOW | RTLD_LOCAL);
  void* const address = library != nullptr ? dlsym(library, symbol) : nullptr;
  if (address == nullptr) {
    std::fprintf(stderr, "recorder: %s\n", dlerror());
    std::abort();
  }
  return reinterpret_cast<Function*>(address);
}

void record(std::span<const unsigned char> message) {
  static std::FILE* const file = std::fopen(std::getenv("LUMSAR_IPC_RECORD"), "a");
  if (message.size() < kHeaderSize || readHeader(message.data()).type != IPC_MSG_DATA) return;
  auto rest = message.subspan(kHeaderSize);
  const auto header = take<CameraDataHeader>(rest);
  if (!header || header->kind != static_cast<std::uint16_t>(CameraDataKind::Frame)) return;
  const auto frame = take<CameraFrame>(rest);
  if (!frame || file == nullptr) return;
  std::fprintf(file, "picture %u %zu %016llx\n", frame->sequence, rest.size(), test::hash(rest));
  std::fflush(file);
}

struct Client {
  IpcClientParams theirs;
  IpcClientParams ours;
  void* client = nullptr;
};

Client& of(void* data) {
  return *static_cast<Client*>(data);
}

int onConnect(int id, void* data) {
  return of(data).theirs.onConnect(id, of(data).theirs.userData);
}
int onSend(int id, void* data) {
  return of(data).theirs.onSend(id, of(data).theirs.userData);
}
int onReceive(int id, unsigned char* bytes, int length, void* data) {
  record({bytes, static_cast<std::size_t>(length)});
  return of(data).theirs.onReceive(id, bytes, length, of(data).theirs.userData);
}
int onClose(int id, int error, void* data) {
  return of(data).theirs.onClose(id, error, of(data).theirs.userData);
}

}  // namespace

LUMSAR_EXPORT void* VDI_CreateIpcClient(IpcClientParams* params) {
  auto wrapped = std::make_unique<Client>(Client{*params, *params});
  wrapped->ours.onConnect = onConnect;
  wrapped->ours.onSend = onSend;
  wrapped->ours.onReceive = onReceive;
  wrapped->ours.onClose = onClose;
  wrapped->ours.userData = wrapped.get();
  wrapped->client = real<VDI_CreateIpcClient_t>("VDI_CreateIpcClient")(&wrapped->ours);
  return wrapped->client != nullptr ? wrapped.release() : nullptr;
}

LUMSAR_EXPORT void VDI_DestroyIpcClient(void* client) {
  real<VDI_DestroyIpcClient_t>("VDI_DestroyIpcClient")(of(client).client);
  delete &of(client);
}

LUMSAR_EXPORT int VDI_ConnectIpcClient(void* client, const char* name) {
  return real<VDI_ConnectIpcClient_t>("VDI_ConnectIpcClient")(of(client).client, name);
}

LUMSAR_EXPORT int VDI_AsyncConnectIpcClient(void* client, const char* name) {
  return real<VDI_AsyncConnectIpcClient_t>("VDI_AsyncConnectIpcClient")(of(client).client, name);
}

LUMSAR_EXPORT int VDI_DisconnectIpcClient(void* client) {
  return real<VDI_DisconnectIpcClient_t>("VDI_DisconnectIpcClient")(of(client).client);
}

LUMSAR_EXPORT bool VDI_IsIpcClientConnected(void* client) {
  return real<VDI_IsIpcClientConnected_t>("VDI_IsIpcClientConnected")(of(client).client);
}

LUMSAR_EXPORT int VDI_IpcClientSendData(void* client, const unsigned char* data, int length) {
  return real<VDI_IpcClientSendData_t>("VDI_IpcClientSendData")(of(client).client, data, length);
}

LUMSAR_EXPORT int VDI_IpcClientSyncCall(void* client, const unsigned char* request,
                                        unsigned int requestLength, unsigned char* reply,
                                        unsigned int* replyLength) {
  return real<VDI_IpcClientSyncCall_t>("VDI_IpcClientSyncCall")(of(client).client, request,
                                                                requestLength, reply, replyLength);
}
