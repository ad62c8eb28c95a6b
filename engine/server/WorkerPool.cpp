#include "engine/server/WorkerPool.h"

#include <algorithm>
#include <optional>

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

std::size_t WorkerThread::pending()
{
    const std::lock_guard lock(m_mutex);
    return m_tasks.size() + (m_running ? 1 : 0);
}

void WorkerThread::run()
{
    std::unique_lock lock(m_mutex);
    while (true) {
        m_running = false;
        m_wake.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
        if (m_stopping) {
            return;
        }
        std::function<void()> task = std::move(m_tasks.front());
        m_tasks.pop_front();
        m_running = true;
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}

class ThreadWorkerPool::Lease : public TaskLane
{
public:
    Lease(ThreadWorkerPool &pool, std::size_t index, WorkerThread &thread)
        : m_pool(pool), m_index(index), m_thread(thread)
    { }
    ~Lease() override { m_pool.release(m_index); }
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
    std::optional<std::size_t> best;
    std::size_t bestPending = 0;
    for (std::size_t i = 0; i < m_leased.size(); ++i) {
        if (m_leased[i]) {
            continue;
        }
        const std::size_t pending = m_threads[i] ? m_threads[i]->pending() : 0;
        if (!best || pending < bestPending) {
            best = i;
            bestPending = pending;
        }
    }
    if (!best) {
        return nullptr;
    }
    m_leased[*best] = true;
    if (!m_threads[*best]) {
        m_threads[*best] = std::make_unique<WorkerThread>();
    }
    return std::make_unique<Lease>(*this, *best, *m_threads[*best]);
}

void ThreadWorkerPool::release(std::size_t index)
{
    const std::lock_guard lock(m_mutex);
    m_leased[index] = false;
}

} // namespace sayvo
