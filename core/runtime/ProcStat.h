#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <sys/types.h>

namespace sayvo {

// What one process costs, with its CPU time counted since it started: its own, plus that of
// the children it has collected (so a child that came and went still counts, through its
// parent).
struct ProcessUsage
{
    pid_t pid = 0;
    pid_t parent = 0;
    std::uint64_t residentBytes = 0;
    double cpuSeconds = 0.0;
};

// Reads the text of a Linux /proc/PID/stat file: "pid (comm) state ppid ..." with the CPU
// times in clock ticks (fields 14 to 17) and the resident set in pages (field 24). The
// command name may hold spaces and parentheses, so the fields are counted from its last
// closing parenthesis. Nothing when the text does not parse.
std::optional<ProcessUsage> parseProcStat(
    std::string_view text, double ticksPerSecond, std::uint64_t pageBytes);

} // namespace sayvo
