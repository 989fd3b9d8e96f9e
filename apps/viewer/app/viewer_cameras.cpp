#include "app/viewer_cameras.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <utility>

#include "app/credentials.h"
#include "base/system/files.h"
#include "base/text/format.h"
#include "spice/on_glib.h"
#include "window/texts.h"

namespace lumsar::viewer {

namespace {

std::string ownDirectory() {
  Dl_info info{};
  std::error_code ignored;
  if (dladdr(reinterpret_cast<const void*>(&ownDirectory), &info) == 0) return {};
  return std::filesystem::canonical(info.dli_fname, ignored).parent_path();
}

// The viewer's command line is its own; what is to be said of the cameras is in the environment.
HostSetup setupFor(const VmIdentity& vm) {
  HostSetup setup;
  const auto take = [](const char* name, std::string& value) {
    if (const std::string given = host::environment(name); !given.empty()) value = given;
  };
  setup.directory = ownDirectory();
  setup.driver.vmId = vm.name;
  take("LUMSAR_VM_ID", setup.driver.vmId);
  take("LUMSAR_IPC_CHANNEL", setup.driver.ipcChannel);
  take("LUMSAR_CONFIG", setup.driver.configFile);
  take("LUMSAR_PLUGIN", setup.plugin);
  take("LUMSAR_IPC_LIBRARY", setup.driver.ipcLibrary);
  setup.verbose = !host::environment("LUMSAR_VERBOSE").empty();
  setup.choicesFile = base::userConfigFile("viewer.json");
  setup.choicesKey = vm.key;
  return setup;
}

void log(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::fprintf(stderr, "lumsar: %s\n", line.c_str());
  }
}

Problem problemOf(PortEnd end) {
  return end == PortEnd::TooMuch ? Problem::TooMuch : Problem::ConnectionEnded;
}

void endAtExit() {
  std::atexit([] { ViewerCameras::instance().end(); });
}

}  // namespace

ViewerCameras& ViewerCameras::instance() {
  // Signals and idle calls refer to it until the very end.
  static auto* cameras = (bindTexts(), new ViewerCameras);
  return *cameras;
}

ViewerCameras::ViewerCameras()
    : m_previews([this] { host::onGlib([this] { m_display.showPreviews(); }); }),
      m_display(m_previews) {
  GApplication* application = g_application_get_default();
  if (application == nullptr) return;
  g_signal_connect(application, "shutdown", G_CALLBACK(+[](GApplication*, gpointer self) {
                     static_cast<ViewerCameras*>(self)->shutDown();
                   }),
                   this);
}

void ViewerCameras::portAppeared(SpicePortChannel* port, bool isOpen) {
  const auto isKnown = [port](const Vm& vm) { return vm.port == port && !vm.portEnded; };
  if (m_isDown || std::ranges::any_of(m_vms, isKnown)) return;
  Vm& vm = m_vms.emplace_back(Vm{identify(SPICE_CHANNEL(port)), port});
  vm.transport =
      PortTransport::watch(port, isOpen, [this, &vm](PortEnd why) { portEnded(vm, why); });
  if (m_vms.size() == 1) {
    begin(vm);
  } else {
    log(base::text("{} gets the cameras when the connection to {} ends", vm.identity.name,
                   m_vms.front().identity.name));
  }
  update();
}

// What is loaded last goes first when the process ends: once before the plug-in is loaded, in case
// the process ends meanwhile, and once after that.
void ViewerCameras::begin(Vm& vm) {
  static std::once_flag once;
  std::call_once(once, endAtExit);
  vm.host = std::make_unique<ViewerHost>(vm.transport, setupFor(vm.identity), hostActions(vm));
  m_display.serve(&vm.host->control());
}

ViewerHost::Actions ViewerCameras::hostActions(Vm& vm) {
  return {.connect =
              [transport = vm.transport, tap = m_previews.tap()](host::SendQueue& queue,
                                                                 host::Inbox& inbox) {
                static std::once_flag once;
                std::call_once(once, endAtExit);
                queue.setTap(tap);
                transport->serve(queue, inbox);
              },
          .show =
              [this, &vm](const CameraModel& model) {
                host::onGlib([this, &vm, model] { show(vm, model); });
              },
          .log = log,
          .ended = [this, &vm] { host::onGlib([this, &vm] { hostEnded(vm); }); }};
}

void ViewerCameras::portEnded(Vm& vm, PortEnd why) {
  log(base::text("no more cameras for {}: {}", vm.identity.name, textOf(why)));
  m_lastEnd = problemOf(why);
  show(vm, {.problem = m_lastEnd});
  vm.portEnded = true;
  if (!vm.host || vm.hostEnded) return remove(vm);
  vm.transport->detach();
  vm.host->stop();
}

void ViewerCameras::hostEnded(Vm& vm) {
  if (m_isDown) return;
  vm.hostEnded = true;
  if (vm.portEnded) remove(vm);
}

void ViewerCameras::remove(Vm& vm) {
  if (vm.host) m_display.serve(nullptr);
  m_vms.remove_if([&vm](const Vm& each) { return &each == &vm; });
  if (!m_vms.empty() && !m_vms.front().host) begin(m_vms.front());
  update();
}

void ViewerCameras::show(Vm& vm, const CameraModel& model) {
  if (m_isDown || vm.portEnded) return;
  vm.model = model;
  update();
}

void ViewerCameras::update() {
  if (m_vms.empty()) return m_display.show({}, {.problem = m_lastEnd});
  const Vm& vm = m_vms.front();
  m_display.show(vm.identity.name, vm.model, noteOnOthers());
}

std::string ViewerCameras::noteOnOthers() const {
  std::string notes;
  for (auto vm = std::next(m_vms.begin()); vm != m_vms.end(); ++vm) {
    g_autofree char* note =
        g_strdup_printf(tr("%s gets the cameras when the connection to %s ends."),
                        vm->identity.name.c_str(), m_vms.front().identity.name.c_str());
    notes.append(notes.empty() ? "" : "\n").append(note);
  }
  return notes;
}

void ViewerCameras::shutDown() {
  if (m_isDown) return;
  m_display.end();
  end();
}

void ViewerCameras::end() {
  if (std::exchange(m_isDown, true)) return;
  for (Vm& vm : m_vms) vm.transport->detach();
  m_display.serve(nullptr);
  if (!m_vms.empty() && m_vms.front().host) m_vms.front().host->stop();
  for (Vm& vm : m_vms) vm.host.reset();
  m_previews.end();
}

}  // namespace lumsar::viewer

// What the module calls once there is a port of the right name.
extern "C" __attribute__((visibility("default"))) void lumsarViewerPort(SpicePortChannel* port,
                                                                        int isOpen);

void lumsarViewerPort(SpicePortChannel* port, int isOpen) {
  try {
    lumsar::viewer::ViewerCameras::instance().portAppeared(port, isOpen != 0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar: no cameras: %s\n", error.what());
  }
}
