#include "addin/add_in_options.h"

#include "base/errors.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "driver/find_libraries.h"

namespace lumsar::host {

namespace {

// A tunnel's end on this machine may lead to another VM the next time.
bool isOnThisMachine(const std::string& host) {
  return host.starts_with('/') || host.starts_with("127.") || host == "localhost" || host == "::1";
}

}  // namespace

AddInOptions parseAddInOptions(std::span<const std::string> words, const std::string& directory) {
  AddInOptions options;
  options.driver.protocol = Protocol::Rdp;
  options.driver.ipcLibraryOption = "ipc-library:PATH";
  for (const std::string& word : words) {
    const auto colon = word.find(':');
    const std::string name = word.substr(0, colon);
    const std::string value = colon == std::string::npos ? "" : word.substr(colon + 1);
    if (name == "plugin") {
      options.plugin = value;
    } else if (name == "ipc-library") {
      options.driver.ipcLibrary = value;
    } else if (name == "vm-id") {
      options.driver.vmId = value;
      options.isVmNamed = true;
    } else if (name == "share" && !value.empty()) {
      options.shares.push_back(value);
    } else if (word == "window:no") {
      options.window = false;
    } else if (name == "verbose") {
      options.verbose = true;
    } else {
      throw base::UsageError(
          base::text("unknown option \"{}\"; expected plugin:PATH, ipc-library:PATH, vm-id:ID, "
                     "share:NAME, share:all, share:none, window:no or verbose",
                     word));
    }
  }
  if (options.driver.vmId.empty()) throw base::UsageError("vm-id needs a value");
  if (options.plugin.empty()) options.plugin = findPlugin(directory);
  if (options.driver.ipcLibrary.empty()) {
    options.driver.ipcLibrary =
        findIpcLibrary(options.plugin, directory, options.driver.ipcLibraryOption);
  }
  return options;
}

AddInVm identify(const AddInOptions& options, const std::string& host, unsigned port) {
  const std::string id = options.isVmNamed ? options.driver.vmId : "";
  AddInVm vm{base::clean(id.empty() ? host : id), {}};
  if (vm.name.empty()) vm.name = "VM";
  const bool isKnown = !id.empty() || !(host.empty() || isOnThisMachine(host));
  if (isKnown) vm.key = base::text("rdp {}:{} {}", host, port, id);
  return vm;
}

}  // namespace lumsar::host
