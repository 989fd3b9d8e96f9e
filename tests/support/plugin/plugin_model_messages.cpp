// The model's commands, messages and callbacks.
#include <algorithm>
#include <utility>

#include "support/plugin/ipc_peer.h"
#include "support/plugin/plugin_model.h"

namespace lumsar::test {
namespace {

std::string number(long value) {
  return std::to_string(value);
}

Bytes withZero(const std::string& text) {
  return bytesOf(text) + Bytes{0};
}

}  // namespace

void PluginModel::command(const Step& step) {
  const std::string& text = commandOf(step);
  const bool lists = text.find("list") != std::string::npos;
  const int size = !lists                               ? 0
                   : listWith(step) == ListWith::NoRoom ? kModelListNoRoom
                                                        : kModelListRoom;
  m_now.log = concat({{debug("Ctrl: Enter!")}, commandLines(text, size)});
  int status = 30;
  if (asksConnected()) {
    status = dispatch(step, text);
    if (status == 0 || status == 7 || status == 12) {
      m_now.log.push_back(debug("HandleCommand: Leave!"));
    }
  } else {
    m_now.log.push_back(warning("NOT connected with local camera server!"));
  }
  if (status != 0) {
    m_now.log.push_back(warning("Handle command[ " + inQuotes(text) + " ] Failed!!!"));
  }
  m_now.log.push_back(debug("Ctrl: Leave!"));
  m_now.status = status;
}

int PluginModel::dispatch(const Step& step, const std::string& text) {
  const auto refuse = [this](int status, const std::string& line) {
    m_now.log.push_back(warning(line));
    return status;
  };
  switch (commandNumber(step)) {
    case 0:
    case 1: {
      const int status = list(listWith(step));
      if (status == 0) return status;
      return refuse(status, "HandleGetCameraListCmd failed! error: " + number(status));
    }
    case 2: {
      const std::string sent =
          "{\n    \"command\": \"share\",\n    \"deviceId\": \"cam\",\n"
          "    \"vmId\": \"" +
          m_vmId + "\"\n}\n";
      m_now.log.push_back(info("Lumsar::HandleCommand: ShareCmd: " + inQuotes(sent)));
      return transfer(2, bytesOf(sent));
    }
    case 4:
      return transfer(4, bytesOf(text));
    case 6:
      return transfer(5, bytesOf(text));
    case 7: {
      const std::string sent = R"({"command":"setpolicy","policy":[],"version":")" + m_version +
                               R"(","vm_id":")" + m_vmId + R"("})";
      m_now.log.push_back(info("[Lumsar::HandleCommand] setpolicy:\n " + inQuotes(sent)));
      return transfer(7, withZero(sent));
    }
    case 8:
      return refuse(7, "[ HandleCommand ][ 697 ]Unsupported command: \"LIST\" !!!\n");
    case 9:
      return refuse(7, "[ HandleCommand ][ 697 ]Unsupported command: \"\" !!!\n");
    case 10:
      return refuse(7, "Cannot get command from json param!");
    case 11:
      return refuse(11, "Json command is NULL!");
    case 12:
      return refuse(12, "Cannot find some item in jsonCmd!");
    default:  // share and unshare without a camera
      return refuse(12, "Cannot find deviceId in jsonCmd!");
  }
}

int PluginModel::transfer(std::uint32_t type, const Bytes& payload) {
  const int status = sendIpc(type, payload);
  if (status != 0) {
    m_now.log.push_back(warning("TransferCmd2CameraService failed! error: " + number(status)));
  }
  return status;
}

int PluginModel::list(ListWith with) {
  const int room = with == ListWith::NoRoom ? kModelListNoRoom : kModelListRoom;
  const std::string prefix = "HandleGetCameraListCmd: ";
  m_now.ipc.push_back(listRequest(static_cast<unsigned int>(room)));
  m_now.log.push_back(info(prefix + "Enter!"));
  m_now.log.push_back(
      info(prefix + R"(Try to get camera list! Output buffer: "" , size: )" + number(room)));
  if (with == ListWith::NoAnswer) {
    m_now.log.push_back(warning("Ipc sync call failed! vd_ipc error:" + number(kModelRefusal)));
    m_now.log.push_back(warning(prefix + "IpcSyncCall failed!!! err: " + number(kModelRefusal)));
    return 35;
  }
  const auto length = static_cast<long>(kModelCameras.size());
  const std::string reply = number(32 + length);
  m_now.log.push_back(debug("IpcSyncCall: get result! size: " + reply));
  m_now.log.push_back(
      info(prefix + "buffer return: " + reply + " , Output buffer size: " + number(room)));
  if (with == ListWith::NoRoom) {
    m_now.log.push_back(warning(prefix + "Output buffer too small! need size: " + reply));
    return 0;
  }
  const long code = with == ListWith::Error ? 3 : 0;
  m_now.log.push_back(
      info(prefix + "Result: type: 1 , size:  " + number(length) + " , code: " + number(code)));
  if (code != 0) {
    m_now.log.push_back(warning(prefix + "Get camera list failed! err: " + number(code)));
  }
  m_now.log.push_back(info(prefix + "====Camera list:\n " + inQuotes(kModelCameras)));
  m_now.log.push_back(info(prefix + "Leave!"));
  return code == 0 ? 0 : 45;
}

void PluginModel::vmHello(const VmHello& hello) {
  if (!m_initialised) {
    m_now.log.push_back(critical("[Handler][1333] Lumsar NOT initialized!"));
    return;
  }
  m_now.log.push_back(info("[Handler] Receive HELLO from remote VM!"));
  if (hello.token != m_token) {
    m_now.log.push_back(warning("[Handler][1392] Token is dismatch! Recv[" + number(hello.token) +
                                "], Own[" + number(m_token) + "]"));
    return;
  }
  const std::string version = number(hello.major) + "." + number(hello.minor);
  m_now.log.push_back(info("[Handler] Camera channel with token[" + number(m_token) +
                           "] connected SUCCESS! VM session[" + number(hello.session) +
                           "], version[" + version + "], capabilities[0x" +
                           (hello.capabilities == 0x10 ? "10" : "3") + "]"));
  if (m_policy) {
    m_version = version;
    m_policy->version = '"' + version + '"';
    m_now.log.push_back(info("UpdatePolicy: new policy:\n " + inQuotes(m_policy->text())));
  } else {
    m_now.log.push_back(warning("Json command is NULL!"));
  }
  if (!asksConnected()) {
    m_now.log.push_back(warning("[Handler][1386] >>>>IPC is NOT connected!<<<<"));
    return;
  }
  sendIpc(7, withZero(policyText()));
  if (hello.capabilities == 0x10) {
    m_now.log.push_back(info("[Handler] RDP vchannel is ready to share all cameras!"));
    shareAll(static_cast<int>(hello.session));
  } else {
    raise(1, {}, false);
    m_now.log.push_back(info("[Handler] Post event: LUMSAR is ready!"));
  }
}

void PluginModel::vmMessage(const Bytes& bytes) {
  if (bytes.empty()) {
    m_now.log.push_back(critical("[Handler][1321] Invalid parameter!"));
  } else if (!m_initialised) {
    m_now.log.push_back(critical("[Handler][1333] Lumsar NOT initialized!"));
  } else if (bytes[0] == 0) {
    m_now.log.push_back(critical("[Handler][1340] Invalid magic:0x56434100!"));
  } else if (bytes[4] == 1) {
    sendIpc(6, {bytes.begin() + 32, bytes.end()});
  } else if (bytes[4] == 3) {
    m_now.log.push_back(
        info("[Handler] Remote RDP vchannel is Opened! Unredirect all cameras first..."));
    unredirectAll();
    m_now.log.push_back(info("[Handler] And, then, try to send HELLO to VM..."));
    sendRdpHello();
  } else {
    m_now.log.push_back(
        warning("[Handler][1413] Receive unknown message type:" + number(bytes[4])));
  }
}

int PluginModel::shareAll(int session) {
  m_now.log.push_back(info("[ShareAll] Enter! session id: " + number(session)));
  if (session < 0) {
    m_now.log.push_back(
        warning("[ShareAll] >>>>Invalid session id: " + number(session) + " <<<<\n"));
    return 2;
  }
  if (!m_initialised) {
    m_now.log.push_back(critical("[ShareAll] >>>>lumsar NOT initialized!<<<<\n"));
    return 16;
  }
  const std::string text = R"({"sessionId":)" + number(session) + R"(,"vmId":")" + m_vmId + R"("})";
  m_now.log = concat({m_now.log,
                      {info("[RedirectAll] Enter!"), info("Json cmd:\n " + inQuotes(text)),
                       info("Send RDR ALL command to service!")}});
  const int status = sendIpc(9, bytesOf(text));
  m_now.log.push_back(info("[RedirectAll] Leave!"));
  m_now.log.push_back(info("[ShareAll] Leave!"));
  return status;
}

int PluginModel::serviceMessage(Bytes bytes) {
  if (bytes[3] != 'V') {
    m_now.log.push_back(warning("[OnReceive][180] Invalid message magic!"));
    return 5;
  }
  if (bytes[4] == 8) {
    m_now.log.push_back(info("Camera device change!!!"));
    raise(2, {bytes.begin() + 32, bytes.end()}, true);
    return 0;
  }
  if (bytes[4] == 6) return relay(std::move(bytes));
  m_now.log.push_back(
      warning("[OnReceive] >>>>Unknown IPC message type[" + number(bytes[4]) + "]<<<<"));
  return 2;
}

int PluginModel::relay(Bytes bytes) {
  if (!m_channelOpen) {
    m_now.log.push_back(critical("OnReceive: spice channel is NOT opened!"));
    return 30;
  }
  bytes[4] = 1;
  const std::size_t longest = m_isRdp ? 1536 : bytes.size();
  for (std::size_t begin = 0; begin < bytes.size(); begin += longest) {
    const std::size_t end = std::min(begin + longest, bytes.size());
    m_now.sent.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                            bytes.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return m_hostResult;
}

void PluginModel::closed() {
  m_connected = false;
  m_now.log = {warning("Ipc connection disconnet!! connect id: 12 , error: 104"),
               info("UnredirectAllVCams: send cmd to vm!")};
  if (m_hasSpiceCallables) {
    m_now.sent.push_back(message(2));
    m_now.events.emplace_back("3 null");
  }
  m_now.status = 0;
}

void PluginModel::raise(int event, const Bytes& data, bool hasData) {
  m_now.eventLog = {info("PostEventToSpice: Enter!")};
  if (m_isRdp) {
    m_now.eventLog.push_back(
        warning("[PostEventToSpice] Post event function is NULL! Ignore this post!"));
  } else {
    m_now.events.push_back(number(event) + (hasData ? " " + show(data) : " null"));
  }
  m_now.eventLog.push_back(info("PostEventToSpice: Leave!"));
}

int PluginModel::sendIpc(std::uint32_t type, const Bytes& payload) {
  if (!m_hasClient) {
    m_now.log.push_back(warning("SendIpcData: client is NULL!"));
    return 16;
  }
  m_now.ipc.push_back(sendOf(type, payload));
  if (m_sendResults.empty()) return 0;
  const int status = m_sendResults.front();
  m_sendResults.pop_front();
  m_now.log.push_back(warning("Send ipc data failed! error:" + number(status)));
  return status;
}

bool PluginModel::asksConnected() {
  if (m_hasClient) {
    m_now.ipc.emplace_back("IsConnected");
  } else {
    m_now.log.push_back(warning("IsIpcConnected: client is NULL!"));
  }
  return m_hasClient && m_connected;
}

void PluginModel::unredirectAll() {
  m_now.log.push_back(info("Unredirect all cameras!"));
  sendIpc(5, {});
}

void PluginModel::sendRdpHello() {
  m_token = m_newToken.value_or(m_token);
  if (m_hasRdpSend) {
    m_now.log = concat({m_now.log, rdpHelloLines(m_hostResult, m_token)});
    m_now.sent.push_back(pluginHello(m_token, 0x13));
  } else {
    m_now.log = concat(
        {m_now.log,
         {info("RdpSendHello: Enter!"), critical("RdpSendHello: RDP send data callback is NULL!!!"),
          info("RdpSendHello: Leave!")}});
  }
  m_channelOpen = m_hasRdpSend;
}

std::string PluginModel::policyText() const {
  return m_policy ? m_policy->text() : "";
}

}  // namespace lumsar::test
