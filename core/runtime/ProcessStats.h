#pragma once

#include "runtime/EngineFootprint.h"

#include <memory>
#include <optional>
#include <sys/types.h>

namespace sayvo {

// What the process tree under a root costs the machine, as the platform lets it be read:
// count, resident memory and current CPU use. Called on one background thread at a time;
// implementations may keep what they read last, to tell current use from past use.
class ProcessStats
{
public:
    virtual ~ProcessStats() = default;

    // Nothing when the root is not running or the process table cannot be read. The GPU
    // figure is left absent.
    virtual std::optional<EngineFootprint> sampleTree(pid_t root) = 0;
};

// This platform's process statistics. Implemented once per platform.
std::unique_ptr<ProcessStats> createProcessStats();

} // namespace sayvo
