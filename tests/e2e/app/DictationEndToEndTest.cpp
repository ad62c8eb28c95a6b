// Sayvo as a user runs it: the real application and its reference engine on a private X
// desktop with a sound server, dictating into a GTK text field.
#include "support/e2e/DictationDesk.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

using sayvo::test::DictationDesk;

namespace {

const QString kSentence = QStringLiteral("please send me the report before the meeting");
const QString kWritten = QStringLiteral("Please send me the report before the meeting.");

// A replay recogniser that hears `lines` in turn, one per utterance.
struct Replay
{
    QTemporaryDir dir;
    QString asr(const QStringList &lines)
    {
        QFile file(dir.filePath(QStringLiteral("replay.txt")));
        file.open(QIODevice::WriteOnly);
        file.write(lines.join('\n').toUtf8() + '\n');
        return QStringLiteral("replay:") + file.fileName();
    }
};

QString screenshotPath(const QString &name)
{
    return QStringLiteral(SAYVO_SCREENSHOT_DIR) + QStringLiteral("/") + name
        + QStringLiteral(".png");
}

QByteArray speech()
{
    return DictationDesk::synthesize(kSentence);
}

std::unique_ptr<DictationDesk> launchDesk(DictationDesk::Options options)
{
    QString failure;
    auto desk = DictationDesk::launched(std::move(options), failure);
    EXPECT_TRUE(desk) << failure.toStdString();
    return desk;
}

double wordErrorRate(const QString &reference, const QString &hypothesis)
{
    auto words = [](const QString &text) {
        return text.toLower()
            .remove(QRegularExpression(QStringLiteral("[^a-z0-9 ]")))
            .split(' ', Qt::SkipEmptyParts);
    };
    const QStringList r = words(reference);
    const QStringList h = words(hypothesis);
    std::vector<int> previous(h.size() + 1);
    std::vector<int> current(h.size() + 1);
    for (int j = 0; j <= h.size(); ++j) {
        previous[j] = j;
    }
    for (int i = 1; i <= r.size(); ++i) {
        current[0] = i;
        for (int j = 1; j <= h.size(); ++j) {
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1,
                previous[j - 1] + (r[i - 1] == h[j - 1] ? 0 : 1)});
        }
        std::swap(previous, current);
    }
    return r.isEmpty() ? 0.0 : static_cast<double>(previous[h.size()]) / r.size();
}

} // namespace

TEST(DictationEndToEnd, HoldToTalkPastesTheTextAndPutsTheClipboardBack)
{
    Replay replay;
    auto desk = launchDesk({replay.asr({kSentence}), {}, QStringLiteral("Editor Hold")});
    ASSERT_TRUE(desk);
    desk->editor().copy(QStringLiteral("the user's own clipboard"));
    ASSERT_TRUE(desk->dictate(speech()));
    EXPECT_TRUE(desk->editor().waitForText(kWritten)) << desk->editor().text().toStdString();
    EXPECT_TRUE(
        desk->states().contains(QStringLiteral("success(chars=%1, raw=no)").arg(kWritten.size())))
        << desk->states().join('\n').toStdString();
    // Neither what was said nor what was copied reaches the log.
    for (const QString &line : desk->log()) {
        EXPECT_FALSE(line.contains(kWritten, Qt::CaseInsensitive)) << line.toStdString();
        EXPECT_FALSE(line.contains(QStringLiteral("own clipboard"))) << line.toStdString();
    }
    EXPECT_TRUE(desk->screenshot(screenshotPath(QStringLiteral("e2e-hud-success"))));
    // The clipboard comes back once the editor has read the transcript.
    EXPECT_TRUE(
        QTest::qWaitFor([&] { return desk->clipboard() == "the user's own clipboard"; }, 5000))
        << desk->clipboard().toStdString();
    // F5 belongs to Sayvo: the editor never saw it.
    const QStringList keys = desk->editor().keys();
    EXPECT_FALSE(keys.contains(QStringLiteral("press:F5"))) << keys.join(' ').toStdString();
    EXPECT_FALSE(keys.contains(QStringLiteral("release:F5")));
}

TEST(DictationEndToEnd, ToggleModeStartsWithOnePressAndEndsWithTheNext)
{
    Replay replay;
    auto desk = launchDesk(
        {replay.asr({kSentence}), {{QStringLiteral("sayvo.triggerMode"), QStringLiteral("toggle")}},
            QStringLiteral("Editor Toggle")});
    ASSERT_TRUE(desk);
    desk->pressTrigger();
    desk->releaseTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000));
    desk->speak(speech());
    QTest::qWait(300);
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("state: processing"))),
        0); // a release ends nothing
    desk->pressTrigger();
    desk->releaseTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: success")), 20000));
    EXPECT_TRUE(desk->editor().waitForText(kWritten))
        << desk->editor().text().toStdString()
        << " keys: " << desk->editor().keys().join(' ').toStdString();
}

TEST(DictationEndToEnd, AccessibilityInsertionWritesTheFieldWithoutPasting)
{
    Replay replay;
    auto desk = launchDesk({replay.asr({kSentence}),
        {{QStringLiteral("sayvo.insertionMethod"), QStringLiteral("axDirect")}},
        QStringLiteral("Editor Direct")});
    ASSERT_TRUE(desk);
    desk->editor().setText(QStringLiteral("Note: "));
    desk->editor().copy(QStringLiteral("untouched"));
    ASSERT_TRUE(desk->dictate(speech()));
    EXPECT_TRUE(desk->editor().waitForText(QStringLiteral("Note: ") + kWritten))
        << desk->editor().text().toStdString();
    const QStringList keys = desk->editor().keys();
    EXPECT_FALSE(keys.contains(QStringLiteral("press:v"))) << keys.join(' ').toStdString();
    EXPECT_EQ(desk->clipboard(), "untouched");
}

TEST(DictationEndToEnd, RealSpeechBecomesTheRightWords)
{
    auto desk = launchDesk({QStringLiteral("pocketsphinx"), {}, QStringLiteral("Editor Speech")});
    ASSERT_TRUE(desk);
    ASSERT_TRUE(desk->dictate(speech(), 60000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk->editor().text().isEmpty(); }, 5000));
    const QString text = desk->editor().text();
    std::cout << "[ SPEECH   ] heard: " << text.toStdString() << "\n";
    // The synthetic voice is recognised word for word on this machine; a little slack
    // leaves room for other builds of the model.
    EXPECT_LE(wordErrorRate(kSentence, text), 0.25) << text.toStdString();
    EXPECT_TRUE(text.front().isUpper());
}

TEST(DictationEndToEnd, AnEngineKilledWhileProcessingIsReportedRestartedAndWorksAgain)
{
    Replay replay;
    auto desk = launchDesk({replay.asr({kSentence, QStringLiteral("second try")}), {},
        QStringLiteral("Editor Crash")});
    ASSERT_TRUE(desk);
    const QList<qint64> engines = desk->enginePids();
    ASSERT_FALSE(engines.isEmpty());
    // Freeze the engine so the utterance stays in processing, then kill it.
    for (qint64 pid : engines) {
        ::kill(static_cast<pid_t>(pid), SIGSTOP);
    }
    desk->pressTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000));
    desk->speak(speech().left(16000));
    desk->releaseTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: processing")), 5000));
    for (qint64 pid : engines) {
        ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
    ASSERT_TRUE(desk->waitForLog(
        QRegularExpression(QStringLiteral("state: error\\(\"connection lost\"\\)")), 10000))
        << desk->log().join('\n').toStdString();
    // The supervisor relaunches it and the client reconnects.
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("engine exited")), 10000))
        << desk->log().join('\n').toStdString();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return desk->countLog(QRegularExpression(QStringLiteral("connected: server="))) >= 2;
        },
        30000))
        << desk->log().join('\n').toStdString();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: idle")), 5000));
    ASSERT_TRUE(desk->dictate(speech()));
    EXPECT_TRUE(desk->states().last().startsWith(QStringLiteral("success(")))
        << desk->states().join('\n').toStdString();
}

TEST(DictationEndToEnd, AMockEngineIsRelaunchedTwiceThenRefusedWithItsMessage)
{
    auto desk = std::make_unique<DictationDesk>(
        DictationDesk::Options {QStringLiteral("mock"), {}, QStringLiteral("Editor Mock")});
    ASSERT_TRUE(desk->isReady()) << desk->failure().toStdString();
    ASSERT_TRUE(desk->launchSayvo());
    // Each mock report relaunches the engine after 3 s, twice; the third one gives up and
    // leaves the placeholder running, which the client then refuses to dictate with.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return desk->countLog(
                       QRegularExpression(QStringLiteral("connected: server=.* mock=true")))
                >= 3;
        },
        30000))
        << desk->log().join('\n').toStdString();
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("engine launched"))), 3);
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("engine state: failed")), 5000))
        << desk->log().join('\n').toStdString();
    desk->pressTrigger();
    desk->releaseTrigger();
    EXPECT_TRUE(desk->waitForLog(
        QRegularExpression(QString::fromUtf8(
            "state: error\\(\"Engine in mock mode — restart it \\(no transcription\\)\"\\)")),
        5000))
        << desk->log().join('\n').toStdString();
    EXPECT_TRUE(desk->editor().text().isEmpty());
}

TEST(DictationEndToEnd, QuittingLeavesNoEngineBehind)
{
    Replay replay;
    auto desk = launchDesk({replay.asr({kSentence}), {}, QStringLiteral("Editor Quit")});
    ASSERT_TRUE(desk);
    ASSERT_FALSE(desk->enginePids().isEmpty());
    ASSERT_TRUE(desk->quitSayvo());
    EXPECT_TRUE(QTest::qWaitFor([&] { return desk->enginePids().isEmpty(); }, 5000))
        << "engine left running";
}
