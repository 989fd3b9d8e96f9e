// Frees what libavcodec and libavutil free by the address of a pointer.
#pragma once

namespace lumsar::video {

template <auto function>
struct FreeByAddress {
  void operator()(auto* object) const { function(&object); }
};

}  // namespace lumsar::video
