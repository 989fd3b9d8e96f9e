// The GTK 3 module: waits, in whatever program has loaded it, for a SPICE port that carries
// cameras, and only then loads the library with all the rest.
#include <spice-client.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "base/system/dynamic_library.h"
#include "protocol/names.h"

extern "C" __attribute__((visibility("default"))) void gtk_module_init(int* argc, char*** argv);

namespace {

using ViewerPort = void(SpicePortChannel* port, int isOpen);

// None when it cannot be loaded, which is said once.
ViewerPort* viewerPort() {
  static ViewerPort* const function = [] {
    ViewerPort* bound = nullptr;
    try {
      lumsar::base::DynamicLibrary(LUMSAR_VIEWER_LIBRARY).bind("lumsarViewerPort", bound);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "lumsar: no cameras: %s\n", error.what());
    }
    return bound;
  }();
  return function;
}

bool hasCameras(SpicePortChannel* port) {
  g_autofree char* name = nullptr;
  g_object_get(port, "port-name", &name, nullptr);
  return name != nullptr && std::strcmp(name, lumsar::protocol::kSpicePortName) == 0;
}

void appeared(SpicePortChannel* port, bool isOpen) {
  if (hasCameras(port) && viewerPort() != nullptr) viewerPort()(port, isOpen ? 1 : 0);
}

// A port that is open already reports so before its name, which can be asked for then.
void watch(SpiceChannel* port) {
  g_signal_connect(port, "port-event", G_CALLBACK(+[](SpicePortChannel* self, int event, gpointer) {
                     appeared(self, event == SPICE_PORT_EVENT_OPENED);
                   }),
                   nullptr);
  g_signal_connect(
      port, "notify::port-name",
      G_CALLBACK(+[](SpicePortChannel* self, GParamSpec*, gpointer) { appeared(self, false); }),
      nullptr);
  // Not every viewer connects ports that it does not know, and some break if that happens before
  // they have seen the channel themselves.
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer channel) -> gboolean {
        spice_channel_connect(SPICE_CHANNEL(channel));
        return G_SOURCE_REMOVE;
      },
      g_object_ref(port), g_object_unref);
}

gboolean channelAppeared(GSignalInvocationHint*, guint count, const GValue* values, gpointer) {
  void* channel = count > 1 ? g_value_get_object(&values[1]) : nullptr;
  // Not what is derived from it: a shared folder is a port, too.
  if (channel != nullptr && G_OBJECT_TYPE(channel) == SPICE_TYPE_PORT_CHANNEL) {
    watch(SPICE_CHANNEL(channel));
  }
  return TRUE;
}

}  // namespace

void gtk_module_init(int*, char***) {
  static bool isDone = false;
  if (isDone) return;
  isDone = true;
  g_type_class_ref(SPICE_TYPE_SESSION);
  g_signal_add_emission_hook(g_signal_lookup("channel-new", SPICE_TYPE_SESSION), 0, channelAppeared,
                             nullptr, nullptr);
}
