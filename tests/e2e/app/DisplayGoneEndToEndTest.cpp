// The real Sayvo when its X server goes away under it (a crashed or killed display, a session
// ended without a logout): it ends without crashing, its engine with it, and what it stored
// during the run is on disk.
#include "support/e2e/DictationDesk.h"

#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::test::DictationDesk;

namespace {

const QString kSentence = QStringLiteral("please send me the report before the meeting");

TEST(DisplayGoneEndToEnd, TheXServerDyingEndsSayvoCleanlyWithItsEngineAndItsSettingsSaved)
{
    QTemporaryDir replayDir;
    QFile replay(replayDir.filePath(QStringLiteral("replay.txt")));
    ASSERT_TRUE(replay.open(QIODevice::WriteOnly));
    replay.write(kSentence.toUtf8() + '\n');
    replay.close();
    DictationDesk desk(
        {QStringLiteral("replay:") + replay.fileName(), {}, QStringLiteral("Editor Display Gone")});
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    ASSERT_TRUE(desk.launchSayvo()) << desk.log().join('\n').toStdString();
    ASSERT_FALSE(desk.enginePids().isEmpty());

    // One dictation: the usage figures it records are settings written during the run.
    ASSERT_TRUE(desk.dictate(DictationDesk::synthesize(kSentence)));
    ASSERT_TRUE(desk.waitForLog(QRegularExpression(QStringLiteral("state: success")), 20000))
        << desk.log().join('\n').toStdString();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return desk.states().last() == QStringLiteral("idle"); }, 5000));

    // The next one is under way, microphone open, when the display goes.
    desk.pressTrigger();
    ASSERT_TRUE(desk.waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000));
    desk.speak(DictationDesk::synthesize(kSentence).left(16000));
    desk.desktop().killXServer();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk.isSayvoRunning(); }, 30000))
        << desk.log().join('\n').toStdString();
    const QString log = desk.log().join('\n');
    EXPECT_EQ(desk.sayvoExitStatus(), QProcess::NormalExit) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("ending without a quit"))) << log.toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return desk.enginePids().isEmpty(); }, 10000))
        << "engine left running";
    QSettings stored(desk.settingsFile(), QSettings::IniFormat);
    EXPECT_EQ(stored.value(QStringLiteral("sayvo.usageStats.utterances")).toLongLong(), 1);
}

} // namespace
