#include "app/AllocatorTuning.hpp"

#include <malloc.h>

namespace quillstow {

namespace {

// A block this big is mapped on its own, and unmapped when freed; and an arena whose free top
// grows past it gives that back at once.
constexpr int blockOfItsOwn = 1 << 20;

}  // namespace

void tuneAllocatorForLongIdles() {
    // Left to itself, glibc raises both thresholds with every big block freed: after one pass,
    // blocks of up to 32 MiB are carved from the arenas, and an arena keeps up to 64 MiB free
    // at its top. malloc_trim gives the main arena's top back, but only the free chunks inside
    // the arenas of other threads, where passes, writes and watches run: 10 MiB and more stayed
    // resident after a pass over 50,000 folders. Set, the thresholds stay where they are.
    ::mallopt(M_MMAP_THRESHOLD, blockOfItsOwn);
    ::mallopt(M_TRIM_THRESHOLD, blockOfItsOwn);
}

}  // namespace quillstow
