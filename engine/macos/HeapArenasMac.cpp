#include "engine/HeapArenas.h"

namespace sayvo {

// The system allocator keeps its magazines per core, not per thread, and hands emptied
// regions back: there is no per-thread heap to merge.
void shareOneHeapAcrossThreads() { }

} // namespace sayvo
