#include "desktop/portal/PortalRequest.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace sayvo {

namespace {

const QString kRequestInterface = QStringLiteral("org.freedesktop.portal.Request");

// The portal names request objects after the caller's unique bus name, ":1.42" as "1_42".
QString senderPart(const QDBusConnection &bus)
{
    QString sender = bus.baseService();
    if (sender.startsWith(QLatin1Char(':'))) {
        sender.remove(0, 1);
    }
    return sender.replace(QLatin1Char('.'), QLatin1Char('_'));
}

bool isMissing(const QDBusError &error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownMethod:
    case QDBusError::UnknownObject:
        return true;
    default:
        return false;
    }
}

} // namespace

QString describe(PortalError error)
{
    switch (error) {
    case PortalError::unavailable:
        return QStringLiteral("the desktop offers no such portal");
    case PortalError::declined:
        return QStringLiteral("declined");
    case PortalError::cancelled:
        return QStringLiteral("cancelled");
    case PortalError::failed:
        return QStringLiteral("the portal reported an error");
    case PortalError::timedOut:
        return QStringLiteral("the portal did not answer");
    }
    return {};
}

QString portalToken()
{
    static int next = 0;
    return QStringLiteral("sayvo%1").arg(++next);
}

PortalRequest::PortalRequest(const QDBusConnection &bus, QString requestPath, Handler handler)
    : m_bus(bus), m_requestPath(std::move(requestPath)), m_handler(std::move(handler))
{
    m_timeout.setSingleShot(true);
    connect(&m_timeout, &QTimer::timeout, this,
        [this] { finish(PortalError::timedOut, QStringLiteral("no answer")); });
}

void PortalRequest::call(const QDBusConnection &bus, const QString &interface,
    const QString &method, QVariantList arguments, int timeoutMs, Handler handler)
{
    const QString token = portalToken();
    const QString requestPath
        = QStringLiteral("%1/request/%2/%3").arg(kPortalPath, senderPart(bus), token);
    auto *request = new PortalRequest(bus, requestPath, std::move(handler));
    if (!bus.isConnected()
        || !request->m_bus.connect(kPortalService, requestPath, kRequestInterface,
            QStringLiteral("Response"), request, SLOT(onResponse(uint, QVariantMap)))) {
        request->finish(PortalError::unavailable, QStringLiteral("no session bus"));
        return;
    }
    QVariantMap options = arguments.isEmpty() ? QVariantMap() : arguments.takeLast().toMap();
    options.insert(QStringLiteral("handle_token"), token);
    arguments.append(options);

    QDBusMessage message
        = QDBusMessage::createMethodCall(kPortalService, kPortalPath, interface, method);
    message.setArguments(arguments);
    auto *watcher
        = new QDBusPendingCallWatcher(request->m_bus.asyncCall(message, timeoutMs), request);
    connect(watcher, &QDBusPendingCallWatcher::finished, request,
        [request](QDBusPendingCallWatcher *call) {
            call->deleteLater();
            if (!call->isError()) {
                return;
            }
            const QDBusError error = call->error();
            if (error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout) {
                request->finish(PortalError::timedOut, error.message());
            } else {
                request->finish(isMissing(error) ? PortalError::unavailable : PortalError::failed,
                    error.name() + QStringLiteral(": ") + error.message());
            }
        });
    request->m_timeout.start(timeoutMs);
}

void PortalRequest::onResponse(uint response, const QVariantMap &results)
{
    switch (response) {
    case 0:
        finish(results, {});
        break;
    case 1:
        finish(PortalError::declined, {});
        break;
    default:
        finish(PortalError::cancelled, QStringLiteral("response %1").arg(response));
        break;
    }
}

void PortalRequest::finish(const Result &result, const QString &detail)
{
    if (m_finished) {
        return;
    }
    m_finished = true;
    m_timeout.stop();
    if (std::holds_alternative<PortalError>(result)
        && std::get<PortalError>(result) == PortalError::timedOut) {
        // Takes down a dialog the desktop may still be showing for it.
        m_bus.asyncCall(QDBusMessage::createMethodCall(
            kPortalService, m_requestPath, kRequestInterface, QStringLiteral("Close")));
    }
    m_bus.disconnect(kPortalService, m_requestPath, kRequestInterface, QStringLiteral("Response"),
        this, SLOT(onResponse(uint, QVariantMap)));
    const Handler handler = std::move(m_handler);
    deleteLater();
    handler(result, detail);
}

} // namespace sayvo
