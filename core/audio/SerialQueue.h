#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace sayvo {

// A private serial queue: one worker thread runs the submitted work items one at a time in
// submission order. Destroying the queue discards the work not yet started and joins the
// worker.
class SerialQueue
{
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();

    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;

    const std::string &label() const { return m_label; }

    // Queues the work and returns at once.
    void async(std::function<void()> work);
    // Queues the work behind everything already queued and waits until it has run. Called
    // from the queue's own thread it runs the work at once instead of deadlocking.
    void sync(const std::function<void()> &work);

    bool isCurrent() const { return std::this_thread::get_id() == m_worker.get_id(); }

private:
    void run();

    std::string m_label;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_items;
    bool m_stopping = false;
    std::thread m_worker;
};

} // namespace sayvo
