#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace sayvo {

// A private serial queue: the submitted work items run one at a time in submission order,
// on the queue's worker thread, except that sync() runs them itself. Destroying the queue
// discards the work not yet started and joins the worker.
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
    // Runs the work behind everything already queued and returns once it has run. Once the
    // item under way (if any) is over, the caller's thread runs the waiting items and then
    // the work itself, as the queue: a caller never waits for the worker thread to be
    // scheduled, which on a busy machine can take milliseconds. Called from the queue's own
    // work it runs the work at once instead of deadlocking.
    void sync(const std::function<void()> &work);

    // Whether this thread is running the queue's work now.
    bool isCurrent() const { return m_runner.load() == std::this_thread::get_id(); }

private:
    void run();
    // Under m_mutex: the calling thread runs the queue's work until release().
    void claim();
    void release();

    std::string m_label;
    std::mutex m_mutex;
    // Work arrived, or the queue is free for a waiting sync().
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_items;
    bool m_running = false;
    std::atomic<std::thread::id> m_runner;
    bool m_stopping = false;
    std::thread m_worker;
};

} // namespace sayvo
