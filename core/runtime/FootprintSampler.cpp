#include "runtime/FootprintSampler.h"

#include "base/MainThread.h"
#include "runtime/ProcessTable.h"

#include <QPointer>
#include <QProcess>
#include <QThreadPool>

namespace sayvo {

FootprintSampler::FootprintSampler(pid_t rootPID, double intervalSeconds, QObject *parent)
    : FootprintSampler(
        rootPID, intervalSeconds, std::shared_ptr<GpuStats>(createGpuStats()), parent)
{ }

FootprintSampler::FootprintSampler(
    pid_t rootPID, double intervalSeconds, std::shared_ptr<GpuStats> gpu, QObject *parent)
    : QObject(parent), m_rootPID(rootPID), m_intervalSeconds(intervalSeconds), m_gpu(std::move(gpu))
{
    qRegisterMetaType<std::optional<EngineFootprint>>();
}

void FootprintSampler::start()
{
    if (m_timer) {
        return;
    }
    sample();
    m_timer = new QTimer(this);
    m_timer->setInterval(static_cast<int>(m_intervalSeconds * 1000.0));
    connect(m_timer, &QTimer::timeout, this, &FootprintSampler::sample);
    m_timer->start();
}

void FootprintSampler::sample()
{
    QPointer<QObject> guard(this);
    QThreadPool::globalInstance()->start([this, guard, root = m_rootPID, gpu = m_gpu] {
        std::optional<EngineFootprint> footprint = sampleTree(root);
        if (footprint && gpu) {
            footprint->gpuPercent = gpu->utilisationPercent();
        }
        postToMainThread(guard, [this, footprint] { publish(footprint); });
    });
}

void FootprintSampler::publish(const std::optional<EngineFootprint> &footprint)
{
    m_footprint = footprint;
    emit footprintChanged(m_footprint);
}

std::optional<EngineFootprint> FootprintSampler::sampleTree(pid_t root)
{
    QProcess ps;
    ps.setProgram(QString::fromLatin1(kPsProgram));
    ps.setArguments({QStringLiteral("-axo"), QStringLiteral("pid=,ppid=,rss=,pcpu=")});
    ps.setStandardErrorFile(QProcess::nullDevice());
    ps.start(QIODevice::ReadOnly);
    if (!ps.waitForStarted(-1)) {
        return std::nullopt;
    }
    QByteArray output;
    while (ps.waitForReadyRead(kPsTimeoutMs)) {
        output.append(ps.readAllStandardOutput());
    }
    ps.waitForFinished(kPsTimeoutMs);
    output.append(ps.readAllStandardOutput());
    if (ps.state() != QProcess::NotRunning) {
        ps.kill();
        ps.waitForFinished(-1);
        return std::nullopt;
    }
    return footprintOfTree(output, root);
}

std::optional<double> FootprintSampler::sampleGPUPercent()
{
    return createGpuStats()->utilisationPercent();
}

} // namespace sayvo
