#pragma once

#include <QString>

#include <functional>

namespace sayvo {

// Named notifications of the process, posted and observed on the main thread. On macOS the
// default centre is the application's NSNotificationCenter; elsewhere only code inside Sayvo
// posts to it.
class NotificationCenter
{
public:
    using Token = quint64;

    virtual ~NotificationCenter() = default;

    // The centre every part of the process shares, as the default centre of an app is.
    // Defined once per platform.
    static NotificationCenter &defaultCenter();

    virtual Token addObserver(const QString &name, std::function<void()> handler) = 0;
    virtual void removeObserver(Token token) = 0;
    virtual void post(const QString &name) = 0;
};

// The name an application-activation notification carries on the desktop this app was
// first written for; the coordinator listens for it under this exact name.
inline const QString kDidActivateApplicationNotification
    = QStringLiteral("NSWorkspaceDidActivateApplicationNotification");

} // namespace sayvo
