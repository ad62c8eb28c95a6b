#include "audio/SerialQueue.h"

#include <gtest/gtest.h>

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
    for (int i = 0; i < 100; ++i) {
        queue.async([&, i] {
            order.push_back(i);
            worker = std::this_thread::get_id();
        });
    }
    queue.sync([] {});
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[std::size_t(i)], i);
    }
    EXPECT_NE(worker, std::this_thread::get_id());
    EXPECT_EQ(queue.label(), "com.sayvoapp.audiocapture");
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
