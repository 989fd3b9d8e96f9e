// One host of the camera service: its commands, its policies and its VM's data, with cameras that
// come and go. Whatever it sends, the camera list stays JSON and bounded. No camera runs and
// no connection is made.
//
// Input: steps, each a byte that says which, then what the step needs.
#include <gst/gst.h>
#include <sys/socket.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <cerrno>

#include "base/system/temporary_directory.h"
#include "fuzz/input.h"
#include "fuzz/qt_json.h"
#include "json/json.h"
#include "session/reports.h"
#include "support/messages.h"

// Instead of the system's: any address may be in a command.
extern "C" int connect(int /*socket*/, const sockaddr* /*address*/, socklen_t /*size*/) {
  errno = ENETUNREACH;
  return -1;
}

// No camera has a source.
extern "C" GstElement* gst_device_create_element(GstDevice* /*device*/, const gchar* /*name*/) {
  return nullptr;
}

namespace {

using namespace lumsar;
using namespace lumsar::service;
using fuzz::Input;
using fuzz::require;

class NoEvents : public ipc::IpcServerEvents {
  void onClient(ipc::ClientId /*client*/, const std::string& /*name*/) override {}
  void onMessage(ipc::ClientId /*client*/, std::span<unsigned char> /*message*/) override {}
  void onClientGone(ipc::ClientId /*client*/, const std::string& /*why*/) override {}
  void onWarning(const std::string& /*text*/) override {}
};

// What outlives an input.
struct Process {
  Process() {
    ::setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
    ::setenv("GST_REGISTRY_1_0", (directory / "registry").c_str(), 1);
    gst_init(nullptr, nullptr);
    access.deny("Denied*@vm-8*");
  }

  base::TemporaryDirectory directory;
  asio::io_context io;
  asio::thread_pool cameraThreads{1};
  NoEvents events;
  ipc::IpcServer server{io, base::SocketListener::at({directory / "s", {}, 0}), events};
  AccessRules access;
  const std::string accessLine;
  const DirectNetworks direct;
};

constexpr unsigned char kCameras = 8;

CameraInfo camera(unsigned char number) {
  static const std::vector<std::string> names = {"Front", "Denied", "Front", "7"};
  CameraInfo info;
  info.id = base::text("test:{}", number % kCameras);
  info.name = names[number % names.size()];
  info.vendorId = number;
  if (number % 2 == 0) info.formats = {{"I420", 1280, 720, 30, 1}};
  return info;
}

class Host {
 public:
  explicit Host(Process& process) : m_process(process) {
    plug(0);
    m_sessions[1] = std::make_unique<ClientSession>(m_context, 1, "vm-7");
  }
  ~Host() {
    m_sessions.clear();
    m_process.io.poll();
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void step(Input& input) {
    switch (const unsigned char what = input.byte(); what % 16) {
      case 10:
        return plug(input.byte());
      case 11:
        return unplug(input.byte());
      case 12:
        m_process.io.poll();
        return m_process.io.restart();
      case 13:
        return checkReports();
      default:
        return receive(what % 16, input.piece());
    }
  }
  void checkReports() const {
    const QJsonObject list = cameraList(session(), m_context, m_sessions, {});
    require(json::readObject(json::compact(list)).error.empty(), "the camera list is JSON");
    require(session().refusals().size() <= 16, "a host's refusals are bounded");
    require(session().waiting().size() <= 64 + kCameras, "and the shares that wait");
    const QJsonObject status = statusReport(m_context, m_sessions, {});
    require(json::readObject(json::compact(status)).error.empty(), "the status is JSON");
  }

 private:
  void receive(std::uint32_t type, fuzz::Bytes payload) {
    session().onMessage(test::message(type, payload));
  }
  void plug(unsigned char number) {
    const Camera* plugged = m_catalogue.plug(camera(number));
    for (const auto& [id, session] : m_sessions) {
      if (plugged != nullptr) session->onPlugged(*plugged);
    }
  }
  void unplug(unsigned char number) {
    const Camera* unplugged = m_catalogue.unplug(camera(number).id);
    if (unplugged != nullptr) session().onUnplugged(*unplugged);
  }
  ClientSession& session() const { return *m_sessions.at(1); }

  Process& m_process;
  Catalogue m_catalogue;
  StreamTable m_streams{m_process.io, m_process.cameraThreads,
                        [this](const Camera& failed, const std::string& why) {
                          session().onCameraFailed(failed, why);
                        }};
  const SessionContext m_context{m_process.io,     m_process.server,     m_catalogue,     m_streams,
                                 m_process.access, m_process.accessLine, m_process.direct};
  SessionTable m_sessions;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static Process process;
  Host host(process);
  for (Input input(data, size); !input.empty();) host.step(input);
  host.checkReports();
  process.io.poll();
  process.io.restart();
  return 0;
}
