// Access to plain fields that two threads may touch at once, such as a flag that the host's thread
// clears while the IPC library's thread reads it: no tearing, no ordering, no cost.
#pragma once

#include <atomic>
#include <type_traits>

template <class T>
T loadRelaxed(T& field) {
  return std::atomic_ref<T>(field).load(std::memory_order_relaxed);
}

template <class T>
void storeRelaxed(T& field, std::type_identity_t<T> value) {
  std::atomic_ref<T>(field).store(value, std::memory_order_relaxed);
}
