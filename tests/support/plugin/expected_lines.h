// The log lines of operations that many tests pass through, so that each test can name its whole
// list of lines.
// `config` and `path` are texts as the host gave them or as they must come out.
#pragma once

#include <string>

#include "support/plugin/log_record.h"

namespace lumsar::test {

// The built-in configuration.
extern const std::string kDefaultConfig;

// The values of a camera policy that a configuration can change, as they stand in the JSON text.
struct Policy {
  std::string codec = R"("Auto")";
  std::string enableFrc = R"("ON")";
  std::string encodeType = R"("H264")";
  std::string frameInterval = "0";
  std::string resolution = R"("1920*1080")";
  std::string quality = "50";
  std::string version = R"("1.0")";
  std::string vmId = R"("vm-7")";

  std::string text() const;
};

// The policy of the built-in configuration for `vmId`.
Policy defaultPolicy(const std::string& vmId = "vm-7");

// A configuration document that holds both keys, the relative path not empty.
Lines settingsLines(const std::string& ipcName, const std::string& relativePath,
                    const std::string& libDir);
// The built-in configuration, whose relative path is empty.
Lines defaultSettingsLines(const std::string& libDir);
std::string useLine(const std::string& ipcName, const std::string& libDir);
// The object's own initialisation, when it succeeds.
Lines objectInitLines(const std::string& libDir);
Lines policyLines(const std::string& config, const Policy& policy);
Lines unloadLines();
// One command that gets as far as the connection to the service.
Lines commandLines(const std::string& command, int outputSize = 0);
// What an RDP host's HELLO logs.
Lines rdpHelloLines(int result, unsigned int token);

}  // namespace lumsar::test
