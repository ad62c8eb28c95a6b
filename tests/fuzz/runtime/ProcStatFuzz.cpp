// A /proc/PID/stat text as the kernel writes it, whose command name any local user chooses
// (spaces, parentheses, digits): the parser must never crash or read out of bounds.
#include "runtime/ProcStat.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    if (const auto usage = sayvo::parseProcStat(text, 100.0, 4096)) {
        if (usage->cpuSeconds < 0.0) {
            __builtin_trap();
        }
    }
    return 0;
}
