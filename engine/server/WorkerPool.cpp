#include "engine/server/WorkerPool.h"

#include <algorithm>

namespace sayvo {

WorkerThread::WorkerThread() : m_thread([this] { run(); }) { }

WorkerThread::~WorkerThread()
{
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        dropped.swap(m_tasks);
    }
    m_wake.notify_one();
    m_thread.join();
}

void WorkerThread::post(std::function<void()> task)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping) {
            return;
        }
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_one();
}

void WorkerThread::run()
{
    while (true) {
        std::function<void()> task;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
            if (m_stopping) {
                return;
            }
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        task();
    }
}

class ThreadWorkerPool::Lease : public TaskLane
{
public:
    Lease(ThreadWorkerPool &pool, std::size_t index, WorkerThread &thread)
        : m_pool(pool), m_index(index), m_thread(thread)
    { }
    ~Lease() override
    {
        m_thread.post([pool = &m_pool, index = m_index] { pool->release(index); });
    }
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;

    void post(std::function<void()> task) override { m_thread.post(std::move(task)); }

private:
    ThreadWorkerPool &m_pool;
    std::size_t m_index;
    WorkerThread &m_thread;
};

ThreadWorkerPool::ThreadWorkerPool(int capacity)
    : m_leased(static_cast<std::size_t>(std::max(capacity, 1)), false), m_threads(m_leased.size())
{ }

ThreadWorkerPool::~ThreadWorkerPool() = default;

std::unique_ptr<TaskLane> ThreadWorkerPool::acquire()
{
    const std::lock_guard lock(m_mutex);
    const auto free = std::find(m_leased.begin(), m_leased.end(), false);
    if (free == m_leased.end()) {
        return nullptr;
    }
    *free = true;
    const auto index = static_cast<std::size_t>(free - m_leased.begin());
    if (!m_threads[index]) {
        m_threads[index] = std::make_unique<WorkerThread>();
    }
    return std::make_unique<Lease>(*this, index, *m_threads[index]);
}

void ThreadWorkerPool::release(std::size_t index)
{
    const std::lock_guard lock(m_mutex);
    m_leased[index] = false;
}

} // namespace sayvo
