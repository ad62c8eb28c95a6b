#pragma once

#include "runtime/GpuStats.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace sayvo {

// GPU utilisation on Linux: the highest "gpu_busy_percent" that a DRM device under drmRoot
// reports (amdgpu and others), and, when nvidia-smi is found on the search path, the
// utilisation of each NVIDIA GPU. The largest of all is the answer.
class GpuStatsLinux : public GpuStats
{
public:
    GpuStatsLinux(); // /sys/class/drm and $PATH
    GpuStatsLinux(QString drmRoot, QStringList searchPath);

    std::optional<double> utilisationPercent() override;

    // The highest percent in the output of
    // `nvidia-smi --query-gpu=utilization.gpu --format=csv,noheader,nounits`.
    static std::optional<double> parseNvidiaSmi(const QByteArray &output);

    static constexpr int kNvidiaSmiTimeoutMs = 5000;

private:
    std::optional<double> drmBusyPercent() const;
    std::optional<double> nvidiaPercent() const;

    QString m_drmRoot;
    QStringList m_searchPath;
};

} // namespace sayvo
