#include "driver/plugin_driver.h"

#include <filesystem>

#include "base/errors.h"
#include "base/system/temporary_directory.h"
#include "base/text/format.h"
#include "driver/find_libraries.h"
#include "driver/working_directory.h"
#include "json/json.h"
#include "lumsar/relative_path.h"
#include "protocol/message.h"

namespace lumsar::host {

namespace {

namespace fs = std::filesystem;

class SpiceDriver final : public PluginDriver {
 public:
  SpiceDriver(const Plugin& plugin, const DriverSetup& setup, SendQueue& queue, EventSink events)
      : m_plugin(plugin),
        m_vmId(setup.vmId),
        m_config(configuration(setup)),
        m_queue(queue),
        m_events(std::move(events)) {}

  int init() override {
    return m_plugin.Init(
        [this](unsigned char* data, int length) {
          return m_queue.push({data, static_cast<std::size_t>(length)});
        },
        m_events, m_vmId, m_config);
  }
  void deInit() override { m_plugin.DeInit(); }
  void channelEvent(ChannelEvent event) override { m_plugin.Event(event); }
  bool vmOpensChannel() const override { return false; }
  bool vmMayShareAll() const override { return false; }
  void repeatHandshake() override { m_plugin.Event(CHANNEL_EVENT_OPENED); }
  bool tellsOfLostService() const override { return true; }

 private:
  static std::string configuration(const DriverSetup& setup) {
    // What every VM can show; a file may say otherwise.
    QJsonObject config{{QStringLiteral("frame_interval"), QStringLiteral("0")},
                       {QStringLiteral("max_width"), QStringLiteral("4000")},
                       {QStringLiteral("quality"), QStringLiteral("50")},
                       {QStringLiteral("encode_type"), QStringLiteral("MJPG")},
                       {QStringLiteral("codec"), QStringLiteral("AUTO")}};
    if (!setup.configFile.empty()) {
      const QJsonObject given = json::readFile(setup.configFile);
      for (auto item = given.begin(); item != given.end(); ++item) config[item.key()] = *item;
    }
    config[QStringLiteral("ipc_name")] = json::qt(setup.ipcChannel);
    // From no directory, as this process has no Qt application object.
    config[QStringLiteral("relative_path")] = json::qt(relativePathTo(ipcDirectory(setup), {}));
    return json::compact(config);
  }

  // The plug-in adds the file's name itself.
  static fs::path ipcDirectory(const DriverSetup& setup) {
    fs::path directory = fs::canonical(fs::absolute(setup.ipcLibrary).parent_path());
    std::error_code ignored;
    if (!fs::equivalent(directory / kIpcLibraryName, setup.ipcLibrary, ignored)) {
      throw base::Failure(
          base::text("the IPC library {} is not the {} of its directory, which the "
                     "plug-in loads for SPICE; give one of that name with {}",
                     setup.ipcLibrary, kIpcLibraryName, setup.ipcLibraryOption));
    }
    return directory;
  }

  const Plugin& m_plugin;
  std::string m_vmId;
  std::string m_config;
  SendQueue& m_queue;
  EventSink m_events;
};

class RdpDriver final : public PluginDriver {
 public:
  RdpDriver(const Plugin& plugin, const DriverSetup& setup, SendQueue& queue)
      : m_plugin(plugin), m_vmId(setup.vmId), m_ipcLibrary(fs::canonical(setup.ipcLibrary)) {
    s_queue = &queue;
    // Where none can be made, that is better said at the start.
    const base::TemporaryDirectory trial;
  }

  // An RDP host's IPC library is always loaded from this directory below the working directory. It
  // exists only during the call, so that a killed client leaves nothing on disk.
  int init() override {
    const base::TemporaryDirectory directory;
    const fs::path home = directory.path() / "Device Redirect";
    fs::create_directory(home);
    fs::create_symlink(m_ipcLibrary, home / kIpcLibraryName);
    const WorkingDirectory inside(directory.path());
    return m_plugin.RdpInit(m_vmId.c_str(), send);
  }
  void deInit() override { m_plugin.RdpDeInit(); }
  void channelEvent(ChannelEvent event) override { m_plugin.RdpEvent(event); }
  bool vmOpensChannel() const override { return true; }
  bool vmMayShareAll() const override { return true; }
  void repeatHandshake() override {
    // The VM reported its end open before the plug-in was initialised again; repeat that report.
    protocol::Message opened(MSG_CHANNEL_OPENED);
    m_plugin.Handler(opened.bytes().data(), static_cast<int>(opened.size()));
  }
  bool tellsOfLostService() const override { return false; }

 private:
  // A plain function: the plug-in's RDP interface takes no state.
  static int send(unsigned char* data, int length) {
    return s_queue->push({data, static_cast<std::size_t>(length)});
  }

  static inline SendQueue* s_queue = nullptr;
  const Plugin& m_plugin;
  std::string m_vmId;
  fs::path m_ipcLibrary;
};

}  // namespace

std::unique_ptr<PluginDriver> makeDriver(const Plugin& plugin, const DriverSetup& setup,
                                         SendQueue& queue, PluginDriver::EventSink events) {
  if (!fs::exists(setup.ipcLibrary)) {
    throw base::Failure(base::text("cannot find the IPC library {}; name it with {}",
                                   setup.ipcLibrary, setup.ipcLibraryOption));
  }
  checkIpcLibrary(setup.ipcLibrary, setup.ipcLibraryOption);
  if (setup.protocol == Protocol::Rdp) return std::make_unique<RdpDriver>(plugin, setup, queue);
  return std::make_unique<SpiceDriver>(plugin, setup, queue, std::move(events));
}

}  // namespace lumsar::host
