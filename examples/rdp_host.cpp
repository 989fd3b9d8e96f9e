// The smallest RDP host: shares all cameras with one VM until the VM ends.
// Usage: rdp_host PLUGIN SOCKET, in a directory that has "Device Redirect/libvdi_ipc.so".
#include <lumsar/plugin.h>

#include <cstdio>

#include "channel.h"

namespace {

int channel = -1;

// A fragment of a message, on whatever thread. An RDP client queues a copy for its channel instead:
// a VM that reads slowly must not hold up the plug-in.
int sendToVm(unsigned char* data, int length) {
  return writeChannel(channel, data, static_cast<std::size_t>(length));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: rdp_host PLUGIN SOCKET\n"), 2;
  channel = openChannel(argv[2]);
  const lumsar::Plugin plugin(argv[1]);
  const int status = plugin.RdpInit("vm-7", sendToVm);
  if (status != lumsar::STATUS_OK) return std::fprintf(stderr, "RdpInit: status %d\n", status), 1;

  // The VM begins: its first message makes the plug-in send the HELLO. A VM that asks for all
  // cameras in its answer gets them from the plug-in; for another one, call plugin.ShareAll(0).
  plugin.RdpEvent(lumsar::CHANNEL_EVENT_OPENED);
  lumsar::MessageAssembler assembler;
  while (readChannel(channel, assembler)) {
    for (auto message = assembler.next(); !message.empty(); message = assembler.next())
      plugin.Handler(message.data(), static_cast<int>(message.size()));
  }
  plugin.RdpEvent(lumsar::CHANNEL_EVENT_CLOSED);
  plugin.RdpDeInit();
}
