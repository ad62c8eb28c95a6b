#pragma once

#include "runtime/InstanceChannel.h"

#include <optional>

namespace sayvo {

class AppDelegate;

// One Sayvo per user. At launch, before anything else: when another instance of this user
// runs, it is asked to bring its settings window forward and this process ends. Afterwards,
// the channel's requests (the trigger command's verbs, a second launch) drive the delegate.
// Main thread only.
class SingleInstance
{
public:
    // How long a second launch waits for a first one that is still starting up.
    static constexpr int kHandOffTimeoutMs = 5000;

    SingleInstance();

    // The exit code when another instance runs; nothing when this one goes on.
    std::optional<int> handOffIfRunning();
    void serve(AppDelegate &delegate);

private:
    InstanceChannel m_channel;
    bool m_first = false;
};

} // namespace sayvo
