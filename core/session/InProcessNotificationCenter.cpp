#include "session/InProcessNotificationCenter.h"

#include <vector>

namespace sayvo {

NotificationCenter::Token InProcessNotificationCenter::addObserver(
    const QString &name, std::function<void()> handler)
{
    const Token token = m_nextToken++;
    m_observers.emplace(token, Observer {name, std::move(handler)});
    return token;
}

void InProcessNotificationCenter::removeObserver(Token token)
{
    m_observers.erase(token);
}

void InProcessNotificationCenter::post(const QString &name)
{
    // Copy first: a handler may add or remove observers.
    std::vector<std::function<void()>> handlers;
    for (const auto &[token, observer] : m_observers) {
        if (observer.name == name) {
            handlers.push_back(observer.handler);
        }
    }
    for (const auto &handler : handlers) {
        handler();
    }
}

int InProcessNotificationCenter::observerCount(const QString &name) const
{
    int count = 0;
    for (const auto &[token, observer] : m_observers) {
        count += observer.name == name ? 1 : 0;
    }
    return count;
}

} // namespace sayvo
