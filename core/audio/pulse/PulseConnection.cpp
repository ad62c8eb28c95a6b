#include "audio/pulse/PulseConnection.h"

namespace sayvo {

namespace {

struct Deadline
{
    pa_threaded_mainloop *loop = nullptr;
    bool expired = false;
};

void deadlineReached(pa_mainloop_api *, pa_time_event *, const struct timeval *, void *userdata)
{
    auto *deadline = static_cast<Deadline *>(userdata);
    deadline->expired = true;
    pa_threaded_mainloop_signal(deadline->loop, 0);
}

void operationStateChanged(pa_operation *, void *userdata)
{
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop *>(userdata), 0);
}

} // namespace

PulseConnection::PulseConnection(const char *clientName)
    : m_clientName(clientName), m_loop(pa_threaded_mainloop_new())
{
    pa_threaded_mainloop_start(m_loop);
}

PulseConnection::~PulseConnection()
{
    close();
    pa_threaded_mainloop_stop(m_loop);
    pa_threaded_mainloop_free(m_loop);
}

void PulseConnection::close()
{
    // Callbacks run on the loop thread with the lock held: once it is ours, none is running.
    Lock lock(*this);
    m_onReady = nullptr;
    m_onFailure = nullptr;
    if (m_retry) {
        api()->time_free(m_retry);
        m_retry = nullptr;
    }
    dropContext();
}

void PulseConnection::setReadyHandler(std::function<void(pa_context *)> handler)
{
    Lock lock(*this);
    m_onReady = std::move(handler);
}

void PulseConnection::setFailureHandler(std::function<void(bool wasReady)> handler)
{
    Lock lock(*this);
    m_onFailure = std::move(handler);
}

void PulseConnection::dropContext()
{
    if (!m_context) {
        return;
    }
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
}

void PulseConnection::contextStateChanged(pa_context *context, void *userdata)
{
    auto *self = static_cast<PulseConnection *>(userdata);
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        self->m_contextWasReady = true;
        if (self->m_onReady) {
            self->m_onReady(context);
        }
    } else if (!PA_CONTEXT_IS_GOOD(state) && self->m_onFailure) {
        self->m_onFailure(self->m_contextWasReady);
    }
    self->signal();
}

void PulseConnection::reconnectLater(int delayMs)
{
    if (m_retry) {
        return;
    }
    struct timeval when;
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(delayMs) * PA_USEC_PER_MSEC);
    m_retry = api()->time_new(api(), &when, &PulseConnection::retryDue, this);
}

void PulseConnection::retryDue(
    pa_mainloop_api *api, pa_time_event *event, const struct timeval *, void *userdata)
{
    auto *self = static_cast<PulseConnection *>(userdata);
    api->time_free(event);
    self->m_retry = nullptr;
    if (self->m_context && PA_CONTEXT_IS_GOOD(pa_context_get_state(self->m_context))) {
        return;
    }
    self->dropContext();
    QString error;
    self->startConnecting(&error);
}

bool PulseConnection::startConnecting(QString *error)
{
    m_context = pa_context_new(api(), m_clientName.constData());
    m_contextWasReady = false;
    pa_context_set_state_callback(m_context, &PulseConnection::contextStateChanged, this);
    // A dictation client has no business starting a sound server of its own.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        *error = QString::fromUtf8(pa_strerror(pa_context_errno(m_context)));
        dropContext();
        if (m_onFailure) {
            m_onFailure(false);
        }
        return false;
    }
    return true;
}

pa_context *PulseConnection::readyContext(QString *error)
{
    if (m_context) {
        const pa_context_state_t state = pa_context_get_state(m_context);
        if (state == PA_CONTEXT_READY) {
            return m_context;
        }
        if (!PA_CONTEXT_IS_GOOD(state)) {
            dropContext();
        }
    }
    if (!m_context && !startConnecting(error)) {
        return nullptr;
    }
    pa_context *context = m_context;
    const bool settled = waitUntil([context] {
        return !PA_CONTEXT_IS_GOOD(pa_context_get_state(context))
            || pa_context_get_state(context) == PA_CONTEXT_READY;
    });
    if (!settled) {
        *error = QStringLiteral("timed out connecting");
        dropContext();
        return nullptr;
    }
    if (pa_context_get_state(context) != PA_CONTEXT_READY) {
        *error = QString::fromUtf8(pa_strerror(pa_context_errno(context)));
        dropContext();
        return nullptr;
    }
    return context;
}

bool PulseConnection::waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    if (done()) {
        return true;
    }
    Deadline deadline {m_loop, false};
    struct timeval when;
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(timeoutMs) * PA_USEC_PER_MSEC);
    pa_time_event *timer = api()->time_new(api(), &when, deadlineReached, &deadline);
    while (!done() && !deadline.expired) {
        pa_threaded_mainloop_wait(m_loop);
    }
    api()->time_free(timer);
    return done();
}

bool PulseConnection::complete(pa_operation *operation)
{
    if (!operation) {
        return false;
    }
    pa_operation_set_state_callback(operation, operationStateChanged, m_loop);
    waitUntil([operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
    const bool done = pa_operation_get_state(operation) == PA_OPERATION_DONE;
    if (!done) {
        pa_operation_cancel(operation);
    }
    pa_operation_set_state_callback(operation, nullptr, nullptr);
    pa_operation_unref(operation);
    return done;
}

} // namespace sayvo
