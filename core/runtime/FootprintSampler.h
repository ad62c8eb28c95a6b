#pragma once

#include "runtime/EngineFootprint.h"
#include "runtime/GpuStats.h"
#include "runtime/ProcessStats.h"

#include <QObject>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <optional>
#include <sys/types.h>

namespace sayvo {

// Samples the memory, CPU and GPU cost of the process tree under rootPID (the app, the shell
// it starts the engine through, and the engine's own children) every `interval` seconds once
// started. The CPU figure is the tree's current use, as the platform's ProcessStats reads it.
// Sampling runs on a background thread of the sampler's own, one sample at a time; footprint
// changes only on the main thread, where the object lives. There is no stop: the timer ends
// with the sampler, whose destruction waits for a sample under way.
class FootprintSampler : public QObject
{
    Q_OBJECT

public:
    FootprintSampler(pid_t rootPID, double intervalSeconds, QObject *parent = nullptr);
    // With the statistics to use (tests); used on the sampling thread.
    FootprintSampler(pid_t rootPID, double intervalSeconds, std::shared_ptr<GpuStats> gpu,
        QObject *parent = nullptr);
    FootprintSampler(pid_t rootPID, double intervalSeconds, std::shared_ptr<GpuStats> gpu,
        std::shared_ptr<ProcessStats> processes, QObject *parent = nullptr);
    ~FootprintSampler() override;

    const std::optional<EngineFootprint> &footprint() const { return m_footprint; }
    pid_t rootPID() const { return m_rootPID; }
    double intervalSeconds() const { return m_intervalSeconds; }
    bool isStarted() const { return m_timer != nullptr; }

    // Samples at once and then every interval; a second call changes nothing.
    void start();

    // Runs "/bin/ps" and totals the tree under root, with the CPU figures ps reports; the GPU
    // figure is left absent.
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
    std::shared_ptr<ProcessStats> m_processes;
    QThreadPool m_thread;
};

} // namespace sayvo
