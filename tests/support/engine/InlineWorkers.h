#pragma once

#include "engine/server/WorkerPool.h"

namespace sayvo::test {

// A lane that runs each task at once, on the caller's thread: sessions driven by a test
// answer before the call returns.
class InlineLane : public TaskLane
{
public:
    void post(std::function<void()> task) override { task(); }
};

// `capacity` inline lanes; a lane is free again once dropped.
class InlineWorkers : public WorkerPool
{
public:
    explicit InlineWorkers(int capacity = 2) : m_capacity(capacity) { }

    int capacity() const override { return m_capacity; }
    int leased() const { return *m_leased; }

    std::unique_ptr<TaskLane> acquire() override
    {
        if (*m_leased >= m_capacity) {
            return nullptr;
        }
        ++*m_leased;
        return std::make_unique<Lease>(m_leased);
    }

private:
    class Lease : public InlineLane
    {
    public:
        explicit Lease(std::shared_ptr<int> leased) : m_leased(std::move(leased)) { }
        ~Lease() override { --*m_leased; }
        Lease(const Lease &) = delete;
        Lease &operator=(const Lease &) = delete;

    private:
        std::shared_ptr<int> m_leased;
    };

    int m_capacity;
    std::shared_ptr<int> m_leased = std::make_shared<int>(0);
};

} // namespace sayvo::test
