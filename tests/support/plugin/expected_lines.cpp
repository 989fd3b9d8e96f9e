#include "support/plugin/expected_lines.h"

namespace lumsar::test {

const std::string kDefaultConfig =
    R"({"frame_interval": "0","rdr_channel": "tcp","max_width": "4000","quality": "50",)"
    R"("encode_type": "MJPG","codec": "AUTO","encode_FRC": "ON","encode_30FPS": "OFF",)"
    R"("ipc_name": "lumsar","relative_path": ""})";

std::string Policy::text() const {
  return R"({"command":"setpolicy","policy":[{"cameraCodec":)" + codec + R"(,"cameraEnableFRC":)" +
         enableFrc + R"(,"cameraEncodeType":)" + encodeType + R"(,"cameraFrameInternal":)" +
         frameInterval + R"(,"cameraFullSimulate":"ON","cameraMaxResolution":)" + resolution +
         R"(,"cameraPID":"","cameraPixelFormat":["MJPG","YUYV"],"cameraQuality":)" + quality +
         R"(,"cameraVID":""}],"rdrName":"lumsar","version":)" + version + R"(,"vm_id":)" + vmId +
         "}";
}

Policy defaultPolicy(const std::string& vmId) {
  Policy policy;
  policy.codec = R"("AUTO")";
  policy.encodeType = R"("MJPG")";
  policy.resolution = R"("4000*4000")";
  policy.vmId = '"' + vmId + '"';
  return policy;
}

Lines settingsLines(const std::string& ipcName, const std::string& relativePath,
                    const std::string& libDir) {
  return {info("[ParseConfigJson] Enter!"), info("Use ipc channel name: " + inQuotes(ipcName)),
          info("[ParseConfigJson] path: " + inQuotes(relativePath)),
          info("Use ipc lib path: " + inQuotes(libDir)), info("[ParseConfigJson] Leave!")};
}

Lines defaultSettingsLines(const std::string& libDir) {
  return {info("[ParseConfigJson] Enter!"),
          info(R"(Use ipc channel name: "lumsar")"),
          info(R"([ParseConfigJson] path: "")"),
          warning("[ParseConfigJson][83] Get [relative_path] value is NULL!"),
          info("Use ipc lib path: " + inQuotes(libDir)),
          info("[ParseConfigJson] Leave!")};
}

std::string useLine(const std::string& ipcName, const std::string& libDir) {
  return info("Use ipc: " + inQuotes(ipcName) + " , lib path: " + inQuotes(libDir));
}

Lines objectInitLines(const std::string& libDir) {
  return {info("Lumsar::Init: Enter!"), info("lib path: " + inQuotes(libDir + "/libvdi_ipc.so")),
          info("Lumsar::Init: Leave!")};
}

Lines policyLines(const std::string& config, const Policy& policy) {
  return {info("SetConfigAndPolicy: configuration:\n " + inQuotes(config)),
          info("SetConfigAndPolicy: policy:\n " + inQuotes(policy.text()))};
}

Lines unloadLines() {
  return {info("Lumsar::Uninit: Enter!"), info("client destroyed!"),
          info("Lumsar::Uninit: Leave!")};
}

Lines commandLines(const std::string& command, int outputSize) {
  return {info("[ HandleCommand ] Enter!"), info("[ HandleCommand ] cmd: " + inQuotes(command) +
                                                 " ,output_size: " + std::to_string(outputSize))};
}

Lines rdpHelloLines(int result, unsigned int token) {
  return {info("RdpSendHello: Enter!"),
          info("RdpSendHello: Send hello to remote VM! ret: " + std::to_string(result) +
               " , token: " + std::to_string(token) + " , Version[ 1 . 1 ] , message size: 36"),
          info("RdpSendHello: Leave!")};
}

}  // namespace lumsar::test
