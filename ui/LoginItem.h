#pragma once

#include <QString>

#include <memory>

namespace sayvo {

// Whether Sayvo opens when the user logs in.
enum class LoginLaunch {
    off,
    on,
    // Asked for, but the system waits for the user to allow it (macOS's Login Items).
    awaitingApproval,
};

// Whether Sayvo starts when the user logs in, kept where the desktop looks for it.
class LoginItem
{
public:
    virtual ~LoginItem() = default;
    // As the desktop has it now.
    virtual LoginLaunch state() const = 0;
    // Asks for the launch at login or withdraws it; false when that failed (nothing else
    // changes). Asking may leave it awaiting the user's approval.
    virtual bool setEnabled(bool enabled) = 0;
    // Shows the user where to allow a launch that awaits approval.
    virtual void openApproval() = 0;
};

// This platform's login item for the program at `executablePath` (defined per platform).
std::unique_ptr<LoginItem> makeLoginItem(const QString &executablePath);

} // namespace sayvo
