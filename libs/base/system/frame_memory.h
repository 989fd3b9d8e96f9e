// What the C library does with the memory of a frame: by default it may go back to the system each
// time, and clearing new pages for the next frame costs as much as copying it.
#pragma once

#include <malloc.h>

namespace lumsar::base {

// Once, at a program's start. Larger blocks go back at once; so much that is free is kept.
inline void keepFrameMemory() {
  constexpr int kKept = 4 << 20;
  mallopt(M_MMAP_THRESHOLD, kKept);
  mallopt(M_TRIM_THRESHOLD, kKept);
}

}  // namespace lumsar::base
