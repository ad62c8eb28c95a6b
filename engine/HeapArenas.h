#pragma once

namespace sayvo {

// Has every thread of the process allocate from one heap, where the platform's allocator
// would give each thread its own. The recognition workers allocate a search's tables for
// every utterance; with a heap each, every worker kept its own high-water mark of them
// beside the one the start-up warm-up had already set in the main thread's heap, and the
// engine grew by that much over its first dictations. The workers spend their time
// computing, not allocating, so one heap costs them no waiting worth measuring.
void shareOneHeapAcrossThreads();

} // namespace sayvo
