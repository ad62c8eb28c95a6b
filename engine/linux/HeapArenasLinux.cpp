#include "engine/HeapArenas.h"

#include <malloc.h>

namespace sayvo {

void shareOneHeapAcrossThreads()
{
    // glibc makes arenas lazily, so this holds for every thread started after it.
    mallopt(M_ARENA_MAX, 1);
}

} // namespace sayvo
