// The programs' command lines as a terminal sees them: run as processes with no display
// and no desktop at all. Built twice, against the build's programs and against the ones in
// the Debian package, which SAYVO_TEST_APP, SAYVO_TEST_ENGINE and SAYVO_TEST_VERSION name.
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

namespace {

struct Outcome
{
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs `program` to the end without DISPLAY, WAYLAND_DISPLAY or a Qt platform chosen.
Outcome run(const QString &program, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        environment.remove(QString::fromLatin1(name));
    }
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    Outcome outcome;
    if (!process.waitForStarted(10000) || !process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished(5000);
        outcome.err = QStringLiteral("did not run to the end: ") + process.errorString();
        return outcome;
    }
    outcome.exitCode
        = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -process.exitCode();
    outcome.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    outcome.err = QString::fromLocal8Bit(process.readAllStandardError());
    return outcome;
}

const QString kApp = QStringLiteral(SAYVO_TEST_APP);
const QString kEngine = QStringLiteral(SAYVO_TEST_ENGINE);
const QString kVersion = QStringLiteral(SAYVO_TEST_VERSION);

TEST(AppCommandLine, HelpPrintsUsageWithoutADisplay)
{
    const Outcome help = run(kApp, {QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0) << help.err.toStdString();
    EXPECT_TRUE(help.out.startsWith(QStringLiteral("Usage: sayvo"))) << help.out.toStdString();
    EXPECT_TRUE(help.err.isEmpty()) << help.err.toStdString();
}

TEST(AppCommandLine, VersionPrintsTheReleaseWithoutADisplay)
{
    const Outcome version = run(kApp, {QStringLiteral("--version")});
    EXPECT_EQ(version.exitCode, 0) << version.err.toStdString();
    EXPECT_EQ(version.out, QStringLiteral("sayvo %1\n").arg(kVersion));
    EXPECT_TRUE(version.err.isEmpty()) << version.err.toStdString();
}

TEST(AppCommandLine, AnUnknownOptionPrintsUsageOnStandardErrorAndExitsTwo)
{
    const Outcome bad = run(kApp, {QStringLiteral("--no-such-option")});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_TRUE(bad.out.isEmpty()) << bad.out.toStdString();
    EXPECT_TRUE(bad.err.contains(QStringLiteral("no-such-option"))) << bad.err.toStdString();
    EXPECT_TRUE(bad.err.contains(QStringLiteral("Usage: sayvo"))) << bad.err.toStdString();
}

TEST(AppCommandLine, RunningWithoutADisplaySaysWhyAndFails)
{
    const Outcome bare = run(kApp, {});
    EXPECT_EQ(bare.exitCode, 1);
    EXPECT_TRUE(bare.err.contains(QStringLiteral("no desktop"))) << bare.err.toStdString();
}

TEST(EngineCommandLine, HelpListsTheOptionsAndSucceeds)
{
    for (const QString &option : {QStringLiteral("--help"), QStringLiteral("--help-all")}) {
        const Outcome help = run(kEngine, {option});
        EXPECT_EQ(help.exitCode, 0) << option.toStdString() << ": " << help.err.toStdString();
        EXPECT_TRUE(help.out.startsWith(QStringLiteral("Usage: "))) << help.out.toStdString();
        for (const char *name :
            {"--host", "--port", "--asr", "--data-dir", "--model-dir", "--check", "--version"}) {
            EXPECT_TRUE(help.out.contains(QString::fromLatin1(name))) << name;
        }
    }
}

TEST(EngineCommandLine, VersionPrintsTheReleaseAndSucceeds)
{
    const Outcome version = run(kEngine, {QStringLiteral("--version")});
    EXPECT_EQ(version.exitCode, 0) << version.err.toStdString();
    EXPECT_EQ(version.out, QStringLiteral("sayvo-engine %1\n").arg(kVersion));
}

TEST(EngineCommandLine, AnUnknownOptionOrAStrayWordIsAUsageErrorExitingTwo)
{
    for (const QStringList &arguments : {QStringList {QStringLiteral("--no-such-option")},
             QStringList {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("extra")},
             QStringList {QStringLiteral("--port")}}) {
        const Outcome bad = run(kEngine, arguments);
        EXPECT_EQ(bad.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(bad.out.isEmpty()) << bad.out.toStdString();
        EXPECT_TRUE(bad.err.contains(QStringLiteral("Usage: "))) << bad.err.toStdString();
    }
}

} // namespace
