#pragma once

#include "runtime/EngineFootprint.h"
#include "runtime/ProcStat.h"

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace sayvo {

// Measures the process tree under a root from a process table whose CPU times count up
// from each process's start: its CPU figure is the share of one core the tree used between
// this reading and the one before (several cores: above 100), which says how busy it is
// now, unlike an average over the processes' lives. A process that ended inside the tree
// still counts through the parent that collected it. The first sample reads twice,
// `firstWindow` apart. Not thread-safe; the readings block.
class ProcessTreeMeter
{
public:
    using Table = std::vector<ProcessUsage>;
    // The whole process table, or nothing when it cannot be read.
    using ReadTable = std::function<std::optional<Table>()>;
    using Clock = std::chrono::steady_clock;

    using Now = std::function<Clock::time_point()>;

    explicit ProcessTreeMeter(
        ReadTable read, std::chrono::milliseconds firstWindow = std::chrono::milliseconds(250),
        Now now = [] { return Clock::now(); });

    // Nothing when the table cannot be read or the root is not in it. The GPU figure is left
    // absent.
    std::optional<EngineFootprint> sample(pid_t root);

private:
    struct Reading
    {
        EngineFootprint footprint;
        double cpuSeconds = 0.0;
        Clock::time_point at;
    };
    std::optional<Reading> read(pid_t root) const;

    ReadTable m_read;
    std::chrono::milliseconds m_firstWindow;
    Now m_now;
    std::optional<Reading> m_previous;
    pid_t m_previousRoot = 0;
};

} // namespace sayvo
