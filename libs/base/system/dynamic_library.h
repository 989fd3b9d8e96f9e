// A library that is loaded at run time and stays loaded. Not for static programs.
#pragma once

#include <dlfcn.h>

#include <string>

#include "base/errors.h"

namespace lumsar::base {

class DynamicLibrary {
 public:
  // Throws Failure with the loader's own text, as bind() does.
  explicit DynamicLibrary(const std::string& path)
      : m_handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_handle == nullptr) throw Failure(dlerror());
  }

  template <class Function>
  void bind(const char* symbol, Function*& function) const {
    void* address = dlsym(m_handle, symbol);
    if (address == nullptr) throw Failure(dlerror());
    function = reinterpret_cast<Function*>(address);
  }

 private:
  void* m_handle;
};

}  // namespace lumsar::base
