#include "session/OutboundQueue.h"

#include <QMetaObject>
#include <QPointer>

#include <algorithm>
#include <iterator>

namespace sayvo {

OutboundQueue::OutboundQueue(QObject *context, Consumer consume)
    : m_context(context), m_consume(std::move(consume))
{ }

OutboundQueue::~OutboundQueue()
{
    *m_alive = false;
}

namespace {

bool isAudio(const OutboundEvent &event)
{
    return std::holds_alternative<OutboundEvent::Audio>(event.value);
}

} // namespace

void OutboundQueue::enqueue(OutboundEvent event)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_finished) {
            return;
        }
        if (m_holdingAudio && isAudio(event)) {
            m_heldAudio.push_back(std::move(event));
            return;
        }
        m_events.push_back(std::move(event));
        if (!needsWake()) {
            return;
        }
    }
    wake();
}

bool OutboundQueue::needsWake()
{
    if (m_pumping || m_wakePosted) {
        return false;
    }
    m_wakePosted = true;
    return true;
}

void OutboundQueue::holdAudio()
{
    std::lock_guard lock(m_mutex);
    m_holdingAudio = true;
}

void OutboundQueue::releaseAudio()
{
    {
        std::lock_guard lock(m_mutex);
        m_holdingAudio = false;
        if (m_finished || m_heldAudio.empty()) {
            m_heldAudio.clear();
            return;
        }
        std::move(m_heldAudio.begin(), m_heldAudio.end(), std::back_inserter(m_events));
        m_heldAudio.clear();
        if (!needsWake()) {
            return;
        }
    }
    wake();
}

void OutboundQueue::discardAudio()
{
    std::lock_guard lock(m_mutex);
    m_heldAudio.clear();
    std::erase_if(m_events, isAudio);
}

void OutboundQueue::finish()
{
    std::lock_guard lock(m_mutex);
    m_finished = true;
    m_events.clear();
    m_heldAudio.clear();
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

void OutboundQueue::handOutNow()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_pumping) {
            return;
        }
    }
    pump();
}

void OutboundQueue::wake()
{
    // The weak flag lets a wake-up that was already posted find the queue gone.
    std::weak_ptr<bool> alive = m_alive;
    QMetaObject::invokeMethod(
        m_context,
        [this, alive] {
            const auto flag = alive.lock();
            if (!flag || !*flag) {
                return;
            }
            {
                std::lock_guard lock(m_mutex);
                m_wakePosted = false;
                if (m_pumping) {
                    return;
                }
            }
            pump();
        },
        Qt::QueuedConnection);
}

void OutboundQueue::pump()
{
    // Events whose handling is over when the consumer returns go out in this same turn (a
    // key-up's last audio and its end wait for no event-loop turn between them); one that
    // completes later continues the queue from the event loop. A long run yields to the
    // event loop now and then.
    {
        std::lock_guard lock(m_mutex);
        m_pumping = true;
    }
    for (int handled = 0; handled < kEventsPerTurn; ++handled) {
        std::optional<OutboundEvent> next;
        {
            std::lock_guard lock(m_mutex);
            if (m_finished || m_events.empty()) {
                m_pumping = false;
                return;
            }
            next = std::move(m_events.front());
            m_events.pop_front();
        }
        // Whether the consumer has returned, and whether done() came before it did.
        struct Step
        {
            bool returned = false;
            bool done = false;
        };
        auto step = std::make_shared<Step>();
        std::weak_ptr<bool> alive = m_alive;
        m_consume(std::move(*next), [this, alive, step] {
            if (!step->returned) {
                step->done = true;
                return;
            }
            const auto flag = alive.lock();
            if (!flag || !*flag) {
                return;
            }
            // Completed later: the queue goes on from the event loop.
            continueFromEventLoop();
        });
        // The consumer may have ended the queue's owner.
        const auto flag = alive.lock();
        if (!flag || !*flag) {
            return;
        }
        step->returned = true;
        if (!step->done) {
            return;
        }
    }
    continueFromEventLoop();
}

void OutboundQueue::continueFromEventLoop()
{
    {
        std::lock_guard lock(m_mutex);
        m_pumping = false;
        if (!needsWake()) {
            return;
        }
    }
    wake();
}

} // namespace sayvo
