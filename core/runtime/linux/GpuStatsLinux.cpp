#include "runtime/linux/GpuStatsLinux.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

namespace sayvo {

namespace {

std::optional<double> larger(std::optional<double> a, std::optional<double> b)
{
    if (!a) {
        return b;
    }
    if (!b) {
        return a;
    }
    return std::max(*a, *b);
}

std::optional<double> parsePercent(const QByteArray &text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok) {
        return std::nullopt;
    }
    return value;
}

} // namespace

GpuStatsLinux::GpuStatsLinux() : GpuStatsLinux(QStringLiteral("/sys/class/drm"), QStringList()) { }

GpuStatsLinux::GpuStatsLinux(QString drmRoot, QStringList searchPath)
    : m_drmRoot(std::move(drmRoot)), m_searchPath(std::move(searchPath))
{ }

std::optional<double> GpuStatsLinux::utilisationPercent()
{
    return larger(drmBusyPercent(), nvidiaPercent());
}

std::optional<double> GpuStatsLinux::drmBusyPercent() const
{
    std::optional<double> best;
    const QDir root(m_drmRoot);
    // card0, card1, ...; connector entries (card0-DP-1) have no device statistics.
    for (const QString &entry : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System)) {
        QFile busy(root.filePath(entry + QStringLiteral("/device/gpu_busy_percent")));
        if (busy.open(QIODevice::ReadOnly)) {
            best = larger(best, parsePercent(busy.readAll()));
        }
    }
    return best;
}

std::optional<double> GpuStatsLinux::nvidiaPercent() const
{
    const QString program
        = QStandardPaths::findExecutable(QStringLiteral("nvidia-smi"), m_searchPath);
    if (program.isEmpty()) {
        return std::nullopt;
    }
    QProcess smi;
    smi.setStandardErrorFile(QProcess::nullDevice());
    smi.start(program,
        {QStringLiteral("--query-gpu=utilization.gpu"),
            QStringLiteral("--format=csv,noheader,nounits")},
        QIODevice::ReadOnly);
    if (!smi.waitForFinished(kNvidiaSmiTimeoutMs)) {
        smi.kill();
        smi.waitForFinished(-1);
        return std::nullopt;
    }
    if (smi.exitStatus() != QProcess::NormalExit || smi.exitCode() != 0) {
        return std::nullopt;
    }
    return parseNvidiaSmi(smi.readAllStandardOutput());
}

std::optional<double> GpuStatsLinux::parseNvidiaSmi(const QByteArray &output)
{
    std::optional<double> best;
    for (const QByteArray &line : output.split('\n')) {
        best = larger(best, parsePercent(line));
    }
    return best;
}

std::unique_ptr<GpuStats> createGpuStats()
{
    return std::make_unique<GpuStatsLinux>();
}

} // namespace sayvo
