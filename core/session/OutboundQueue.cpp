#include "session/OutboundQueue.h"

#include <QMetaObject>
#include <QPointer>

namespace sayvo {

OutboundQueue::OutboundQueue(QObject *context, Consumer consume)
    : m_context(context), m_consume(std::move(consume))
{ }

OutboundQueue::~OutboundQueue()
{
    *m_alive = false;
}

void OutboundQueue::enqueue(OutboundEvent event)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_finished) {
            return;
        }
        m_events.push_back(std::move(event));
        if (m_busy) {
            return;
        }
        m_busy = true;
    }
    wake();
}

void OutboundQueue::finish()
{
    std::lock_guard lock(m_mutex);
    m_finished = true;
    m_events.clear();
}

bool OutboundQueue::isFinished() const
{
    std::lock_guard lock(m_mutex);
    return m_finished;
}

size_t OutboundQueue::pendingCount() const
{
    std::lock_guard lock(m_mutex);
    return m_events.size();
}

void OutboundQueue::wake()
{
    // The weak flag lets a wake-up that was already posted find the queue gone.
    std::weak_ptr<bool> alive = m_alive;
    QMetaObject::invokeMethod(
        m_context,
        [this, alive] {
            if (alive.lock() && *alive.lock()) {
                pumpNext();
            }
        },
        Qt::QueuedConnection);
}

void OutboundQueue::pumpNext()
{
    std::optional<OutboundEvent> next;
    {
        std::lock_guard lock(m_mutex);
        if (m_finished || m_events.empty()) {
            m_busy = false;
            return;
        }
        next = std::move(m_events.front());
        m_events.pop_front();
    }
    std::weak_ptr<bool> alive = m_alive;
    m_consume(std::move(*next), [this, alive] {
        const auto flag = alive.lock();
        if (flag && *flag) {
            // Continue from the event loop so a long run of ready events never recurses.
            wake();
        }
    });
}

} // namespace sayvo
