// Sayvo as a user of a wlroots compositor runs it: the real application on a headless sway with
// no X display, driven by `sayvo trigger` as the compositor's key binding would run it,
// dictating into a native GTK window.
#include "protocol/WireCodec.h"
#include "support/e2e/DictationDesk.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::test::DictationDesk;

namespace {

const QString kWritten = QStringLiteral("Please send me the report before the meeting.");
const QString kTitle = QStringLiteral("Wayland Editor");

QByteArray speech()
{
    return DictationDesk::synthesize(
        QStringLiteral("please send me the report before the meeting"));
}

std::unique_ptr<DictationDesk> launchDesk(DictationDesk::Options options)
{
    options.wayland = true;
    options.editorTitle = kTitle;
    QString failure;
    auto desk = DictationDesk::launched(std::move(options), failure);
    EXPECT_TRUE(desk) << failure.toStdString();
    return desk;
}

// The text frames of one type the engine received, decoded.
std::vector<sayvo::OutboundMessage> sent(sayvo::test::TestEngine &engine)
{
    std::vector<sayvo::OutboundMessage> messages;
    for (const QByteArray &frame : engine.textFrames()) {
        if (auto decoded = sayvo::decodeOutbound(frame.toStdString())) {
            messages.push_back(std::move(decoded).value());
        }
    }
    return messages;
}

template <typename T> int count(const std::vector<sayvo::OutboundMessage> &messages)
{
    return int(std::count_if(messages.begin(), messages.end(),
        [](const sayvo::OutboundMessage &message) { return std::holds_alternative<T>(message); }));
}

TEST(WaylandDictation, TheTriggerCommandDictatesIntoANativeWindowWithoutAnXDisplay)
{
    DictationDesk::Options options;
    options.scriptedFinal = kWritten;
    auto desk = launchDesk(options);
    ASSERT_TRUE(desk);
    EXPECT_FALSE(desk->sayvoEnvironment().contains(QStringLiteral("DISPLAY")));
    EXPECT_TRUE(desk->waitForLog(
        QRegularExpression(QStringLiteral("desktop \\(Wayland session\\): pasting: Wayland")),
        1000));
    ASSERT_TRUE(desk->desktop().start(QStringLiteral("wl-copy"),
        {QStringLiteral("--foreground"), QStringLiteral("--"), QStringLiteral("the user's own")}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return desk->clipboard() == "the user's own"; }, 5000));

    ASSERT_EQ(desk->trigger(QStringLiteral("press")), 0);
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000))
        << desk->log().join('\n').toStdString();
    desk->speak(speech());
    ASSERT_EQ(desk->trigger(QStringLiteral("release")), 0);
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: success")), 20000))
        << desk->log().join('\n').toStdString();
    EXPECT_TRUE(desk->editor().waitForText(kWritten)) << desk->editor().text().toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return desk->clipboard() == "the user's own"; }, 5000))
        << desk->clipboard().toStdString();

    // The utterance's context names the window it was dictated into, and audio went out.
    const auto messages = sent(*desk->engine());
    bool titled = false;
    for (const sayvo::OutboundMessage &message : messages) {
        if (const auto *context = std::get_if<sayvo::ContextUpdateMessage>(&message)) {
            titled = titled || context->context.windowTitle == kTitle.toStdString();
        }
    }
    EXPECT_TRUE(titled);
    EXPECT_EQ(count<sayvo::UtteranceStartMessage>(messages), 1);
    const auto &frames = desk->engine()->frames();
    EXPECT_TRUE(std::any_of(frames.begin(), frames.end(),
        [](const sayvo::test::TestEngine::Frame &frame) { return frame.binary; }));

    ASSERT_TRUE(desk->quitSayvo());
    ASSERT_TRUE(QTest::qWaitFor([&] { return desk->engine()->closeCode(0).has_value(); }, 5000));
    EXPECT_EQ(desk->engine()->closeCode(0), 1001);
}

TEST(WaylandDictation, ToggleTwiceMakesOneUtterance)
{
    DictationDesk::Options options;
    options.scriptedFinal = kWritten;
    options.settings = {{QStringLiteral("sayvo.triggerMode"), QStringLiteral("toggle")}};
    auto desk = launchDesk(options);
    ASSERT_TRUE(desk);
    ASSERT_EQ(desk->trigger(QStringLiteral("toggle")), 0);
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000));
    desk->speak(speech());
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("state: processing"))), 0);
    ASSERT_EQ(desk->trigger(QStringLiteral("toggle")), 0);
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: success")), 20000))
        << desk->log().join('\n').toStdString();
    EXPECT_TRUE(desk->editor().waitForText(kWritten)) << desk->editor().text().toStdString();
    const auto messages = sent(*desk->engine());
    EXPECT_EQ(count<sayvo::UtteranceStartMessage>(messages), 1);
    EXPECT_EQ(count<sayvo::UtteranceEndMessage>(messages), 1);
}

TEST(WaylandDictation, TheCompositorGoingAwayEndsSayvoAndItsEngine)
{
    QTemporaryDir replay;
    QFile lines(replay.filePath(QStringLiteral("replay.txt")));
    ASSERT_TRUE(lines.open(QIODevice::WriteOnly));
    lines.write("never heard\n");
    lines.close();
    DictationDesk::Options options;
    options.asr = QStringLiteral("replay:") + lines.fileName();
    auto desk = launchDesk(options);
    ASSERT_TRUE(desk);
    ASSERT_FALSE(desk->enginePids().isEmpty());
    desk->desktop().stopCompositor();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk->isSayvoRunning(); }, 15000))
        << desk->log().join('\n').toStdString();
    EXPECT_FALSE(desk->crashed()) << desk->log().join('\n').toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return desk->enginePids().isEmpty(); }, 10000))
        << "engine left running";
}

} // namespace
