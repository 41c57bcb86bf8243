#pragma once

// How the C library's allocator is set for this program, which works in bursts (a pass over
// every item of a source, its plan and its hash database) and idles for hours in between: what
// a burst freed goes back to the system, from every thread, without waiting for a trim.
//
// Process-wide: called once by the program, on the main thread, as it starts.

namespace quillstow {

void tuneAllocatorForLongIdles();

}  // namespace quillstow
