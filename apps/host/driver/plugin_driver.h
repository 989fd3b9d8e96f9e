// PluginDriver: what differs between a SPICE and an RDP host in how the plug-in is driven, and
// nothing else.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "driver/find_libraries.h"
#include "lumsar/plugin.h"
#include "protocol/names.h"
#include "transport/send_queue.h"

namespace lumsar::host {

enum class Protocol { Spice, Rdp };

struct DriverSetup {
  Protocol protocol = Protocol::Spice;
  std::string vmId = "vm-1";
  std::string ipcChannel = protocol::kDefaultIpcChannel;  // SPICE only
  std::string configFile;                                 // further configuration, JSON; SPICE only
  std::string ipcLibrary;                                 // path of libvdi_ipc.so
  std::string ipcLibraryOption = kIpcLibraryOption;       // how a person names it
};

class PluginDriver {
 public:
  // Receives the plug-in's events, on any thread; `data` is valid during the call.
  using EventSink = std::function<void(RedirEvent event, const char* data, int length)>;

  virtual ~PluginDriver() = default;
  // A status of the plug-in; throws when the plug-in cannot even be asked.
  virtual int init() = 0;
  virtual void deInit() = 0;
  virtual void channelEvent(ChannelEvent event) = 0;
  // Whether it is the VM that reports the channel open and then receives the HELLO.
  virtual bool vmOpensChannel() const = 0;
  // Whether a VM's answer may share all cameras without its user.
  virtual bool vmMayShareAll() const = 0;
  // For a VM whose channel has stayed open while the plug-in was initialised again.
  virtual void repeatHandshake() = 0;
  // Whether the plug-in tells this kind of host of a lost camera service.
  virtual bool tellsOfLostService() const = 0;
};

// Throws std::runtime_error when the set-up cannot work. `queue` outlives the driver.
std::unique_ptr<PluginDriver> makeDriver(const Plugin& plugin, const DriverSetup& setup,
                                         SendQueue& queue, PluginDriver::EventSink events);

}  // namespace lumsar::host
