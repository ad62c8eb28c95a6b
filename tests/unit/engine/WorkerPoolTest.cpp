#include "engine/server/WorkerPool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <vector>

namespace sayvo {
namespace {

using namespace std::chrono_literals;

// A task that holds its worker until the test lets it go, as a long final pass does. Opens
// when it goes out of scope too, so that a failed test does not leave the pool waiting.
class Gate
{
public:
    Gate() = default;
    ~Gate() { open(); }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;

    std::function<void()> task()
    {
        return [this] {
            m_entered.set_value();
            m_open.wait();
        };
    }
    bool waitEntered() { return m_enteredFuture.wait_for(20s) == std::future_status::ready; }
    void open()
    {
        if (!m_opened) {
            m_opened = true;
            m_opener.set_value();
        }
    }

private:
    std::promise<void> m_entered;
    std::future<void> m_enteredFuture = m_entered.get_future();
    std::promise<void> m_opener;
    std::shared_future<void> m_open = m_opener.get_future().share();
    bool m_opened = false;
};

TEST(ThreadWorkerPool, ALaneDroppedWhileItsWorkerIsBusyIsFreeAtOnce)
{
    ThreadWorkerPool pool(1);
    Gate gate;
    std::mutex mutex;
    std::vector<int> order;
    auto lane = pool.acquire();
    ASSERT_NE(lane, nullptr);
    lane->post(gate.task());
    lane->post([&] {
        const std::lock_guard lock(mutex);
        order.push_back(1);
    });
    ASSERT_TRUE(gate.waitEntered());
    lane.reset();

    auto next = pool.acquire();
    ASSERT_NE(next, nullptr) << "the only worker still counted as leased";
    std::promise<void> ran;
    next->post([&] {
        {
            const std::lock_guard lock(mutex);
            order.push_back(2);
        }
        ran.set_value();
    });
    gate.open();
    ASSERT_EQ(ran.get_future().wait_for(20s), std::future_status::ready);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(order, (std::vector<int> {1, 2})) << "the old lane's tasks run first";
}

TEST(ThreadWorkerPool, PastItsCapacityNoLaneIsHandedOut)
{
    ThreadWorkerPool pool(2);
    auto first = pool.acquire();
    auto second = pool.acquire();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(pool.acquire(), nullptr);
    second.reset();
    EXPECT_NE(pool.acquire(), nullptr);
}

TEST(ThreadWorkerPool, ANewLaneGoesToAnIdleWorkerRatherThanABusyOne)
{
    ThreadWorkerPool pool(2);
    auto warm = pool.acquire();
    auto other = pool.acquire();
    ASSERT_NE(warm, nullptr);
    ASSERT_NE(other, nullptr);
    other.reset(); // both workers now started and free
    Gate gate;
    warm->post(gate.task());
    ASSERT_TRUE(gate.waitEntered());
    warm.reset();

    auto next = pool.acquire();
    ASSERT_NE(next, nullptr);
    std::promise<void> ran;
    next->post([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(20s), std::future_status::ready)
        << "the new lane waited behind the busy worker";
    gate.open();
}

} // namespace
} // namespace sayvo
