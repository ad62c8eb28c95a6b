#include "support/desktop/TestEditor.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <unistd.h>

namespace sayvo::testing {

namespace {

// Debian's interpreter, which has PyGObject; another python3 earlier on PATH may not.
const QString kPython = QStringLiteral("/usr/bin/python3");

} // namespace

TestEditor::TestEditor(
    DesktopSession &session, QString title, bool accessible, Toolkit toolkit, bool x11Client)
    : m_session(session), m_title(std::move(title))
{
    QProcessEnvironment environment = m_session.environment();
    if (!accessible) {
        environment.insert(QStringLiteral("NO_AT_BRIDGE"), QStringLiteral("1"));
    }
    const QString script = toolkit == Toolkit::gtk4 ? QStringLiteral("test_editor_gtk4.py")
        : toolkit == Toolkit::qt6                   ? QStringLiteral("test_editor_qt.py")
                                                    : QStringLiteral("test_editor.py");
    QString program = kPython;
    QStringList arguments {
        QStringLiteral(SAYVO_TEST_EDITOR_DIR) + QLatin1Char('/') + script, m_title};
    if (x11Client && m_session.isWayland()) {
        environment.insert(QStringLiteral("DISPLAY"), m_session.xwaylandDisplay());
        environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        // XWayland lets in only the compositor's own user.
        if (::geteuid() == 0) {
            environment.insert(
                QStringLiteral("HOME"), environment.value(QStringLiteral("XDG_RUNTIME_DIR")));
            arguments.prepend(program);
            arguments.prepend(QStringLiteral("--clear-groups"));
            arguments.prepend(QStringLiteral("--regid=%1").arg(DesktopSession::kUnprivilegedUid));
            arguments.prepend(QStringLiteral("--reuid=%1").arg(DesktopSession::kUnprivilegedUid));
            program = QStringLiteral("setpriv");
        }
    }
    m_process = m_session.start(environment, program, arguments);
    if (!m_process) {
        return;
    }
    if (!QTest::qWaitFor([this] { return m_process->canReadLine(); }, 15000)) {
        return;
    }
    const QJsonObject hello = QJsonDocument::fromJson(m_process->readLine()).object();
    m_pid = hello.value(QStringLiteral("pid")).toInteger();
    m_ready = hello.value(QStringLiteral("ready")).toBool() && activate();
}

bool TestEditor::activate()
{
    if (m_session.isWayland()) {
        // The compositor maps the window a moment after GTK reports it mapped.
        const QString focus = QStringLiteral("[title=\"^%1$\"] focus").arg(m_title);
        return QTest::qWaitFor([&] { return m_session.sway(focus); }, 10000);
    }
    int code = 0;
    m_session.run(QStringLiteral("xdotool"),
        {QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--name"),
            QStringLiteral("^") + m_title + QStringLiteral("$"), QStringLiteral("windowactivate"),
            QStringLiteral("--sync")},
        &code);
    return code == 0;
}

QJsonObject TestEditor::command(const QJsonObject &request)
{
    if (!m_process || m_process->state() != QProcess::Running) {
        return {};
    }
    m_process->write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
    if (!QTest::qWaitFor([this] { return m_process->canReadLine(); }, 5000)) {
        return {};
    }
    return QJsonDocument::fromJson(m_process->readLine()).object();
}

QString TestEditor::text()
{
    return command({{QStringLiteral("cmd"), QStringLiteral("get")}})
        .value(QStringLiteral("text"))
        .toString();
}

std::pair<int, int> TestEditor::selection()
{
    const QJsonArray range = command({{QStringLiteral("cmd"), QStringLiteral("get")}})
                                 .value(QStringLiteral("selection"))
                                 .toArray();
    return {range.at(0).toInt(-1), range.at(1).toInt(-1)};
}

QStringList TestEditor::keys()
{
    QStringList result;
    const QJsonArray keys = command({{QStringLiteral("cmd"), QStringLiteral("get")}})
                                .value(QStringLiteral("keys"))
                                .toArray();
    for (const auto &key : keys) {
        result << key.toString();
    }
    return result;
}

std::vector<TestEditor::Shown> TestEditor::shown()
{
    std::vector<Shown> result;
    const QJsonArray entries = command({{QStringLiteral("cmd"), QStringLiteral("shown")}})
                                   .value(QStringLiteral("shown"))
                                   .toArray();
    for (const auto &entry : entries) {
        const QJsonArray pair = entry.toArray();
        result.push_back({pair.at(0).toInteger(), pair.at(1).toInt()});
    }
    return result;
}

void TestEditor::copy(const QString &text)
{
    command({{QStringLiteral("cmd"), QStringLiteral("copy")}, {QStringLiteral("text"), text}});
}

void TestEditor::setReadOnly(bool readOnly)
{
    command(
        {{QStringLiteral("cmd"), QStringLiteral("readonly")}, {QStringLiteral("value"), readOnly}});
}

void TestEditor::setText(const QString &text, int selectionStart, int selectionEnd)
{
    command({{QStringLiteral("cmd"), QStringLiteral("set")}, {QStringLiteral("text"), text},
        {QStringLiteral("select"), QJsonArray {selectionStart, selectionEnd}}});
}

bool TestEditor::waitForText(const QString &expected, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (text() != expected) {
        if (deadline.hasExpired()) {
            return false;
        }
        QTest::qWait(20);
    }
    return true;
}

} // namespace sayvo::testing
