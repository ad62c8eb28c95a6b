#include "base/LatencyTrace.h"

#include <chrono>

namespace sayvo {

Q_LOGGING_CATEGORY(lcLatency, "com.sayvoapp.shell.latency", QtInfoMsg)

void markLatency(const char *mark)
{
    if (!lcLatency().isDebugEnabled()) {
        return;
    }
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    qCDebug(lcLatency, "latency: %s %lld", mark,
        static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
}

} // namespace sayvo
