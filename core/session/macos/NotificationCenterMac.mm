#include "session/macos/NotificationCenterMac.h"

#import <Foundation/Foundation.h>

#include <map>

namespace sayvo {

struct NotificationCenterMac::Observers
{
    std::map<Token, id<NSObject>> byToken;
};

NotificationCenterMac::NotificationCenterMac() : m_observers(std::make_unique<Observers>()) { }

NotificationCenterMac::~NotificationCenterMac()
{
    for (const auto &[token, observer] : m_observers->byToken) {
        [[NSNotificationCenter defaultCenter] removeObserver:observer];
    }
}

NotificationCenter::Token NotificationCenterMac::addObserver(
    const QString &name, std::function<void()> handler)
{
    id<NSObject> observer = [[NSNotificationCenter defaultCenter]
        addObserverForName:name.toNSString()
                    object:nil
                     queue:[NSOperationQueue mainQueue]
                usingBlock:^(NSNotification *) { handler(); }];
    const Token token = m_nextToken++;
    m_observers->byToken.emplace(token, observer);
    return token;
}

void NotificationCenterMac::removeObserver(Token token)
{
    const auto found = m_observers->byToken.find(token);
    if (found == m_observers->byToken.end()) {
        return;
    }
    [[NSNotificationCenter defaultCenter] removeObserver:found->second];
    m_observers->byToken.erase(found);
}

void NotificationCenterMac::post(const QString &name)
{
    [[NSNotificationCenter defaultCenter] postNotificationName:name.toNSString() object:nil];
}

NotificationCenter &NotificationCenter::defaultCenter()
{
    static NotificationCenterMac center;
    return center;
}

} // namespace sayvo
