/* The plug-in `liblumsar.so.1` for an RDP host in C: plugin.h, which is for C++, documents the same
 * functions. C99, also to be included by C++.
 *
 *   struct LumsarRdp rdp;
 *   if (!lumsar_rdp_load(&rdp, "liblumsar.so.1")) { fprintf(stderr, "%s\n", dlerror()); ... }
 *   int status = rdp.init("vm-7", send_to_vm);
 *   if (status != LUMSAR_OK) ...
 *   rdp.event(LUMSAR_CHANNEL_OPENED);
 *
 * Threads and callables: as plugin.h says. */
#ifndef LUMSAR_RDP_H
#define LUMSAR_RDP_H

#include <dlfcn.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* A message is a header of this size, which says how long it is, and its payload. */
#define LUMSAR_HEADER_SIZE 32

/* The size of the message that begins with this header; 0 when it is not a valid header. */
static inline size_t lumsar_message_size(const unsigned char* header) {
  uint32_t magic, length;
  memcpy(&magic, header, sizeof magic);
  memcpy(&length, header + 8, sizeof length);
  size_t size = LUMSAR_HEADER_SIZE;
  size += length;
  return magic == 0x5643414D ? size : 0;
}

/* What init and share_all return; plugin.h has the others. */
enum LumsarRdpStatus {
  LUMSAR_OK = 0,
  LUMSAR_INIT_FAILED = 1, /* the IPC library could not be bound or created no client */
  LUMSAR_NOT_INITIALIZED = 16,
  LUMSAR_ALREADY_INITIALIZED = 17,
  LUMSAR_NOT_CONNECTED = 30
};

enum LumsarRdpChannelEvent { LUMSAR_CHANNEL_OPENED = 0, LUMSAR_CHANNEL_CLOSED = 1 };

#define LUMSAR_RDP_FRAGMENT_SIZE 1536

/* Sends a fragment of at most LUMSAR_RDP_FRAGMENT_SIZE bytes of a message to the VM; 0 for success.
 * `data` is valid during the call only. Called on any thread. */
typedef int (*LumsarRdpSend)(unsigned char* data, int length);

struct LumsarRdp {
  /* Initialises and connects to the camera service. The IPC library is loaded from
   * "./Device Redirect/libvdi_ipc.so". */
  int (*init)(const char* vm_id, LumsarRdpSend send);
  void (*deinit)(void);
  /* Reports a LumsarRdpChannelEvent. */
  void (*event)(int event);
  /* Takes one complete message from the VM, header first; the bytes remain the caller's. */
  void (*handler)(unsigned char* data, int length);
  /* Shares all cameras with a session of the VM. */
  int (*share_all)(int session_id);
};

/* POSIX lets a function's address be kept as that of an object; C needs a copy for it. */
static inline int lumsar_rdp_bind(void* library, const char* symbol, void* function) {
  void* address = dlsym(library, symbol);
  memcpy(function, &address, sizeof address);
  return address != 0;
}

/* Loads the plug-in, which stays in the process. 0 when it cannot be loaded or is not a plug-in;
 * dlerror() says why. */
static inline int lumsar_rdp_load(struct LumsarRdp* rdp, const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  return library != 0 && lumsar_rdp_bind(library, "RdpInit", &rdp->init) &&
         lumsar_rdp_bind(library, "RdpDeInit", &rdp->deinit) &&
         lumsar_rdp_bind(library, "RdpEvent", &rdp->event) &&
         lumsar_rdp_bind(library, "Handler", &rdp->handler) &&
         lumsar_rdp_bind(library, "ShareAll", &rdp->share_all);
}

#endif
