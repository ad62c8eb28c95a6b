#include "runtime/ProcessStats.h"
#include "runtime/ProcessTreeMeter.h"

#include <QDir>
#include <QFile>

#include <unistd.h>

namespace sayvo {

namespace {

// Every process's /proc/PID/stat; processes that end while the table is read are skipped.
std::optional<ProcessTreeMeter::Table> readProcTable()
{
    static const double kTicksPerSecond = static_cast<double>(::sysconf(_SC_CLK_TCK));
    static const auto kPageBytes = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const QDir proc(QStringLiteral("/proc"));
    if (!proc.exists()) {
        return std::nullopt;
    }
    ProcessTreeMeter::Table table;
    for (const QString &entry : proc.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        entry.toInt(&numeric);
        if (!numeric) {
            continue;
        }
        QFile stat(proc.filePath(entry + QStringLiteral("/stat")));
        if (!stat.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QByteArray text = stat.readAll();
        if (const auto usage = parseProcStat(
                std::string_view(text.constData(), static_cast<std::size_t>(text.size())),
                kTicksPerSecond, kPageBytes)) {
            table.push_back(*usage);
        }
    }
    return table;
}

class ProcessStatsLinux : public ProcessStats
{
public:
    std::optional<EngineFootprint> sampleTree(pid_t root) override { return m_meter.sample(root); }

private:
    ProcessTreeMeter m_meter {&readProcTable};
};

} // namespace

std::unique_ptr<ProcessStats> createProcessStats()
{
    return std::make_unique<ProcessStatsLinux>();
}

} // namespace sayvo
