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
    : FootprintSampler(rootPID, intervalSeconds, std::move(gpu),
        std::shared_ptr<ProcessStats>(createProcessStats()), parent)
{ }

FootprintSampler::FootprintSampler(pid_t rootPID, double intervalSeconds,
    std::shared_ptr<GpuStats> gpu, std::shared_ptr<ProcessStats> processes, QObject *parent)
    : QObject(parent),
      m_rootPID(rootPID),
      m_intervalSeconds(intervalSeconds),
      m_gpu(std::move(gpu)),
      m_processes(std::move(processes))
{
    qRegisterMetaType<std::optional<EngineFootprint>>();
    // One sample at a time: the process statistics compare each reading with the last.
    m_thread.setMaxThreadCount(1);
}

FootprintSampler::~FootprintSampler()
{
    m_thread.clear();
    m_thread.waitForDone();
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
    m_thread.start([this, guard, root = m_rootPID, gpu = m_gpu, processes = m_processes] {
        std::optional<EngineFootprint> footprint = processes->sampleTree(root);
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
