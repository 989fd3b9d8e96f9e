// What the IPC library for tests and the test program share: a table of eight functions that stands
// for the library's body. The program fills it and publishes its address in the environment; the
// library, which the plug-in loads and unloads as it likes, forwards every call to it.
#pragma once

#include "lumsar/vdi_ipc.h"

namespace lumsar::test {

struct IpcTable {
  lumsar::VDI_CreateIpcClient_t* create = nullptr;
  lumsar::VDI_DestroyIpcClient_t* destroy = nullptr;
  lumsar::VDI_ConnectIpcClient_t* connect = nullptr;
  lumsar::VDI_AsyncConnectIpcClient_t* asyncConnect = nullptr;
  lumsar::VDI_DisconnectIpcClient_t* disconnect = nullptr;
  lumsar::VDI_IsIpcClientConnected_t* isConnected = nullptr;
  lumsar::VDI_IpcClientSendData_t* sendData = nullptr;
  lumsar::VDI_IpcClientSyncCall_t* syncCall = nullptr;
};

// The environment variable that holds the table's address in hexadecimal digits.
inline constexpr const char* kIpcTableVariable = "LUMSAR_TEST_IPC_TABLE";

}  // namespace lumsar::test
