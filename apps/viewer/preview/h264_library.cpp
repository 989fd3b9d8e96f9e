// Loads the library that makes H264Images.
#include <exception>

#include "base/system/dynamic_library.h"
#include "preview/h264_images.h"

namespace lumsar::viewer {

namespace {

using Make = H264Images*();

Make* load() {
  Make* make = nullptr;
  try {
    base::DynamicLibrary("liblumsar-viewer-h264.so").bind("lumsarH264Images", make);
  } catch (const std::exception&) {
    return nullptr;  // the window says so
  }
  return make;
}

}  // namespace

std::unique_ptr<H264Images> loadH264Images() {
  static Make* const make = load();
  return std::unique_ptr<H264Images>(make != nullptr ? make() : nullptr);
}

}  // namespace lumsar::viewer
