#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <map>

namespace sayvo {

// The process's own notification centre: named notifications posted and observed on the
// main thread. Nothing on the desktop posts to it; only code inside Sayvo does.
class NotificationCenter : public QObject
{
    Q_OBJECT

public:
    using Token = quint64;

    // The centre every part of the process shares, as the default centre of an app is.
    static NotificationCenter &defaultCenter();

    Token addObserver(const QString &name, std::function<void()> handler);
    void removeObserver(Token token);
    void post(const QString &name);

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

// The name an application-activation notification carries on the desktop this app was
// first written for; the coordinator listens for it under this exact name.
inline const QString kDidActivateApplicationNotification
    = QStringLiteral("NSWorkspaceDidActivateApplicationNotification");

} // namespace sayvo
