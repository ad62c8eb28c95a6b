// Feeds arbitrary bytes to the process-listing parser as if ps had printed them; the first
// four bytes choose the root.
#include "runtime/ProcessTable.h"

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    pid_t root = 1;
    if (size >= sizeof root) {
        std::memcpy(&root, data, sizeof root);
        data += sizeof root;
        size -= sizeof root;
    }
    const auto text = QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto footprint = sayvo::footprintOfTree(text, root)) {
        if (footprint->processCount < 1) {
            __builtin_trap();
        }
    }
    sayvo::footprintOfTree(text, 1);
    return 0;
}
