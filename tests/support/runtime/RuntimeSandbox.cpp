#include "support/runtime/RuntimeSandbox.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <gtest/gtest.h>

namespace sayvo::test {

QString fixtureScript(const QString &name)
{
    return QStringLiteral(SAYVO_RUNTIME_FIXTURE_DIR "/") + name;
}

RuntimeSandbox::RuntimeSandbox()
{
    EXPECT_TRUE(m_dir.isValid());
    QDir().mkpath(installRoot());
}

void RuntimeSandbox::writePayload(
    const QString &runScript, const QString &bootstrapScript, const QString &uninstallScript)
{
    QDir().mkpath(payloadDir() + QStringLiteral("/engine"));
    QDir().mkpath(payloadDir() + QStringLiteral("/scripts"));
    const auto place = [this](const QString &fixture, const QString &as) {
        if (fixture.isEmpty()) {
            return;
        }
        const QString target = payloadDir() + QStringLiteral("/scripts/") + as;
        QFile::remove(target);
        EXPECT_TRUE(QFile::copy(fixtureScript(fixture), target)) << fixture.toStdString();
    };
    place(runScript, QStringLiteral("run_engine.sh"));
    place(bootstrapScript, QStringLiteral("bootstrap_runtime.sh"));
    place(uninstallScript, QStringLiteral("uninstall.sh"));
}

void RuntimeSandbox::provision(const QString &version)
{
    QDir().mkpath(appDir() + QStringLiteral("/.venv"));
    QFile stamp(installRoot() + QStringLiteral("/VERSION"));
    EXPECT_TRUE(stamp.open(QIODevice::WriteOnly | QIODevice::Truncate));
    stamp.write(version.toUtf8() + '\n');
}

RuntimeLocator RuntimeSandbox::locator(
    const QString &appVersion, const std::optional<QString> &bundledEngine) const
{
    return RuntimeLocator(payloadDir(), installRoot(), appVersion, std::nullopt, bundledEngine);
}

QStringList RuntimeSandbox::readLines(const QString &relativePath) const
{
    QFile file(installRoot() + QLatin1Char('/') + relativePath);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QList<pid_t> RuntimeSandbox::recordedPids() const
{
    QList<pid_t> pids;
    for (const QString &file : {QStringLiteral("app/pids"), QStringLiteral("pids")}) {
        for (const QString &line : readLines(file)) {
            for (const QString &field : line.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
                pids.append(static_cast<pid_t>(field.toInt()));
            }
        }
    }
    return pids;
}

bool processAlive(pid_t pid)
{
    if (pid <= 0 || ::kill(pid, 0) != 0) {
        return false;
    }
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) {
        return true; // no /proc to tell a zombie from the living
    }
    const QByteArray text = stat.readAll();
    // "pid (comm) S ...": the state follows the last closing parenthesis.
    const qsizetype close = text.lastIndexOf(')');
    return close < 0 || text.mid(close + 2, 1) != "Z";
}

bool waitUntilGone(const QList<pid_t> &pids, int timeoutMs)
{
    return QTest::qWaitFor(
        [&] { return std::none_of(pids.begin(), pids.end(), processAlive); }, timeoutMs);
}

} // namespace sayvo::test
