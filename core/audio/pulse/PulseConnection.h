#pragma once

#include <QString>

#include <pulse/pulseaudio.h>

#include <functional>

namespace sayvo {

// One client connection to the PulseAudio server (or PipeWire's pulse server): a threaded
// main loop that lives as long as this object and a context that is made anew whenever the
// previous one failed, so a server that restarts is found again by the next call. The
// methods marked "locked" expect the caller to hold the loop's lock (Lock) and must not be
// called on the loop's own thread. Every wait is bounded, so a hung server never hangs the
// caller.
class PulseConnection
{
public:
    class Lock
    {
    public:
        explicit Lock(PulseConnection &connection) : m_loop(connection.m_loop)
        {
            pa_threaded_mainloop_lock(m_loop);
        }
        ~Lock() { pa_threaded_mainloop_unlock(m_loop); }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        pa_threaded_mainloop *m_loop;
    };

    static constexpr int kTimeoutMs = 3000;

    explicit PulseConnection(const char *clientName);
    ~PulseConnection();

    PulseConnection(const PulseConnection &) = delete;
    PulseConnection &operator=(const PulseConnection &) = delete;

    // Ends the connection: once this returns, no handler and no callback registered on its
    // context runs again, until readyContext() connects anew. An owner whose callbacks use its
    // own members calls this first in its destructor, before those members are gone (the loop
    // thread would otherwise run them in between).
    void close();
    // Locked. A ready context, connecting first if needed; null with `error` set otherwise.
    pa_context *readyContext(QString *error);
    // Locked. Waits for the operation to finish and releases it; false if it was cancelled
    // (the context failed) or timed out.
    bool complete(pa_operation *operation);
    // Locked. Waits until `done` holds, a signal arrives after which it holds, or the
    // timeout passes; returns `done()`.
    bool waitUntil(const std::function<bool()> &done, int timeoutMs = kTimeoutMs);

    // Wakes every waiter; for callbacks on the loop thread.
    void signal() { pa_threaded_mainloop_signal(m_loop, 0); }

    // Called on the loop thread, lock held: after a context became ready, and after a
    // context failed (`wasReady`: it had been connected, so the server went away; otherwise
    // a connection attempt failed).
    void setReadyHandler(std::function<void(pa_context *)> handler);
    void setFailureHandler(std::function<void(bool wasReady)> handler);

    // Locked, or on the loop thread. Starts a connection attempt after the delay unless a
    // context is connected or connecting by then; the outcome goes to the handlers above.
    void reconnectLater(int delayMs);

    pa_mainloop_api *api() { return pa_threaded_mainloop_get_api(m_loop); }

private:
    static void contextStateChanged(pa_context *context, void *userdata);
    static void retryDue(
        pa_mainloop_api *api, pa_time_event *event, const struct timeval *, void *userdata);
    // Locked. Creates a context and starts connecting it; false (after telling the failure
    // handler) if that failed at once.
    bool startConnecting(QString *error);
    void dropContext();

    QByteArray m_clientName;
    pa_threaded_mainloop *m_loop = nullptr;
    pa_context *m_context = nullptr;
    bool m_contextWasReady = false;
    pa_time_event *m_retry = nullptr;
    std::function<void(pa_context *)> m_onReady;
    std::function<void(bool wasReady)> m_onFailure;
};

} // namespace sayvo
