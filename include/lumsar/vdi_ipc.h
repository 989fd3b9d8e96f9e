// The IPC client library `libvdi_ipc.so`, as the plug-in sees it: the types of its eight
// functions, of the four callbacks that it calls, and the record that hands the callbacks over.
// For those who implement such a library and for those who test one.
//
// The functions are found by their plain names, so they are defined extern "C" and exported:
//
//   extern "C" __attribute__((visibility("default")))
//   void* VDI_CreateIpcClient(lumsar::IpcClientParams* params);
#pragma once

#include <cstddef>

namespace lumsar {

// Callbacks, called on threads of the IPC library, each with the record's `userData` last.
// `data` is one complete message, header first, in a buffer that the library owns; the receiver may
// write into it during the call. The results are the receiver's status codes; nothing depends on
// them. `connectId` tells one connection of the process from another; any number will do, the
// plug-in only logs it.
//   onConnect  the client is connected. The plug-in only logs it: a library need not call it.
//   onSend     a message has been handed to the system, once for each. The plug-in does nothing
//              then: a library need not call it.
//   onReceive  a message of the service that is no reply to a call.
//   onClose    the connection was lost, or never made in the background; `error` says why. Called
//              once, and not for a VDI_DisconnectIpcClient, after which no callback begins: the
//              plug-in takes it for a lost service.
using IpcOnConnect = int (*)(int connectId, void* userData);
using IpcOnSend = int (*)(int connectId, void* userData);
using IpcOnReceive = int (*)(int connectId, unsigned char* data, int length, void* userData);
using IpcOnClose = int (*)(int connectId, int error, void* userData);

inline constexpr std::size_t kClientNameSize = 32;

// What VDI_CreateIpcClient receives. It stays valid for as long as the client exists.
struct IpcClientParams {
  IpcOnConnect onConnect = nullptr;
  IpcOnSend onSend = nullptr;
  IpcOnReceive onReceive = nullptr;
  IpcOnClose onClose = nullptr;
  void* userData = nullptr;
  char clientName[kClientNameSize] = {};  // UTF-8; a name of 31 bytes or more may end without NUL
};
static_assert(sizeof(void*) == 8, "the record's layout is that of x86-64");
static_assert(offsetof(IpcClientParams, onConnect) == 0);
static_assert(offsetof(IpcClientParams, onSend) == 8);
static_assert(offsetof(IpcClientParams, onReceive) == 16);
static_assert(offsetof(IpcClientParams, onClose) == 24);
static_assert(offsetof(IpcClientParams, userData) == 32);
static_assert(offsetof(IpcClientParams, clientName) == 40);
static_assert(sizeof(IpcClientParams) == 72);

// The one error code of VDI_IpcClientSyncCall that the plug-in interprets: the reply did not fit.
inline constexpr int kIpcReplyTooLarge = 8;

// The library's functions, by symbol. Those that return int return 0 or an error code.
using VDI_CreateIpcClient_t = void*(IpcClientParams* params);  // null on failure
// Disconnects, and waits for a callback that is running.
using VDI_DestroyIpcClient_t = void(void* client);
// Returns when connected. The same client connects again after a loss.
using VDI_ConnectIpcClient_t = int(void* client, const char* ipcName);
// Returns at once; onConnect or onClose tells the outcome.
using VDI_AsyncConnectIpcClient_t = int(void* client, const char* ipcName);
// Calls no onClose and does not wait for a callback that is running.
using VDI_DisconnectIpcClient_t = int(void* client);
using VDI_IsIpcClientConnected_t = bool(void* client);
using VDI_IpcClientSendData_t = int(void* client, const unsigned char* data, int length);
// `*replyLength` is the capacity of `reply` on entry and the size of the reply on return, also
// after kIpcReplyTooLarge.
using VDI_IpcClientSyncCall_t = int(void* client, const unsigned char* request,
                                    unsigned int requestLength, unsigned char* reply,
                                    unsigned int* replyLength);

}  // namespace lumsar
