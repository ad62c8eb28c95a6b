// Whole utterances through the real engine client and a WebSocket engine on loopback.
#include "support/session/CoordinatorHarness.h"

#include "support/ProcessStatus.h"
#include "support/engine/EngineProcess.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using sayvo::test::CoordinatorHarness;

namespace {

// A recording made once and kept as a file, as a microphone would produce it.
QByteArray recordedPcm(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return {};
    }
    const QByteArray pcm = CoordinatorHarness::tone(16000 * 2 * 2 + 1234 * 2); // 2.08 s
    file.write(pcm);
    file.close();
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}

} // namespace

TEST(CoordinatorLoopbackTest, ARecordedUtteranceReachesTheEngineInOrderAndItsResultIsInserted)
{
    CoordinatorHarness h;
    QTemporaryDir dir;
    const QByteArray pcm = recordedPcm(dir.filePath("utterance.raw"));
    ASSERT_FALSE(pcm.isEmpty());
    FinalMessage final = CoordinatorHarness::finalWithText("Please send me the report.");
    final.stats = Stats {2.08, 5, 144.0, 0.4, 0.35, 0, 0.0};
    h.answerWith(final);
    ASSERT_TRUE(h.startAndConnect());

    h.coordinator->handleTriggerDown();
    const QString id = *h.coordinator->currentUtteranceId();
    // Partials arrive while the user speaks.
    h.speak(pcm.left(16000));
    h.engine.sendText(
        QStringLiteral(R"({"type":"partial","utterance_id":"%1","text":"please send"})")
            .arg(id)
            .toUtf8());
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->state() == AppState::listening("please send"); }, 5000));
    h.speak(pcm.mid(16000));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));

    EXPECT_EQ(h.engine.textTypes(),
        (std::vector<QString> {"hello", "context.update", "utterance.start", "utterance.end"}));
    QByteArray received;
    const auto frames = h.audioFramesReceived();
    for (size_t i = 0; i < frames.size(); ++i) {
        received += frames[i];
        if (i + 1 < frames.size()) {
            EXPECT_EQ(frames[i].size(), 3200) << "chunk " << i;
        }
    }
    EXPECT_EQ(received, pcm);
    EXPECT_EQ(frames.back().size(), pcm.size() % 3200);
    // End comes after the last audio frame.
    EXPECT_TRUE(h.engine.frames().back().bytes.contains("utterance.end"));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Please send me the report."});
    EXPECT_EQ(h.usage->utterances(), 1);
    EXPECT_EQ(h.usage->totalWords(), 5);
}

TEST(CoordinatorLoopbackTest, AConnectionDroppedWhileProcessingIsReportedAndTheNextUtteranceWorks)
{
    CoordinatorHarness h;
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    h.coordinator->handleTriggerDown();
    h.speak(CoordinatorHarness::tone(6400));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.engine.textTypes().size() == 4; }, 5000));
    h.engine.dropConnection();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->state() == AppState::error("connection lost"); }, 5000));

    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth().is<EngineConnectionHealth::Connected>(); },
        5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000));
    h.answerWith(CoordinatorHarness::finalWithText("Back again."));
    h.coordinator->handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.coordinator->handleTriggerUp();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Back again."});
    EXPECT_EQ(h.engine.connectionCount(), 2);
}

TEST(CoordinatorLoopbackTest, TwoHundredUtterancesLeaveNoGrowthInMemory)
{
    CoordinatorHarness h;
    h.coordinator->setDisplayDurations({0.01, 0.01});
    ASSERT_TRUE(h.startAndConnect());
    FinalMessage final = CoordinatorHarness::finalWithText("Again.");
    final.stats = Stats {0.4, 1, 150.0, 0.3, 0.2, 0, 0.0};
    h.answerWith(final);
    const QByteArray pcm = CoordinatorHarness::tone(12800);
    auto one = [&] {
        h.coordinator->handleTriggerDown();
        h.speak(pcm);
        h.coordinator->handleTriggerUp();
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000));
    };
    // Warm up allocator pools and Qt's caches before the first reading.
    for (int i = 0; i < 3; ++i) {
        one();
    }
    // What the fakes and the test engine remember grows by itself; keep only the coordinator's.
    h.engine.setRecording(false);
    h.synthesizer->onPaste = nullptr;
    QObject::disconnect(h.coordinator.get(), &SayvoCoordinator::stateChanged, nullptr, nullptr);
    const qint64 before = test::residentKiB();
    for (int i = 0; i < 200; ++i) {
        one();
    }
    h.pasteboard->log.clear();
    h.synthesizer->posted.clear();
    const qint64 after = test::residentKiB();
    std::cout << "[ RSS      ] before " << before << " kB, after 200 utterances " << after
              << " kB\n";
    EXPECT_EQ(h.usage->utterances(), 203);
    EXPECT_LT(after - before, 2048) << "grew by " << (after - before) << " kB";
}

// A clipboard of megabytes fails no dictation: the context that goes with the start is
// always one frame the reference engine takes, and the engine's answer is inserted.
TEST(CoordinatorLoopbackTest, AHugeClipboardFailsNoDictationWithTheReferenceEngine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    {
        QFile replay(dir.filePath("heard.txt"));
        ASSERT_TRUE(replay.open(QIODevice::WriteOnly));
        replay.write("send the report\nsend it again\n");
    }
    test::EngineProcess engine;
    ASSERT_TRUE(engine.start(
        {QStringLiteral("--asr"), QStringLiteral("replay:") + dir.filePath("heard.txt"),
            QStringLiteral("--data-dir"), dir.filePath("data")}))
        << engine.log().toStdString();

    CoordinatorHarness h;
    h.coordinator->setDisplayDurations({0.01, 0.01});
    h.client->updateEndpoint(QUrl(engine.url()));
    ASSERT_TRUE(h.startAndConnect()) << engine.log().toStdString();
    int dictated = 0;
    for (const qsizetype megabytes : {2, 20}) {
        const QByteArray copied
            = QByteArray("Quarterly figures ") + QByteArray(megabytes << 20, 'x');
        h.pasteboard->preload({{{sayvo::testing::FakePasteboard::kPlainTextType, copied}}});
        h.coordinator->handleTriggerDown();
        h.speak(CoordinatorHarness::tone(16000));
        h.coordinator->handleTriggerUp();
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return !h.coordinator->state().is<AppState::Processing>(); }, 10000));
        EXPECT_TRUE(h.coordinator->state().is<AppState::Success>())
            << megabytes << " MB: " << describe(h.coordinator->state()).toStdString() << "\n"
            << engine.log().toStdString();
        ++dictated;
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 5000));
    }
    EXPECT_EQ(h.pastedTexts().size(), 2u);
    EXPECT_EQ(dictated, 2);
    EXPECT_EQ(h.engine.connectionCount(), 0); // the scripted engine was never used
    EXPECT_FALSE(engine.log().contains("frame_too_large")) << engine.log().toStdString();
}
