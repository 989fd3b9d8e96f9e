// --status: see status_client.h. Main thread.
#include "app/status_client.h"

#include <cstring>
#include <stdexcept>
#include <vector>

#include "app/log.h"
#include "ipc/client/client.h"
#include "lumsar/ipc_transport.h"
#include "session/json.h"
#include "session/reports.h"

namespace lumsar::service {
namespace {

void check(int error, const std::string& channel) {
  if (error == 0) return;
  const char* text = ipcErrorText(error);
  throw std::runtime_error(joined("no status of channel '", channel, "': ",
                                  text != nullptr ? text : "unknown error", " (", error, ")"));
}

}  // namespace

std::string askStatus(const std::string& channel, bool json) {
  IpcClientParams params;
  std::strncpy(params.clientName, kStatusClient, kClientNameSize - 1);
  ipc::IpcClient client(&params);
  check(client.connect(channel.c_str()), channel);
  RedirMsgHeader request;
  request.type = IPC_MSG_STATUS;
  std::vector<unsigned char> reply(64U << 10U);
  for (;;) {
    auto size = static_cast<unsigned int>(reply.size());
    const int error = client.call({reinterpret_cast<const unsigned char*>(&request), kHeaderSize},
                                  reply.data(), &size);
    reply.resize(size);
    if (error == kIpcReplyTooLarge) continue;
    check(error, channel);
    break;
  }
  const auto text = asText(std::span(reply).subspan(kHeaderSize));
  if (json) return std::string(text) + "\n";
  return statusText(readJsonObject(text).object);
}

}  // namespace lumsar::service
