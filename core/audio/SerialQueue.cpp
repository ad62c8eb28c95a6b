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
    m_wake.notify_one();
}

void SerialQueue::sync(const std::function<void()> &work)
{
    if (isCurrent()) {
        work();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    async([&] {
        work();
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
}

void SerialQueue::run()
{
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_items.empty(); });
            if (m_stopping) {
                return;
            }
            work = std::move(m_items.front());
            m_items.pop_front();
        }
        work();
    }
}

} // namespace sayvo
