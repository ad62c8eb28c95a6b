#include "audio/SerialQueue.h"

namespace sayvo {

SerialQueue::SerialQueue(std::string label) : m_label(std::move(label))
{
    m_worker = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_items.clear();
    }
    m_wake.notify_all();
    m_worker.join();
}

void SerialQueue::async(std::function<void()> work)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping) {
            return;
        }
        m_items.push_back(std::move(work));
    }
    m_wake.notify_all();
}

void SerialQueue::claim()
{
    m_running = true;
    m_runner = std::this_thread::get_id();
}

void SerialQueue::release()
{
    {
        std::lock_guard lock(m_mutex);
        m_running = false;
        m_runner = std::thread::id();
    }
    // The worker for what came meanwhile, or a sync() waiting for its turn.
    m_wake.notify_all();
}

void SerialQueue::sync(const std::function<void()> &work)
{
    if (isCurrent()) {
        work();
        return;
    }
    std::deque<std::function<void()>> earlier;
    {
        std::unique_lock lock(m_mutex);
        m_wake.wait(lock, [this] { return !m_running; });
        claim();
        earlier.swap(m_items);
    }
    for (const auto &item : earlier) {
        item();
    }
    work();
    release();
}

void SerialQueue::run()
{
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || (!m_running && !m_items.empty()); });
            if (m_stopping) {
                return;
            }
            claim();
            work = std::move(m_items.front());
            m_items.pop_front();
        }
        work();
        release();
    }
}

} // namespace sayvo
