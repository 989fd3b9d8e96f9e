#include "addin/open_panel.h"

#include <dlfcn.h>

#include <exception>
#include <stdexcept>

#include "base/system/dynamic_library.h"
#include "base/text/format.h"
#include "base/version.h"
#include "driver/find_libraries.h"

namespace lumsar::host {

namespace {

// Of the program itself, which has initialised it: two GTKs in one process would break both.
template <class Result>
Result askGtk(const char* function) {
  const auto call = reinterpret_cast<Result (*)()>(dlsym(RTLD_DEFAULT, function));
  return call != nullptr ? call() : Result{};
}

bool clientHasGtk3() {
  return askGtk<unsigned>("gtk_get_major_version") == 3 &&
         askGtk<void*>("gdk_display_get_default") != nullptr;
}

}  // namespace

std::unique_ptr<CameraPanel> openPanel(const std::string& directory, const std::string& vm,
                                       CameraControl& control,
                                       const std::function<void(const std::string&)>& explain) {
  try {
    if (!clientHasGtk3()) throw std::runtime_error("this program does not use GTK 3");
    OpenPanel* open = nullptr;
    base::DynamicLibrary(findPanelLibrary(directory)).bind(kOpenPanel, open);
    std::unique_ptr<CameraPanel> panel(open(base::kVersion, vm.c_str(), &control));
    if (!panel) {
      throw std::runtime_error("liblumsar-viewer.so is of another version");
    }
    return panel;
  } catch (const std::exception& error) {
    explain(base::text("no camera window: {}", error.what()));
    return nullptr;
  }
}

}  // namespace lumsar::host
