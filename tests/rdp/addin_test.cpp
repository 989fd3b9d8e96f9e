// The channel as an add-in, loaded into a client that knows nothing of it but its name: what
// xfreerdp does, without a screen.
#include <dlfcn.h>
#include <freerdp/channels/channels.h>
#include <freerdp/client/channels.h>
#include <freerdp/freerdp.h>
#include <freerdp/gdi/gdi.h>

#include <array>
#include <filesystem>

#include "rig.h"

namespace {

using namespace lumsar_test;

// An RDP client with one add-in; connects when it is made.
class Client {
 public:
  Client(const std::string& server, const std::string& state, std::vector<std::string> words)
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

  ~Client() {
    freerdp_abort_connect(m_instance);
    if (m_thread.joinable()) m_thread.join();
    freerdp_disconnect(m_instance);
    freerdp_context_free(m_instance);
    freerdp_free(m_instance);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return m_connected; }

 private:
  struct Context {
    rdpContext base;
    Client* client;
  };

  static BOOL load(freerdp* instance) {
    Client& client = *reinterpret_cast<Context*>(instance->context)->client;
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

class RdpAddIn : public Rig {
 protected:
  RdpAddIn() { setenv("LUMSAR_TEST_SERVICE", path("service").c_str(), 1); }

  std::vector<std::string> words() const {
    return {"lumsar", std::string("plugin:") + LUMSAR_PLUGIN,
            std::string("ipc-library:") + LUMSAR_TEST_IPC};
  }
};

TEST_F(RdpAddIn, GivesItsClientTheCameras) {
  startService();
  startServer();
  const auto here = std::filesystem::current_path();
  {
    const Client client(path("rdp"), path("state"), words());
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(server->waitForClient());
    greet();
    expectThrough(noise(1'000'000, 1));
    server->send(message(lumsar::MSG_DATA, noise(70'000, 2)));
    const auto data = service->messages().nextOf(lumsar::IPC_MSG_DATA);
    ASSERT_TRUE(data);
    EXPECT_EQ(payloadOf(*data), noise(70'000, 2));
    EXPECT_EQ(std::filesystem::current_path(), here);
  }
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_FALSE(service->connected());
}

TEST_F(RdpAddIn, OneClientAfterAnother) {
  startService();
  startServer();
  for (int i = 0; i < 2; ++i) {
    const Client client(path("rdp"), path("state"), words());
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(server->waitForClient());
    greet();
    expectThrough(noise(5000, 1));
  }
}

TEST_F(RdpAddIn, RecoversFromALostCameraService) {
  startService();
  startServer();
  const Client client(path("rdp"), path("state"), words());
  ASSERT_TRUE(server->waitForClient());
  greet();
  service.reset();
  startService();
  const auto bytes = server->messages().nextOf(lumsar::MSG_HELLO);
  ASSERT_TRUE(bytes);
}

TEST_F(RdpAddIn, SaysWhatIsWrongWithItsOptions) {
  startServer();
  testing::internal::CaptureStderr();
  const Client client(path("rdp"), path("state"), {"lumsar", "camera:3"});
  EXPECT_FALSE(client.connected());
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "lumsar: no cameras: unknown option \"camera:3\": there are plugin:PATH"),
            std::string::npos);
}

}  // namespace
