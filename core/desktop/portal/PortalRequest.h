#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <variant>

namespace sayvo {

// Why a portal request gave no result.
enum class PortalError {
    // No portal, or no backend for the interface in this desktop.
    unavailable,
    // The user said no in the desktop's dialog.
    declined,
    // The dialog was closed, or the desktop ended the request.
    cancelled,
    // The portal answered with a D-Bus error.
    failed,
    // No answer within the request's time limit.
    timedOut,
};

QString describe(PortalError error);

// The desktop portal's bus name and object.
inline const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");

// One call of a portal method that answers later through the Response signal of a Request
// object. The object's path is fixed beforehand by a handle token of our own, and the signal
// is subscribed to before the call, so an answer given at once is not missed. Deletes itself
// after calling the handler exactly once. Main thread only.
class PortalRequest : public QObject
{
    Q_OBJECT

public:
    using Result = std::variant<QVariantMap, PortalError>;
    using Handler = std::function<void(const Result &result, const QString &detail)>;

    // The last argument must be the method's options; the handle token is added to it.
    static void call(const QDBusConnection &bus, const QString &interface, const QString &method,
        QVariantList arguments, int timeoutMs, Handler handler);

private Q_SLOTS:
    void onResponse(uint response, const QVariantMap &results);

private:
    PortalRequest(const QDBusConnection &bus, QString requestPath, Handler handler);
    void finish(const Result &result, const QString &detail);

    QDBusConnection m_bus;
    QString m_requestPath;
    Handler m_handler;
    QTimer m_timeout;
    bool m_finished = false;
};

// A token unique within this process, for a request's or a session's object path.
QString portalToken();

} // namespace sayvo
