// The coordinator's outbound queue: order, audio held aside and dropped, finishing.
#include "session/OutboundQueue.h"

#include <QObject>
#include <QTest>

#include <gtest/gtest.h>

#include <thread>

using namespace sayvo;

namespace {

QString name(const OutboundEvent &event)
{
    if (const auto *start = std::get_if<OutboundEvent::Start>(&event.value)) {
        return QStringLiteral("start ") + start->id;
    }
    if (const auto *audio = std::get_if<OutboundEvent::Audio>(&event.value)) {
        return QStringLiteral("audio ") + QString::fromLatin1(audio->bytes);
    }
    return QStringLiteral("end ") + std::get<OutboundEvent::End>(event.value).id;
}

class OutboundQueueTest : public ::testing::Test
{
protected:
    OutboundEvent start(const QString &id) { return {OutboundEvent::Start {id, {}}}; }
    OutboundEvent audio(const char *bytes) { return {OutboundEvent::Audio {QByteArray(bytes)}}; }
    OutboundEvent end(const QString &id) { return {OutboundEvent::End {id}}; }

    // A consumer whose events complete when the test calls `pending`.
    OutboundQueue::Consumer completingLater(std::function<void()> &pending)
    {
        return [this, &pending](const OutboundEvent &event, const std::function<void()> &done) {
            handled << name(event);
            pending = done;
        };
    }

    bool waitForCount(int count)
    {
        return QTest::qWaitFor([&] { return handled.size() == count; }, 2000);
    }

    QObject context;
    QStringList handled;
    OutboundQueue queue {&context, [this](OutboundEvent event, const std::function<void()> &done) {
                             handled << name(event);
                             done();
                         }};
};

} // namespace

TEST_F(OutboundQueueTest, EventsAreHandedOutInOrderFromTheEventLoop)
{
    queue.enqueue(start("U1"));
    queue.enqueue(audio("a"));
    queue.enqueue(end("U1"));
    EXPECT_TRUE(handled.isEmpty());
    ASSERT_TRUE(waitForCount(3));
    EXPECT_EQ(handled, (QStringList {"start U1", "audio a", "end U1"}));
}

// A key-up queues the last audio and the end together: both go out in the first event-loop
// turn, not one turn each.
TEST_F(OutboundQueueTest, EventsHandledAtOnceGoOutInOneEventLoopTurn)
{
    queue.enqueue(audio("a"));
    queue.enqueue(audio("b"));
    queue.enqueue(end("U1"));
    // Queued behind the queue's wake-up: it runs once that turn is over.
    QStringList afterOneTurn;
    QMetaObject::invokeMethod(
        &context, [&] { afterOneTurn = handled; }, Qt::QueuedConnection);
    ASSERT_TRUE(waitForCount(3));
    EXPECT_EQ(afterOneTurn, (QStringList {"audio a", "audio b", "end U1"}));
}

// One whose handling completes later holds the rest back until it does.
TEST_F(OutboundQueueTest, AnEventCompletedLaterHoldsBackTheNextUntilItIsDone)
{
    std::function<void()> pending;
    OutboundQueue slow(&context, completingLater(pending));
    slow.enqueue(start("U1"));
    slow.enqueue(end("U1"));
    ASSERT_TRUE(waitForCount(1));
    QTest::qWait(50);
    EXPECT_EQ(handled, QStringList {"start U1"});
    pending();
    ASSERT_TRUE(waitForCount(2));
    EXPECT_EQ(handled, (QStringList {"start U1", "end U1"}));
}

// The key-up's end goes out inside the key's own handling, before anything else in that turn,
// including what a capture thread queued and woke the queue for.
TEST_F(OutboundQueueTest, HandingOutNowSendsWhatWaitsWithinTheCall)
{
    std::thread capture([&] { queue.enqueue(audio("a")); });
    capture.join();
    queue.enqueue(end("U1"));
    queue.handOutNow();
    EXPECT_EQ(handled, (QStringList {"audio a", "end U1"}));
    // The wake-up already on its way finds nothing left to send, and later events still go out.
    queue.enqueue(start("U2"));
    ASSERT_TRUE(waitForCount(3));
    QTest::qWait(50);
    EXPECT_EQ(handled, (QStringList {"audio a", "end U1", "start U2"}));
}

// An event still being handled keeps its place: nothing overtakes it.
TEST_F(OutboundQueueTest, HandingOutNowLeavesAnEventInHandAlone)
{
    std::function<void()> pending;
    OutboundQueue slow(&context, completingLater(pending));
    slow.enqueue(start("U1"));
    slow.handOutNow();
    EXPECT_EQ(handled, QStringList {"start U1"});
    slow.enqueue(end("U1"));
    slow.handOutNow();
    EXPECT_EQ(handled, QStringList {"start U1"});
    pending();
    ASSERT_TRUE(waitForCount(2));
    EXPECT_EQ(handled, (QStringList {"start U1", "end U1"}));
}

// A long run still lets the event loop in between.
TEST_F(OutboundQueueTest, ALongRunYieldsToTheEventLoop)
{
    for (int i = 0; i < OutboundQueue::kEventsPerTurn * 2; ++i) {
        queue.enqueue(audio("a"));
    }
    qsizetype afterOneTurn = -1;
    QMetaObject::invokeMethod(
        &context, [&] { afterOneTurn = handled.size(); }, Qt::QueuedConnection);
    ASSERT_TRUE(waitForCount(OutboundQueue::kEventsPerTurn * 2));
    EXPECT_EQ(afterOneTurn, OutboundQueue::kEventsPerTurn);
}

TEST_F(OutboundQueueTest, HeldAudioFollowsWhatWasQueuedMeanwhile)
{
    queue.holdAudio();
    std::thread capture([&] { queue.enqueue(audio("early")); });
    capture.join();
    queue.enqueue(start("U1"));
    QTest::qWait(50);
    EXPECT_EQ(handled, QStringList {"start U1"});
    queue.releaseAudio();
    queue.enqueue(audio("later"));
    ASSERT_TRUE(waitForCount(3));
    EXPECT_EQ(handled, (QStringList {"start U1", "audio early", "audio later"}));
}

TEST_F(OutboundQueueTest, DiscardingDropsOnlyTheAudioNotYetHandedOut)
{
    queue.enqueue(start("U1"));
    queue.enqueue(audio("a"));
    queue.enqueue(audio("b"));
    queue.enqueue(end("U1"));
    queue.holdAudio();
    queue.enqueue(audio("held"));
    queue.discardAudio();
    queue.releaseAudio();
    ASSERT_TRUE(waitForCount(2));
    QTest::qWait(50);
    EXPECT_EQ(handled, (QStringList {"start U1", "end U1"}));
}

TEST_F(OutboundQueueTest, AFinishedQueueTakesAndHandsOutNothing)
{
    queue.enqueue(start("U1"));
    queue.holdAudio();
    queue.enqueue(audio("held"));
    queue.finish();
    queue.releaseAudio();
    queue.enqueue(end("U1"));
    QTest::qWait(100);
    EXPECT_TRUE(handled.isEmpty());
    EXPECT_TRUE(queue.isFinished());
    EXPECT_EQ(queue.pendingCount(), 0u);
}
