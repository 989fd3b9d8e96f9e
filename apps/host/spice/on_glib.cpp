#include "spice/on_glib.h"

#include <glib.h>

#include <exception>
#include <utility>

namespace lumsar::host {

void onGlib(std::function<void()> call) {
  auto* owned = new std::function<void()>(std::move(call));  // freed by the last argument
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer data) -> gboolean {
        try {
          (*static_cast<std::function<void()>*>(data))();
        } catch (const std::exception& error) {
          g_warning("lumsar: %s", error.what());
        }
        return G_SOURCE_REMOVE;
      },
      owned, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

}  // namespace lumsar::host
