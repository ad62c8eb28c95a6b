#pragma once

#include "session/NotificationCenter.h"

#include <memory>

namespace sayvo {

// The application's [NSNotificationCenter defaultCenter]. Observers are blocks delivered on
// the main operation queue. Main thread only.
class NotificationCenterMac : public NotificationCenter
{
public:
    NotificationCenterMac();
    ~NotificationCenterMac() override;

    Token addObserver(const QString &name, std::function<void()> handler) override;
    void removeObserver(Token token) override;
    void post(const QString &name) override;

private:
    // The observer objects NSNotificationCenter returned, kept in the Objective-C++ source.
    struct Observers;
    std::unique_ptr<Observers> m_observers;
    Token m_nextToken = 1;
};

} // namespace sayvo
