#include "support/plugin/plugin_model.h"

#include <algorithm>
#include <utility>

#include "support/plugin/ipc_peer.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

std::string number(long value) {
  return std::to_string(value);
}

}  // namespace

std::string Behaviour::text() const {
  std::string all = status ? "status " + std::to_string(*status) + "\n" : "";
  const auto add = [&all](const std::string& name, const Lines& lines) {
    for (const std::string& line : lines) all += name + line + "\n";
  };
  add("log: ", log);
  add("event thread: ", eventLog);
  add("library: ", ipc);
  for (const Bytes& bytes : sent) all += "sent: " + show(bytes) + "\n";
  add("event: ", events);
  return all;
}

Behaviour PluginModel::expect(const Step& step, std::optional<unsigned int> newToken) {
  m_now = {};
  m_newToken = newToken;
  switch (step.action) {
    case Action::Init:
      init(step);
      break;
    case Action::RdpInit:
      rdpInit(step);
      break;
    case Action::ChannelEvent:
      channelEvent(numberOf(step));
      break;
    case Action::RdpChannelEvent:
      rdpChannelEvent(numberOf(step));
      break;
    case Action::Command:
      command(step);
      break;
    case Action::VmHello:
      vmHello(vmHelloOf(step, m_token));
      break;
    case Action::VmMessage:
      vmMessage(vmMessageOf(step));
      break;
    case Action::ShareAll:
      m_now.status = shareAll(numberOf(step));
      break;
    case Action::DeInit:
      deInit();
      break;
    case Action::RdpDeInit:
      m_now.log.push_back(info("RdpDeInit: Enter!"));
      deInit();
      m_now.log.push_back(info("RdpDeInit: Leave!"));
      break;
    case Action::ServiceMessage:
      if (m_hasClient) m_now.status = serviceMessage(serviceMessageOf(step));
      break;
    case Action::ConnectedCallback:
      if (!m_hasClient) break;
      m_now.log = {info("client id[ " + number(numberOf(step)) + " ] connect success!")};
      m_now.status = 0;
      break;
    case Action::SentCallback:
      if (m_hasClient) m_now.status = 0;
      break;
    case Action::ClosedCallback:
      if (m_hasClient) closed();
      break;
    case Action::LoseConnection:
      m_connected = false;
      break;
    case Action::RestoreConnection:
      m_connected = m_hasClient;
      break;
    case Action::FailNextSend:
      m_sendResults = {kModelRefusal};
      break;
    case Action::RefuseAtHost:
      m_hostResult = step.choice % 2 == 0 ? kModelRefusal : 0;
      break;
    case Action::RefuseConnect:
      m_connectResult = step.choice % 3 == 0 ? kModelRefusal : 0;
      break;
  }
  return std::exchange(m_now, {});
}

void PluginModel::init(const Step& step) {
  const InitWith with = initWith(step);
  const std::string vmId = with == InitWith::NoVmId ? "" : vmIdOf(step);
  m_now.log.push_back(info("[Init][#] Enter!"));
  m_now.status = 2;
  if (vmId.empty()) {
    m_now.log.push_back(critical("[Init][#] >>>>VM id is NULL!!!<<<<\n"));
    return;
  }
  m_now.log.push_back(info("[Init][#] vm id[" + vmId + "]"));
  if (m_initialised) {
    m_now.log.push_back(critical("Init: lumsar already initialized!"));
    m_now.status = 17;
  } else {
    std::string config = configOf(with);
    if (config.empty()) {
      m_now.log.push_back(info("[ Init ] config is NULL! Use default config!"));
      config = kDefaultConfig;
    }
    m_now.log.push_back(info("[Init][#] config json[" + config + "]"));
    if (with == InitWith::NoSend || with == InitWith::NoEvent) {
      m_now.log.push_back(critical("Init: send func or event func is NULL!"));
    } else {
      m_hasSpiceCallables = true;
      std::string ipcName = "lumsar";
      std::string libDir = applicationDir();
      std::optional<Policy> policy = Policy{};
      if (with == InitWith::DefaultConfig) {
        m_now.log = concat({m_now.log, defaultSettingsLines(libDir)});
        policy = defaultPolicy();
      } else if (with == InitWith::NoJson) {
        m_now.log.push_back(info("[ParseConfigJson] Enter!"));
        m_now.log.push_back(warning("[ParseConfigJson][41] Json command is NULL!"));
        policy.reset();
      } else {
        ipcName = kIpcName;
        const std::string below = with == InitWith::NoLibrary ? "nowhere" : "ipc";
        libDir += "/" + below;
        m_now.log = concat({m_now.log, settingsLines(ipcName, "./" + below, libDir)});
      }
      start("Init:", "Connect to ", ipcName, libDir, vmId, config, policy);
    }
  }
  m_now.log.push_back(info("Init: Leave!"));
}

void PluginModel::rdpInit(const Step& step) {
  m_now.log.push_back(info("[RdpInit] Enter!"));
  if (initWith(step) == InitWith::NoVmId) {
    m_now.log.push_back(critical("[RdpInit][1540] >>>>VM id is NULL!!!<<<<\n"));
    m_now.status = 2;
    return;
  }
  m_now.log.push_back(info("[RdpInit] vm id[" + vmIdOf(step) + "]"));
  if (m_initialised) {
    m_now.log.push_back(critical("[RdpInit] lumsar already initialized!"));
    m_now.status = 17;
  } else {
    m_isRdp = true;
    m_hasRdpSend = true;
    m_now.log = concat({m_now.log,
                        {info("[RdpInit] ====== config json[" + kDefaultConfig + "]"),
                         info("[RdpInit] call ParseConfigJson...")},
                        defaultSettingsLines("")});
    start("[RdpInit]", "[RdpInit] Connect to ", "lumsar", "./Device Redirect", vmIdOf(step),
          kDefaultConfig, defaultPolicy());
  }
  m_now.log.push_back(info("[RdpInit] Leave!"));
}

void PluginModel::start(const std::string& prefix, const std::string& connectedTo,
                        const std::string& ipcName, const std::string& libDir,
                        const std::string& vmId, const std::string& config,
                        std::optional<Policy> policy) {
  m_now.log.push_back(useLine(ipcName, libDir));
  m_now.status = 1;
  if (libDir.ends_with("/nowhere")) {
    const std::string path = libDir + "/libvdi_ipc.so";
    m_now.log =
        concat({m_now.log,
                {info("Lumsar::Init: Enter!"), info("lib path: " + inQuotes(path)),
                 warning("LoadControllerLibrary: >>>>load lib[" + path + "] failed!<<<<\n"),
                 critical("LoadControllerLibrary for lib: " + inQuotes(libDir) + " failed!"),
                 critical(prefix + " lumsar initialize failed!")}});
    return;
  }
  m_now.log = concat({m_now.log, objectInitLines(libDir)});
  m_now.ipc = {"Create " + vmId, "IsConnected"};
  m_initialised = m_hasClient = true;
  m_vmId = vmId;
  if (policy) {
    policy->version = '"' + m_version + '"';
    policy->vmId = '"' + vmId + '"';
    m_now.log = concat({m_now.log, policyLines(config, *policy)});
    m_policy = policy;
  } else {
    m_now.log.push_back(info("SetConfigAndPolicy: configuration:\n " + inQuotes(config)));
    m_now.log.push_back(warning("Json command is NULL!"));
  }
  m_now.status = 34;
  if (m_connected) {
    m_now.log.push_back(warning("Connect: Aready connected with IPC server!"));
  } else {
    m_now.log.push_back(info("Connect: Try to connect ipc: " + inQuotes(ipcName)));
    m_now.ipc.push_back("Connect " + ipcName);
    m_now.status = m_connectResult;
    m_connected = m_connectResult == 0;
  }
  m_now.log.push_back(m_now.status == 0
                          ? info(connectedTo + " " + inQuotes(ipcName) + "  SUCCESS!")
                          : critical("Init: connect to Local camera rdr server failed! err: " +
                                     number(*m_now.status)));
}

void PluginModel::channelEvent(int event) {
  if (event == 0) {
    m_now.log.push_back(info("Event: Spice channel is Opened!"));
    m_token = m_newToken.value_or(m_token);
    if (m_hasSpiceCallables) m_now.sent.push_back(pluginHello(m_token, 0x03));
    m_now.log.push_back(
        info("Event: Send hello to remote VM! Token: " + number(m_token) + " , Version[ 1 . 1 ]"));
    m_channelOpen = true;
  } else if (event == 1) {
    m_now.log.push_back(info("Event: Spice channel is Closed! Unredirect all cameras!"));
    if (!closingIsForgotten) m_channelOpen = false;
    unredirectAll();
  } else {
    m_now.log.push_back(warning("Unsupported channel event: " + number(event)));
  }
}

void PluginModel::rdpChannelEvent(int event) {
  m_now.log.push_back(info("RdpEvent: Enter! event: " + number(event)));
  if (event == 0) {
    m_now.log.push_back(info("RdpEvent: Rdp vchannel is Opened!"));
  } else if (event == 1) {
    m_now.log.push_back(info("RdpEvent: Rdp vchannel is Closed! Unredirect all cameras!"));
    m_channelOpen = false;
    unredirectAll();
  } else {
    m_now.log.push_back(warning("RdpEvent: Unsupported channel event: " + number(event)));
  }
  m_now.log.push_back(info("RdpEvent: Leave!"));
}

void PluginModel::deInit() {
  m_now.log.push_back(info("DeInit: Enter!"));
  if (!m_initialised) {
    m_now.log.push_back(critical("DeInit: lumsar NOT initialized!"));
    return;
  }
  m_now.ipc.emplace_back("IsConnected");
  if (m_connected) {
    m_now.ipc.emplace_back("Disconnect");
  } else {
    m_now.log.push_back(warning("Connect: Client is NOT connected with IPC server!"));
  }
  m_now.ipc.emplace_back("Destroy");
  m_now.log = concat({m_now.log, unloadLines(), {info("DeInit: Leave!")}});
  m_connected = m_initialised = m_hasClient = false;
}

}  // namespace lumsar::test
