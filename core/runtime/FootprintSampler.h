#pragma once

#include "runtime/EngineFootprint.h"
#include "runtime/GpuStats.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>
#include <sys/types.h>

namespace sayvo {

// Samples the memory, CPU and GPU cost of the process tree under rootPID (the app, the shell
// it starts the engine through, and the engine's own children) every `interval` seconds once
// started. Sampling runs on the thread pool; footprint changes only on the main thread,
// where the object lives. There is no stop: the timer ends with the sampler.
class FootprintSampler : public QObject
{
    Q_OBJECT

public:
    FootprintSampler(pid_t rootPID, double intervalSeconds, QObject *parent = nullptr);
    // With the GPU statistics to use (tests); shared with the sampling threads.
    FootprintSampler(pid_t rootPID, double intervalSeconds, std::shared_ptr<GpuStats> gpu,
        QObject *parent = nullptr);

    const std::optional<EngineFootprint> &footprint() const { return m_footprint; }
    pid_t rootPID() const { return m_rootPID; }
    double intervalSeconds() const { return m_intervalSeconds; }
    bool isStarted() const { return m_timer != nullptr; }

    // Samples at once and then every interval; a second call changes nothing.
    void start();

    // Runs "/bin/ps" and totals the tree under root; the GPU figure is left absent.
    static std::optional<EngineFootprint> sampleTree(pid_t root);
    static std::optional<double> sampleGPUPercent();

    static constexpr const char *kPsProgram = "/bin/ps";
    static constexpr int kPsTimeoutMs = 10000;

signals:
    // Every sample is published, also when it equals the one before.
    void footprintChanged(const std::optional<sayvo::EngineFootprint> &footprint);

private:
    void sample();
    void publish(const std::optional<EngineFootprint> &footprint);

    std::optional<EngineFootprint> m_footprint;
    pid_t m_rootPID;
    double m_intervalSeconds;
    QTimer *m_timer = nullptr;
    std::shared_ptr<GpuStats> m_gpu;
};

} // namespace sayvo
