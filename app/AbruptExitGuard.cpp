#include "app/AbruptExitGuard.h"

#include "base/Logging.h"

#include <QString>

#include <cstdlib>
#include <utility>

namespace sayvo {

namespace {
AbruptExitGuard *g_guard = nullptr;
} // namespace

AbruptExitGuard::AbruptExitGuard(std::function<void()> shutdown)
    : m_shutdown(std::move(shutdown)), m_mainThread(std::this_thread::get_id())
{
    static const bool registered = std::atexit(&AbruptExitGuard::onExit) == 0;
    if (registered) {
        g_guard = this;
    }
}

AbruptExitGuard::~AbruptExitGuard()
{
    if (g_guard == this) {
        g_guard = nullptr;
    }
}

void AbruptExitGuard::onExit()
{
    // Another thread's exit would run the shutdown beside the main thread's work.
    AbruptExitGuard *guard = std::exchange(g_guard, nullptr);
    if (!guard || std::this_thread::get_id() != guard->m_mainThread) {
        return;
    }
    Logging::shared().error(
        QStringLiteral("ending without a quit (display connection lost?): shutting down first"));
    guard->m_shutdown();
    std::_Exit(1);
}

} // namespace sayvo
