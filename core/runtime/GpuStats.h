#pragma once

#include <memory>
#include <optional>

namespace sayvo {

// The machine's GPU utilisation as the platform reports it. Called on a background thread.
class GpuStats
{
public:
    virtual ~GpuStats() = default;

    // The busiest GPU's utilisation in percent; absent when no GPU reports one.
    virtual std::optional<double> utilisationPercent() = 0;
};

// This platform's GPU statistics. Implemented once per platform.
std::unique_ptr<GpuStats> createGpuStats();

} // namespace sayvo
