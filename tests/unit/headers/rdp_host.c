/* The smallest use of rdp.h: 0 when the plug-in says that there is no IPC library here. */
#include <lumsar/rdp.h>
#include <stdio.h>

static int send_to_vm(unsigned char *data, int length) {
  (void)data;
  return length <= LUMSAR_RDP_FRAGMENT_SIZE ? 0 : -1;
}

int main(int argc, char **argv) {
  struct LumsarRdp rdp;
  if (argc != 2 || !lumsar_rdp_load(&rdp, argv[1])) {
    fprintf(stderr, "%s\n", dlerror());
    return 2;
  }
  const int status = rdp.init("vm-7", send_to_vm);
  const int share_status = rdp.share_all(0);
  rdp.event(LUMSAR_CHANNEL_CLOSED);
  rdp.deinit();
  return status == LUMSAR_INIT_FAILED && share_status == LUMSAR_NOT_INITIALIZED ? 0 : 1;
}
