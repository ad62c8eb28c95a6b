#include "audio/SerialQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace sayvo;

TEST(SerialQueueTest, RunsWorkInSubmissionOrderOnItsOwnThread)
{
    SerialQueue queue("com.sayvoapp.audiocapture");
    std::vector<int> order;
    std::thread::id worker;
    std::atomic<bool> last {false};
    for (int i = 0; i < 100; ++i) {
        queue.async([&, i] {
            order.push_back(i);
            worker = std::this_thread::get_id();
            last = i == 99;
        });
    }
    // Waited for without a sync(), which would run what is still waiting itself.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!last && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(last);
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[std::size_t(i)], i);
    }
    EXPECT_NE(worker, std::this_thread::get_id());
    EXPECT_EQ(queue.label(), "com.sayvoapp.audiocapture");
}

TEST(SerialQueueTest, SyncOnAnIdleQueueRunsOnTheCallersThreadAsTheQueue)
{
    SerialQueue queue("test");
    std::thread::id ran;
    bool current = false;
    queue.sync([&] {
        ran = std::this_thread::get_id();
        current = queue.isCurrent();
    });
    EXPECT_EQ(ran, std::this_thread::get_id());
    EXPECT_TRUE(current);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueueTest, SyncRunsEverythingQueuedBeforeItFirstAndLaterWorkStillRuns)
{
    SerialQueue queue("test");
    std::vector<int> order;
    for (int i = 0; i < 100; ++i) {
        queue.async([&, i] { order.push_back(i); });
    }
    std::size_t seenBySync = 0;
    queue.sync([&] { seenBySync = order.size(); });
    EXPECT_EQ(seenBySync, 100u);
    // Work queued after a sync is the worker's again.
    std::atomic<bool> later {false};
    queue.async([&] { later = true; });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!later && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(later);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[std::size_t(i)], i);
    }
}

TEST(SerialQueueTest, SyncsFromManyThreadsNeverOverlap)
{
    SerialQueue queue("test");
    int inside = 0;
    int most = 0;
    int total = 0;
    auto enter = [&] {
        most = std::max(most, ++inside);
        ++total;
        std::this_thread::yield();
        --inside;
    };
    constexpr int kCallers = 4;
    std::vector<std::thread> callers;
    callers.reserve(kCallers);
    for (int t = 0; t < kCallers; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                queue.async(enter);
                queue.sync(enter);
            }
        });
    }
    for (auto &caller : callers) {
        caller.join();
    }
    queue.sync([] {});
    EXPECT_EQ(most, 1);
    EXPECT_EQ(total, 1600);
}

TEST(SerialQueueTest, SyncWaitsForEarlierWork)
{
    SerialQueue queue("test");
    std::atomic<bool> earlierDone {false};
    queue.async([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        earlierDone = true;
    });
    bool sawEarlier = false;
    queue.sync([&] { sawEarlier = earlierDone; });
    EXPECT_TRUE(sawEarlier);
}

TEST(SerialQueueTest, SyncFromTheQueueItselfRunsAtOnce)
{
    SerialQueue queue("test");
    bool inner = false;
    queue.sync([&] {
        EXPECT_TRUE(queue.isCurrent());
        queue.sync([&] { inner = true; });
    });
    EXPECT_TRUE(inner);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueueTest, DestructionDropsPendingWork)
{
    std::atomic<int> ran {0};
    std::atomic<bool> started {false};
    {
        SerialQueue queue("test");
        // The first item is under way when the queue goes (waited for, not guessed on a loaded
        // machine), and lasts long enough for the destructor to drop the rest behind it.
        queue.async([&] {
            started = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            ++ran;
        });
        for (int i = 0; i < 10; ++i) {
            queue.async([&] { ++ran; });
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!started && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        ASSERT_TRUE(started);
    }
    EXPECT_EQ(ran.load(), 1);
}
