#include "base/LatencyTrace.h"

#include <QFile>

#include <chrono>
#include <ctime>

namespace sayvo {

Q_LOGGING_CATEGORY(lcLatency, "com.sayvoapp.shell.latency", QtInfoMsg)

namespace {

long long threadCpuNs()
{
    timespec cpu {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
    return static_cast<long long>(cpu.tv_sec) * 1'000'000'000LL + cpu.tv_nsec;
}

// The second field of the thread's schedstat: nanoseconds spent on a run queue. -1 where the
// system keeps no such figure.
long long threadRunDelayNs()
{
    QFile schedstat(QStringLiteral("/proc/thread-self/schedstat"));
    if (!schedstat.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QList<QByteArray> fields = schedstat.readLine().trimmed().split(' ');
    bool ok = false;
    const long long delay = fields.value(1).toLongLong(&ok);
    return ok ? delay : -1;
}

} // namespace

void markLatency(const char *mark)
{
    if (!lcLatency().isDebugEnabled()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const long long cpu = threadCpuNs();
    const long long waited = threadRunDelayNs();
    const auto atNs
        = static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
    if (waited < 0) {
        qCDebug(lcLatency, "latency: %s %lld cpu %lld", mark, atNs, cpu);
        return;
    }
    qCDebug(lcLatency, "latency: %s %lld cpu %lld waited %lld", mark, atNs, cpu, waited);
}

} // namespace sayvo
