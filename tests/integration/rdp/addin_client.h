// AddInClient: an RDP client that knows nothing of the cameras but the name of one add-in, as
// xfreerdp does, without a screen. Its loop runs on a thread of its own; another one makes and
// destroys it. For a process of its own, without a server (addin_process.h).
#pragma once

#include <dlfcn.h>
#include <freerdp/channels/channels.h>
#include <freerdp/client/channels.h>
#include <freerdp/freerdp.h>
#include <freerdp/gdi/gdi.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace lumsar::test {

// The options with which the add-in finds what the tests have built.
inline std::vector<std::string> addInWords() {
  return {"lumsar", std::string("plugin:") + LUMSAR_PLUGIN,
          std::string("ipc-library:") + LUMSAR_IPC_LIBRARY};
}

// An RDP client with one add-in; connects when it is made.
class AddInClient {
 public:
  AddInClient(const std::string& server, const std::string& state, std::vector<std::string> words)
      : m_words(std::move(words)), m_instance(freerdp_new()) {
    for (std::string& word : m_words) m_pointers.push_back(word.data());
    m_arguments = {static_cast<int>(m_pointers.size()), m_pointers.data()};
    m_instance->ContextSize = sizeof(Context);
    freerdp_context_new(m_instance);
    reinterpret_cast<Context*>(m_instance->context)->client = this;
    rdpSettings& settings = *m_instance->settings;
    std::free(settings.ServerHostname);
    settings.ServerHostname = strdup(server.c_str());
    std::free(settings.ConfigPath);
    settings.ConfigPath = strdup(state.c_str());
    settings.IgnoreCertificate = TRUE;
    settings.NlaSecurity = FALSE;
    m_instance->PreConnect = load;
    m_instance->PostConnect = [](freerdp* instance) {
      return gdi_init(instance, PIXEL_FORMAT_RGB16);
    };
    m_instance->PostDisconnect = [](freerdp* instance) { gdi_free(instance); };
    m_connected = freerdp_connect(m_instance) == TRUE;
    if (m_connected) m_thread = std::thread([this] { run(); });
  }

  ~AddInClient() {
    SetEvent(m_instance->context->abortEvent);
    if (m_thread.joinable()) m_thread.join();
    freerdp_disconnect(m_instance);
    freerdp_context_free(m_instance);
    freerdp_free(m_instance);
  }
  AddInClient(const AddInClient&) = delete;
  AddInClient& operator=(const AddInClient&) = delete;

  bool connected() const { return m_connected; }

  // Waits until the server has ended the connection, and makes a new one.
  bool connectAgain() {
    m_thread.join();
    m_connected = freerdp_reconnect(m_instance) == TRUE;
    if (m_connected) m_thread = std::thread([this] { run(); });
    return m_connected;
  }

 private:
  struct Context {
    rdpContext base;
    AddInClient* client;
  };

  static BOOL load(freerdp* instance) {
    AddInClient& client = *reinterpret_cast<Context*>(instance->context)->client;
    void* library = dlopen(LUMSAR_RDP_ADDIN, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return FALSE;
    const auto entry =
        reinterpret_cast<PVIRTUALCHANNELENTRYEX>(dlsym(library, "VirtualChannelEntryEx"));
    return freerdp_channels_client_load_ex(instance->context->channels, instance->settings, entry,
                                           &client.m_arguments) == 0
               ? TRUE
               : FALSE;
  }

  void run() {
    while (freerdp_shall_disconnect(m_instance) == FALSE) {
      std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> events{};
      DWORD count =
          freerdp_get_event_handles(m_instance->context, events.data(), MAXIMUM_WAIT_OBJECTS - 1);
      events[count++] = m_instance->context->abortEvent;
      WaitForMultipleObjects(count, events.data(), FALSE, INFINITE);
      if (freerdp_check_event_handles(m_instance->context) == FALSE) return;
    }
  }

  std::vector<std::string> m_words;
  std::vector<char*> m_pointers;
  ADDIN_ARGV m_arguments{};
  freerdp* m_instance;
  bool m_connected = false;
  std::thread m_thread;
};

}  // namespace lumsar::test
