#include "support/desktop/TestPortal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace sayvo::testing {

namespace {

const QString kBackendName = QStringLiteral("org.freedesktop.impl.portal.desktop.sayvotest");
const QString kFrontendName = QStringLiteral("org.freedesktop.portal.Desktop");

// -B keeps Python's cache of the module the scripts share out of the source tree.
bool startScript(DesktopSession &session, const char *script)
{
    return session.start(QStringLiteral("/usr/bin/python3"),
               {QStringLiteral("-B"), QString::fromUtf8(script)})
        != nullptr;
}

bool waitForName(const QString &name)
{
    return QTest::qWaitFor(
        [&name] {
            return QDBusConnection::sessionBus().interface()->isServiceRegistered(name).value();
        },
        20000);
}

} // namespace

TestPortal::TestPortal(DesktopSession &session, Frontend frontend)
    : m_session(session), m_controlName(frontend == Frontend::debian ? kBackendName : kFrontendName)
{
    if (frontend == Frontend::withClipboard) {
        if (!startScript(m_session, SAYVO_TEST_PORTAL_FRONTEND_SCRIPT)
            || !waitForName(kFrontendName)) {
            m_failure = QStringLiteral("the stand-in portal frontend did not start");
        }
        return;
    }
    const QString portals = m_session.directory() + QStringLiteral("/portals");
    QDir().mkpath(portals);
    QFile file(portals + QStringLiteral("/sayvotest.portal"));
    if (!file.open(QIODevice::WriteOnly)) {
        m_failure = QStringLiteral("cannot write the .portal file");
        return;
    }
    file.write(QStringLiteral("[portal]\nDBusName=%1\nInterfaces=org.freedesktop.impl.portal."
                              "GlobalShortcuts;org.freedesktop.impl.portal.RemoteDesktop;\n"
                              "UseIn=%2\n")
                   .arg(kBackendName, QString::fromLatin1(kDesktopName))
                   .toUtf8());
    file.close();

    if (!startScript(m_session, SAYVO_TEST_PORTAL_SCRIPT) || !waitForName(kBackendName)) {
        m_failure = QStringLiteral("the test portal backend did not start");
        return;
    }
    QProcessEnvironment environment = m_session.environment();
    environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QString::fromLatin1(kDesktopName));
    environment.insert(QStringLiteral("XDG_DESKTOP_PORTAL_DIR"), portals);
    // -r replaces a frontend the bus may have started on its own for an early caller.
    if (!m_session.start(
            environment, QStringLiteral("/usr/libexec/xdg-desktop-portal"), {QStringLiteral("-r")})
        || !waitForName(kFrontendName)) {
        m_failure = QStringLiteral("xdg-desktop-portal did not start");
        return;
    }
    // The frontend takes its name before it has looked at the backends: wait until it offers
    // the interfaces the backend implements.
    const bool offered = QTest::qWaitFor(
        [] {
            QDBusMessage introspect = QDBusMessage::createMethodCall(kFrontendName,
                QStringLiteral("/org/freedesktop/portal/desktop"),
                QStringLiteral("org.freedesktop.DBus.Introspectable"),
                QStringLiteral("Introspect"));
            const QDBusMessage reply = QDBusConnection::sessionBus().call(introspect);
            const QString xml = reply.arguments().value(0).toString();
            return xml.contains(QStringLiteral("org.freedesktop.portal.GlobalShortcuts"))
                && xml.contains(QStringLiteral("org.freedesktop.portal.RemoteDesktop"));
        },
        20000);
    if (!offered) {
        m_failure = QStringLiteral("xdg-desktop-portal does not offer the test backend's portals");
    }
}

bool TestPortal::control(const QString &method, const QVariantList &arguments, QVariant *answer)
{
    QDBusMessage message = QDBusMessage::createMethodCall(m_controlName,
        QStringLiteral("/org/sayvo/TestPortal"), QStringLiteral("org.sayvo.TestPortal"), method);
    message.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        return false;
    }
    if (answer) {
        *answer = reply.arguments().value(0);
    }
    return true;
}

QJsonArray TestPortal::calls()
{
    QVariant answer;
    if (!control(QStringLiteral("Calls"), {}, &answer)) {
        return {};
    }
    return QJsonDocument::fromJson(answer.toString().toUtf8()).array();
}

QJsonArray TestPortal::callsOf(const QString &method)
{
    QJsonArray matching;
    for (const auto &call : calls()) {
        if (call.toArray().at(0).toString() == method) {
            matching.append(call.toArray().at(1));
        }
    }
    return matching;
}

bool TestPortal::setAnswer(const QString &method, const QString &how)
{
    return control(QStringLiteral("SetAnswer"), {method, how});
}

bool TestPortal::emitSignal(const QString &signal, const QString &argument)
{
    return control(QStringLiteral("Emit"), {signal, argument});
}

bool TestPortal::emitSignalFor(
    const QString &signal, const QString &sessionPath, const QString &argument)
{
    return control(QStringLiteral("EmitFor"),
        {signal, QVariant::fromValue(QDBusObjectPath(sessionPath)), argument});
}

bool TestPortal::offer(const QVariantMap &data)
{
    return control(QStringLiteral("Offer"), {data});
}

std::optional<QByteArray> TestPortal::fetch(const QString &mimeType)
{
    // The owner may be this very process: its event loop must run while the data is asked of it.
    QDBusMessage message
        = QDBusMessage::createMethodCall(m_controlName, QStringLiteral("/org/sayvo/TestPortal"),
            QStringLiteral("org.sayvo.TestPortal"), QStringLiteral("Fetch"));
    message.setArguments({mimeType});
    QDBusPendingCall pending = QDBusConnection::sessionBus().asyncCall(message, 10000);
    if (!QTest::qWaitFor([&pending] { return pending.isFinished(); }, 15000) || pending.isError()) {
        return std::nullopt;
    }
    return pending.reply().arguments().value(0).toByteArray();
}

QString TestPortal::owner()
{
    QVariant answer;
    control(QStringLiteral("Owner"), {}, &answer);
    return answer.toString();
}

bool TestPortal::setPasteReader(const QString &how, uint delayMs)
{
    return control(QStringLiteral("SetPasteReader"), {how, delayMs});
}

QStringList TestPortal::pasted()
{
    QVariant answer;
    control(QStringLiteral("Pasted"), {}, &answer);
    return answer.toStringList();
}

} // namespace sayvo::testing
