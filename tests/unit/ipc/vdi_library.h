// VdiLibrary: libvdi_ipc.so, loaded and bound by name as the plug-in does it. Test's main thread.
#pragma once

#include <dlfcn.h>

#include <stdexcept>

#include "lumsar/vdi_ipc.h"

namespace lumsar::test {

class VdiLibrary {
 public:
  VdiLibrary() : m_handle(::dlopen(VDI_IPC_LIBRARY, RTLD_LAZY)) {
    if (m_handle == nullptr) throw std::runtime_error(::dlerror());
    bind("VDI_CreateIpcClient", create);
    bind("VDI_DestroyIpcClient", destroy);
    bind("VDI_ConnectIpcClient", connect);
    bind("VDI_AsyncConnectIpcClient", asyncConnect);
    bind("VDI_DisconnectIpcClient", disconnect);
    bind("VDI_IsIpcClientConnected", isConnected);
    bind("VDI_IpcClientSendData", send);
    bind("VDI_IpcClientSyncCall", call);
  }
  ~VdiLibrary() { ::dlclose(m_handle); }
  VdiLibrary(const VdiLibrary&) = delete;
  VdiLibrary& operator=(const VdiLibrary&) = delete;

  VDI_CreateIpcClient_t* create = nullptr;
  VDI_DestroyIpcClient_t* destroy = nullptr;
  VDI_ConnectIpcClient_t* connect = nullptr;
  VDI_AsyncConnectIpcClient_t* asyncConnect = nullptr;
  VDI_DisconnectIpcClient_t* disconnect = nullptr;
  VDI_IsIpcClientConnected_t* isConnected = nullptr;
  VDI_IpcClientSendData_t* send = nullptr;
  VDI_IpcClientSyncCall_t* call = nullptr;

 private:
  template <class Function>
  void bind(const char* symbol, Function*& function) {
    function = reinterpret_cast<Function*>(::dlsym(m_handle, symbol));
    if (function == nullptr) throw std::runtime_error(symbol);
  }

  void* m_handle;
};

}  // namespace lumsar::test
