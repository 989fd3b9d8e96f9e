#include "app/service_call.h"

#include <cstring>
#include <vector>

#include "base/errors.h"
#include "base/text/bytes.h"
#include "base/text/format.h"
#include "ipc/client/client.h"
#include "lumsar/ipc_transport.h"
#include "protocol/message.h"

namespace lumsar::service {
namespace {

void check(int error, const std::string& channel) {
  if (error == 0) return;
  const char* meaning = ipcErrorText(error);
  throw base::Failure(base::text("cannot get the status of channel \"{}\": {} ({})", channel,
                                 meaning != nullptr ? meaning : "unknown error", error));
}

}  // namespace

std::string callService(const std::string& channel, std::uint32_t type, std::string_view payload) {
  IpcClientParams params;
  std::strncpy(params.clientName, kToolClient, kClientNameSize - 1);
  ipc::IpcClient client(&params);
  check(client.connect(channel.c_str()), channel);
  const protocol::Message request(type, {base::bytesOf(payload)});
  std::vector<unsigned char> reply(64U << 10U);
  for (int error = kIpcReplyTooLarge; error == kIpcReplyTooLarge;) {
    auto size = static_cast<unsigned int>(reply.size());
    error = client.call(request.bytes(), reply.data(), &size);
    reply.resize(size);
    if (error != kIpcReplyTooLarge) check(error, channel);
  }
  return {reply.begin() + kHeaderSize, reply.end()};
}

}  // namespace lumsar::service
