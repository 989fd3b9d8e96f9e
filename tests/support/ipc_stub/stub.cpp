// libvdi_ipc.so for tests: eight functions that forward to the test program's table (stub.h).
// Loaded by the plug-in; called on whatever thread the plug-in calls it on.
// Built once whole and once without each symbol (-DWITHOUT_<symbol>).
#include "support/ipc_stub/stub.h"

#include <cstdlib>

using lumsar::IpcClientParams;

#define LUMSAR_STUB_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

[[maybe_unused]] const lumsar::test::IpcTable& table() {
  const char* address = std::getenv(lumsar::test::kIpcTableVariable);
  if (address == nullptr) std::abort();
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the address of a table in the same process
  return *reinterpret_cast<const lumsar::test::IpcTable*>(std::strtoull(address, nullptr, 16));
}

}  // namespace

#ifndef WITHOUT_VDI_CreateIpcClient
LUMSAR_STUB_EXPORT void* VDI_CreateIpcClient(IpcClientParams* params) {
  return table().create(params);
}
#endif

#ifndef WITHOUT_VDI_DestroyIpcClient
LUMSAR_STUB_EXPORT void VDI_DestroyIpcClient(void* client) {
  table().destroy(client);
}
#endif

#ifndef WITHOUT_VDI_ConnectIpcClient
LUMSAR_STUB_EXPORT int VDI_ConnectIpcClient(void* client, const char* ipcName) {
  return table().connect(client, ipcName);
}
#endif

#ifndef WITHOUT_VDI_AsyncConnectIpcClient
LUMSAR_STUB_EXPORT int VDI_AsyncConnectIpcClient(void* client, const char* ipcName) {
  return table().asyncConnect(client, ipcName);
}
#endif

#ifndef WITHOUT_VDI_DisconnectIpcClient
LUMSAR_STUB_EXPORT int VDI_DisconnectIpcClient(void* client) {
  return table().disconnect(client);
}
#endif

#ifndef WITHOUT_VDI_IsIpcClientConnected
LUMSAR_STUB_EXPORT bool VDI_IsIpcClientConnected(void* client) {
  return table().isConnected(client);
}
#endif

#ifndef WITHOUT_VDI_IpcClientSendData
LUMSAR_STUB_EXPORT int VDI_IpcClientSendData(void* client, const unsigned char* data, int length) {
  return table().sendData(client, data, length);
}
#endif

#ifndef WITHOUT_VDI_IpcClientSyncCall
LUMSAR_STUB_EXPORT int VDI_IpcClientSyncCall(void* client, const unsigned char* request,
                                             unsigned int requestLength, unsigned char* reply,
                                             unsigned int* replyLength) {
  return table().syncCall(client, request, requestLength, reply, replyLength);
}
#endif
