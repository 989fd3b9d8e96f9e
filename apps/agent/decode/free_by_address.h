// Frees what libavcodec and libavutil free by the address of a pointer.
#pragma once

namespace lumsar::agent {

template <auto function>
struct FreeByAddress {
  void operator()(auto* object) const { function(&object); }
};

}  // namespace lumsar::agent
