#pragma once

#include "session/NotificationCenter.h"

#include <map>

namespace sayvo {

// A notification centre that lives entirely in this process: handlers run synchronously in
// post(). Main thread only.
class InProcessNotificationCenter : public NotificationCenter
{
public:
    Token addObserver(const QString &name, std::function<void()> handler) override;
    void removeObserver(Token token) override;
    void post(const QString &name) override;

    int observerCount(const QString &name) const;

private:
    struct Observer
    {
        QString name;
        std::function<void()> handler;
    };
    std::map<Token, Observer> m_observers;
    Token m_nextToken = 1;
};

} // namespace sayvo
