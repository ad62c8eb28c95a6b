#pragma once

#include <QMetaType>

#include <cstdint>
#include <optional>

namespace sayvo {

// What the application's process tree costs the machine at one moment.
struct EngineFootprint
{
    int processCount = 0; // processes in the tree, root included
    std::uint64_t residentBytes = 0; // sum of resident set sizes
    double cpuPercent = 0.0; // current use, in percent of one core; may exceed 100
    std::optional<double> gpuPercent; // system-wide; absent when no GPU reports one
    bool operator==(const EngineFootprint &) const = default;
};

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::EngineFootprint)
Q_DECLARE_METATYPE(std::optional<sayvo::EngineFootprint>)
