#include "runtime/OutputLineReader.h"

#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

TEST(OutputLines, CutsCompleteLinesAndKeepsTheRest)
{
    QByteArray buffer("one\ntwo\r\nthr");
    EXPECT_EQ(takeCompleteLines(buffer), (QList<QByteArray> {"one", "two\r"}));
    EXPECT_EQ(buffer, QByteArray("thr"));
    buffer.append("ee\n\n");
    EXPECT_EQ(takeCompleteLines(buffer), (QList<QByteArray> {"three", ""}));
    EXPECT_TRUE(buffer.isEmpty());
}

TEST(OutputLines, InvalidUtf8IsDropped)
{
    EXPECT_EQ(decodeLine("caf\xc3\xa9"), QStringLiteral("café"));
    EXPECT_EQ(decodeLine("bad \xff byte"), std::nullopt);
    EXPECT_EQ(decodeLine("cut \xc3"), std::nullopt);
    EXPECT_EQ(decodeLine("keeps cr\r"), QStringLiteral("keeps cr\r"));
}

TEST(OutputLineReader, DeliversLinesInOrderOnTheReceiversThread)
{
    QObject receiver;
    QStringList lines;
    QList<QThread *> threads;
    OutputLineReader reader(&receiver, [&](const QString &line) {
        lines.append(line);
        threads.append(QThread::currentThread());
    });
    QThread *producer = QThread::create([&] {
        reader.consume("first\nsec");
        reader.consume("ond\n\xff\xfe\nthird\nunfinished");
    });
    producer->start();
    producer->wait();
    delete producer;
    EXPECT_TRUE(lines.isEmpty()); // nothing runs before the main thread gets to it
    EXPECT_TRUE(QTest::qWaitFor([&] { return lines.size() == 3; }, 2000));
    QTest::qWait(20);
    EXPECT_EQ(lines, (QStringList {"first", "second", "third"}));
    for (QThread *thread : threads) {
        EXPECT_EQ(thread, receiver.thread());
    }
}

TEST(OutputLineReader, NothingIsDeliveredAfterTheReceiverIsGone)
{
    auto receiver = std::make_unique<QObject>();
    int delivered = 0;
    OutputLineReader reader(receiver.get(), [&](const QString &) { ++delivered; });
    reader.consume("a\nb\n");
    receiver.reset();
    QTest::qWait(20);
    EXPECT_EQ(delivered, 0);
}

TEST(OutputLineReader, ThreeCharactersWithoutLineFeedMakeNoLine)
{
    QObject receiver;
    int delivered = 0;
    OutputLineReader reader(&receiver, [&](const QString &) { ++delivered; });
    reader.consume("abc");
    QTest::qWait(20);
    EXPECT_EQ(delivered, 0);
}

} // namespace
