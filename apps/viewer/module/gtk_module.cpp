// The GTK 3 module: waits, in whatever program has loaded it, for a SPICE port that carries
// cameras, and only then loads the library with all the rest.
#include <spice-client.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/system/dynamic_library.h"
#include "protocol/names.h"

extern "C" __attribute__((visibility("default"))) void gtk_module_init(int* argc, char*** argv);

namespace {

using ViewerPort = void(SpicePortChannel* port, int isOpen);

ViewerPort* load() {
  ViewerPort* bound = nullptr;
  try {
    lumsar::base::DynamicLibrary(LUMSAR_VIEWER_LIBRARY).bind("lumsarViewerPort", bound);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar: no cameras: %s\n", error.what());
  }
  return bound;
}

// The library, loaded once by a thread: from a slow disk that takes longer than a desktop may stand
// still. Ports that appear meanwhile wait. Bound to GTK's thread.
class Library {
 public:
  void tell(SpicePortChannel* port, bool isOpen) {
    if (m_isLoaded) return call(port, isOpen);
    m_waiting.emplace_back(SPICE_PORT_CHANNEL(g_object_ref(port)), g_object_unref);
    if (!std::exchange(m_isLoading, true)) start();
  }

 private:
  using Port = std::unique_ptr<SpicePortChannel, decltype(&g_object_unref)>;

  void start() try {
    std::thread([this] {
      m_call = load();
      g_idle_add_full(
          G_PRIORITY_DEFAULT,
          [](gpointer self) -> gboolean {
            static_cast<Library*>(self)->loaded();
            return G_SOURCE_REMOVE;
          },
          this, nullptr);
    }).detach();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar: no cameras: %s\n", error.what());
  }

  void loaded() {
    m_isLoaded = true;
    for (const Port& port : std::exchange(m_waiting, {})) {
      gboolean isOpen = FALSE;
      g_object_get(port.get(), "port-opened", &isOpen, nullptr);
      call(port.get(), isOpen == TRUE);
    }
  }

  void call(SpicePortChannel* port, bool isOpen) const {
    if (m_call != nullptr) m_call(port, isOpen ? 1 : 0);
  }

  ViewerPort* m_call = nullptr;  // the thread's, until it is loaded
  std::vector<Port> m_waiting;
  bool m_isLoading = false;
  bool m_isLoaded = false;
};

bool hasCameras(SpicePortChannel* port) {
  g_autofree char* name = nullptr;
  g_object_get(port, "port-name", &name, nullptr);
  return name != nullptr && std::strcmp(name, lumsar::protocol::kSpicePortName) == 0;
}

void appeared(SpicePortChannel* port, bool isOpen) {
  // Its thread may outlive everything else.
  static auto* library = new Library;
  if (hasCameras(port)) library->tell(port, isOpen);
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
