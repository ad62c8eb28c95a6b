#include "runtime/ProcessTreeMeter.h"

#include "runtime/ProcessTable.h"

#include <algorithm>
#include <thread>

namespace sayvo {

ProcessTreeMeter::ProcessTreeMeter(ReadTable read, std::chrono::milliseconds firstWindow, Now now)
    : m_read(std::move(read)), m_firstWindow(firstWindow), m_now(std::move(now))
{ }

std::optional<ProcessTreeMeter::Reading> ProcessTreeMeter::read(pid_t root) const
{
    const std::optional<Table> table = m_read();
    const auto at = m_now();
    if (!table) {
        return std::nullopt;
    }
    std::vector<ProcessLink> links;
    links.reserve(table->size());
    for (const ProcessUsage &process : *table) {
        links.push_back(ProcessLink {process.pid, process.parent});
    }
    const auto members = treeUnder(links, root);
    if (!members) {
        return std::nullopt;
    }
    Reading reading;
    reading.at = at;
    for (const std::size_t i : *members) {
        const ProcessUsage &process = (*table)[i];
        ++reading.footprint.processCount;
        if (__builtin_add_overflow(reading.footprint.residentBytes, process.residentBytes,
                &reading.footprint.residentBytes)) {
            return std::nullopt;
        }
        reading.cpuSeconds += process.cpuSeconds;
    }
    return reading;
}

std::optional<EngineFootprint> ProcessTreeMeter::sample(pid_t root)
{
    if (!m_previous || m_previousRoot != root) {
        m_previous = read(root);
        m_previousRoot = root;
        if (!m_previous) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(m_firstWindow);
    }
    std::optional<Reading> now = read(root);
    if (!now) {
        m_previous.reset();
        return std::nullopt;
    }
    const double seconds = std::chrono::duration<double>(now->at - m_previous->at).count();
    // A process that left the tree without being collected in it takes its time along; the
    // figure never goes below nothing.
    const double used = std::max(0.0, now->cpuSeconds - m_previous->cpuSeconds);
    now->footprint.cpuPercent = seconds > 0.0 ? 100.0 * used / seconds : 0.0;
    m_previous = now;
    return now->footprint;
}

} // namespace sayvo
