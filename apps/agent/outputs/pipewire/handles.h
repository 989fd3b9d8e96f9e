// Owners of PipeWire's objects, and the boundary of its callbacks.
#pragma once

#include <pipewire/pipewire.h>

#include <exception>
#include <memory>
#include <new>

#include "base/log.h"

namespace lumsar::agent {

template <auto function>
struct Destroy {
  void operator()(auto* object) const { function(object); }
};
template <class Object, auto function>
using Handle = std::unique_ptr<Object, Destroy<function>>;

// Runs what PipeWire calls: nothing that is thrown gets into its C functions.
template <class Work>
void guarded(Work work) noexcept {
  try {
    work();
  } catch (const std::bad_alloc&) {
    // There is no memory to say so; the next frame begins again.
  } catch (const std::exception& error) {
    base::logError("PipeWire: {}", error.what());
  }
}

}  // namespace lumsar::agent
