// The plug-in `liblumsar.so.1`, as a host sees it: the types of its nine exported functions and of
// the host's callables, the event values and status codes, and a loader that binds all nine.
//
// A SPICE host uses Init, Event, Handler, Ctrl and DeInit; an RDP host RdpInit, RdpEvent, Handler,
// ShareAll and RdpDeInit. Without Handler the VM's answer to the HELLO never arrives. One process
// serves one host of one kind.
//
//   lumsar::Plugin plugin("liblumsar.so.1");
//   int status = plugin.Init(sendToVm, onEvent, "vm-7", configJson);
//   if (status != lumsar::STATUS_OK) ...
//   plugin.Event(lumsar::CHANNEL_EVENT_OPENED);
//
// Threads: the functions may be called on any thread; commands and teardown wait for each other
// inside the plug-in. The host's callables are called on the caller's thread (a
// HELLO), on threads of the IPC library (camera data, un-redirect all, event 3) and on threads of
// the plug-in (events 1 and 2), possibly at the same time. An exception that a callable throws is
// logged and ends that call only.
#pragma once

#include <dlfcn.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace lumsar {

// Events posted to a SPICE host. An RDP host gives no event function and receives none.
enum RedirEvent : int {
  REDIR_EVENT_READY = 1,          // the VM has answered the HELLO; no data
  REDIR_EVENT_DEVICE_CHANGE = 2,  // the service's cameras changed; data are the service's
  REDIR_EVENT_IPC_CLOSED = 3,     // the connection to the camera service was lost; no data
};

// Channel events that the host gives to Event and RdpEvent.
enum ChannelEvent : int {
  CHANNEL_EVENT_OPENED = 0,
  CHANNEL_EVENT_CLOSED = 1,
};

enum Status : int {
  STATUS_OK = 0,
  STATUS_INIT_FAILED = 1,        // the IPC library could not be bound or created no client
  STATUS_INVALID_PARAMETER = 2,  // also: unknown message type or data channel
  STATUS_INVALID_MAGIC = 5,      // a message does not begin with the magic number
  STATUS_UNKNOWN_COMMAND = 7,    // no "command", or one that is not supported
  STATUS_NOT_JSON = 11,          // the command is not JSON
  STATUS_MISSING_ITEM = 12,      // the command lacks a required item
  STATUS_NO_OBJECT = 14,         // the plug-in's object could not be made
  STATUS_REPLY_TOO_LARGE = 15,   // the service's reply does not fit the buffer
  STATUS_NOT_INITIALIZED = 16,   // no IPC client, or the object is not initialised
  STATUS_ALREADY_INITIALIZED = 17,
  STATUS_NOT_CONNECTED = 30,  // camera service (commands) or VM channel (camera data)
  STATUS_DISCONNECTED = 31,   // disconnect while not connected
  STATUS_ALREADY_CONNECTED = 34,
  STATUS_LIST_CALL_FAILED = 35,  // the call for the camera list failed
  STATUS_LIST_ERROR = 45,        // the service reported an error with its camera list
  // An exception was stopped at the plug-in's boundary: no memory, no thread, a throwing callable.
  STATUS_EXCEPTION = -1,
  // Any other value is an error code of the IPC library or a result of the host's callable, passed
  // through.
};

// Sends the bytes of one message to the VM. The plug-in keeps ownership of `data`, which is valid
// during the call only. The result is returned to the IPC library where it asked for one.
using SpiceSendFunc = std::function<int(unsigned char* data, int length)>;
// Receives an event. `data` is valid during the call only.
using SpicePostEventFunc = std::function<void(RedirEvent event, char* data, int length)>;
// As SpiceSendFunc, but called with fragments of at most 1536 bytes (message.h, kRdpFragmentSize).
using RdpSendFunc = int (*)(unsigned char* data, int length);

// Initialises the plug-in and connects it to the camera service. The callables are copied. An empty
// `config` means the built-in configuration. After a failed connection the plug-in stays
// initialised: call DeInit before the next attempt.
using InitFunc = int(const SpiceSendFunc& sendFunc, const SpicePostEventFunc& postEventFunc,
                     const std::string& vmId, const std::string& config);
// Reports a ChannelEvent. Opening sends a HELLO, closing unshares all cameras.
using EventFunc = void(int event);
// Carries out one JSON command. Only "list" uses `output`: a buffer of `outputLength` bytes that
// holds a zero byte on entry; `outputLength` becomes the length of the answer. A buffer that is too
// small gives status 0 and the larger size that is needed. "sharetcp" runs the calling thread's Qt
// events for 200 ms; nothing that they run may call Ctrl, Init or DeInit.
using CtrlFunc = int(const std::string& command, char* output, int& outputLength);
// Disconnects from the camera service and releases the IPC library.
using DeInitFunc = void();

// As Init, with the built-in configuration and the IPC library in "./Device Redirect".
using RdpInitFunc = int(const char* vmId, RdpSendFunc sendData);
// As Event, but opening sends nothing: the HELLO follows the VM's channel-opened message.
using RdpEventFunc = void(int event);
// Takes one complete message from the VM, header first; the bytes remain the caller's.
using HandlerFunc = void(unsigned char* data, int length);
// Shares all cameras with a session of the VM.
using ShareAllFunc = int(int sessionId);
using RdpDeInitFunc = void();

// Loads the plug-in and binds its nine functions. The plug-in stays in the process, as its
// threads may outlive the loader. Throws std::runtime_error with the loader's text.
class Plugin {
 public:
  explicit Plugin(const std::string& path)
      : m_handle(open(path)),
        Init(bind<InitFunc>("Init")),
        Event(bind<EventFunc>("Event")),
        Ctrl(bind<CtrlFunc>("Ctrl")),
        DeInit(bind<DeInitFunc>("DeInit")),
        RdpInit(bind<RdpInitFunc>("RdpInit")),
        RdpEvent(bind<RdpEventFunc>("RdpEvent")),
        Handler(bind<HandlerFunc>("Handler")),
        ShareAll(bind<ShareAllFunc>("ShareAll")),
        RdpDeInit(bind<RdpDeInitFunc>("RdpDeInit")) {}

 private:
  static void* open(const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
      throw std::runtime_error(std::string("cannot load plug-in: ") + dlerror());
    return handle;
  }

  template <class Function>
  Function* bind(const char* symbol) {
    void* address = dlsym(m_handle, symbol);
    if (address == nullptr) throw std::runtime_error(std::string("not a plug-in: ") + dlerror());
    return reinterpret_cast<Function*>(address);
  }

  void* m_handle;

 public:
  InitFunc* const Init;
  EventFunc* const Event;
  CtrlFunc* const Ctrl;
  DeInitFunc* const DeInit;
  RdpInitFunc* const RdpInit;
  RdpEventFunc* const RdpEvent;
  HandlerFunc* const Handler;
  ShareAllFunc* const ShareAll;
  RdpDeInitFunc* const RdpDeInit;
};

}  // namespace lumsar
