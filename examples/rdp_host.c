/* The smallest RDP host in C: shares all cameras with one VM until the VM ends.
 * Usage: rdp_host PLUGIN SOCKET, in a directory that has "Device Redirect/libvdi_ipc.so".
 *
 *   cc $(pkg-config --cflags lumsar) rdp_host.c -o rdp_host $(pkg-config --libs lumsar) */
#include <lumsar/rdp.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>

/* Nothing that a VM sends to a host is longer. */
enum { MOST_BYTES = 65536 };

static int channel; /* A socket of the guest agent stands for the channel. */

/* A fragment of a message, on whatever thread. An RDP client queues a copy for its channel instead:
 * a VM that reads slowly must not hold up the plug-in. */
static int send_to_vm(unsigned char* data, int length) {
  return send(channel, data, (size_t)length, MSG_NOSIGNAL) == length ? 0 : -1;
}

/* The VM's next complete message, header first, and its size; 0 at the end or for what is none. */
static size_t receive(unsigned char* message) {
  if (recv(channel, message, LUMSAR_HEADER_SIZE, MSG_WAITALL) != LUMSAR_HEADER_SIZE) return 0;
  const size_t size = lumsar_message_size(message);
  if (size == 0 || size > MOST_BYTES) return 0;
  const size_t rest = size - LUMSAR_HEADER_SIZE;
  if (rest > 0 && recv(channel, message + LUMSAR_HEADER_SIZE, rest, MSG_WAITALL) != (ssize_t)rest)
    return 0;
  return size;
}

int main(int argc, char** argv) {
  static unsigned char message[MOST_BYTES];
  struct sockaddr_un address = {AF_UNIX, ""};
  struct LumsarRdp rdp;
  if (argc != 3) return fprintf(stderr, "usage: rdp_host PLUGIN SOCKET\n"), 2;
  if (!lumsar_rdp_load(&rdp, argv[1])) return fprintf(stderr, "%s\n", dlerror()), 1;
  channel = socket(AF_UNIX, SOCK_STREAM, 0);
  strncpy(address.sun_path, argv[2], sizeof address.sun_path - 1);
  if (connect(channel, (struct sockaddr*)&address, sizeof address) != 0) return perror(argv[2]), 1;
  const int status = rdp.init("vm-7", send_to_vm);
  if (status != LUMSAR_OK) return fprintf(stderr, "RdpInit: status %d\n", status), 1;

  /* The VM begins: its first message makes the plug-in send the HELLO. A VM that asks for all
   * cameras in its answer gets them from the plug-in; for another one, call rdp.share_all(0). */
  rdp.event(LUMSAR_CHANNEL_OPENED);
  for (size_t size = receive(message); size > 0; size = receive(message))
    rdp.handler(message, (int)size);
  rdp.event(LUMSAR_CHANNEL_CLOSED);
  rdp.deinit();
  return 0;
}
