#pragma once

#include "session/OutboundEvent.h"

#include <QObject>

#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace sayvo {

// An unbounded first-in first-out queue of outbound events. Producers on any thread
// (the audio capture queue, the main thread) never block and nothing is dropped; the
// consumer runs on the thread `context` lives on and is woken with a queued call whenever
// events are waiting and it is not busy; events it handles at once follow in the same turn.
class OutboundQueue
{
public:
    // `consume` is called on the context's thread with the next event and a `done` callback
    // that must be called once the event is handled; the next event waits for it.
    using Consumer = std::function<void(OutboundEvent event, std::function<void()> done)>;

    OutboundQueue(QObject *context, Consumer consume);
    ~OutboundQueue();

    OutboundQueue(const OutboundQueue &) = delete;
    OutboundQueue &operator=(const OutboundQueue &) = delete;

    // Thread-safe. Ignored once the queue is finished.
    void enqueue(OutboundEvent event);

    // Audio events wait aside from holdAudio() until releaseAudio(), which queues them behind
    // whatever was queued meanwhile: the microphone can open before its utterance's start is
    // queued.
    void holdAudio();
    void releaseAudio();
    // Drops the audio events not yet handed out (those of an utterance that has ended).
    void discardAudio();

    // On the consumer's thread: hands out the waiting events now, as the wake-up on its way
    // would, unless one is being handled (its completion continues the queue). The key-up's
    // end then goes out before the state's observers run, not after them.
    void handOutNow();

    // No further events are accepted or handed out.
    void finish();
    bool isFinished() const;

    size_t pendingCount() const;

    // The most events handed out in one event-loop turn.
    static constexpr int kEventsPerTurn = 64;

private:
    // Under m_mutex: posts a wake-up unless one is on its way or the consumer is at work.
    bool needsWake();
    void wake(); // any thread
    void pump(); // consumer thread
    // The consumer stops; a wake-up hands out what is left.
    void continueFromEventLoop();

    QObject *m_context;
    Consumer m_consume;
    mutable std::mutex m_mutex;
    std::deque<OutboundEvent> m_events;
    std::deque<OutboundEvent> m_heldAudio;
    bool m_holdingAudio = false;
    bool m_finished = false;
    // The consumer is handing out events, or waits for an event's completion.
    bool m_pumping = false;
    bool m_wakePosted = false;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace sayvo
