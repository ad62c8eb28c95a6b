#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace sayvo {

// Runs the tasks posted to it one after another, in the order posted, away from the caller.
class TaskLane
{
public:
    virtual ~TaskLane() = default;
    virtual void post(std::function<void()> task) = 0;
};

// A fixed number of workers, handed out one per live utterance.
class WorkerPool
{
public:
    virtual ~WorkerPool() = default;
    virtual int capacity() const = 0;
    // A lane on a worker of its own, or null while every worker is leased. Dropping the lane
    // frees its worker at once: the tasks already posted to it still run, before any task
    // of the worker's next lane.
    virtual std::unique_ptr<TaskLane> acquire() = 0;
};

// A thread of its own with a queue of tasks. The destructor drops the tasks still queued
// and waits for the running one.
class WorkerThread : public TaskLane
{
public:
    WorkerThread();
    ~WorkerThread() override;
    WorkerThread(const WorkerThread &) = delete;
    WorkerThread &operator=(const WorkerThread &) = delete;

    void post(std::function<void()> task) override;
    // Tasks queued or running.
    std::size_t pending();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
    bool m_running = false;
    bool m_stopping = false;
    std::thread m_thread;
};

// `capacity` worker threads, each started the first time it is leased. A new lease goes to
// the free worker with the least work left, so that it rarely waits behind another
// utterance's final pass.
class ThreadWorkerPool : public WorkerPool
{
public:
    explicit ThreadWorkerPool(int capacity);
    ~ThreadWorkerPool() override;

    int capacity() const override { return static_cast<int>(m_threads.size()); }
    std::unique_ptr<TaskLane> acquire() override;

private:
    class Lease;
    void release(std::size_t index);

    std::mutex m_mutex;
    std::vector<bool> m_leased;
    std::vector<std::unique_ptr<WorkerThread>> m_threads;
};

} // namespace sayvo
