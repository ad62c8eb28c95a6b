#include "engineclient/EngineClient.h"

#include "base/LatencyTrace.h"

#include <QWebSocket>

#include <chrono>
#include <cmath>
#include <utility>

namespace sayvo {

QString describe(EngineClientError error)
{
    switch (error) {
    case EngineClientError::notConnected:
        return QStringLiteral("not connected to the engine");
    case EngineClientError::sendFailed:
        return QStringLiteral("the engine connection did not take the message");
    }
    return {};
}

QString describe(const ConnectionState &state)
{
    if (const auto *connected = state.as<ConnectionState::Connected>()) {
        const Backends &b = connected->backends;
        return QStringLiteral("connected (streaming=%1 final_pass=%2 gec=%3)")
            .arg(QString::fromStdString(b.streaming.value_or("-")),
                QString::fromStdString(b.finalPass.value_or("-")),
                QString::fromStdString(b.gec.value_or("-")));
    }
    if (const auto *failed = state.as<ConnectionState::Failed>()) {
        return QStringLiteral("failed: ") + failed->message;
    }
    if (state.is<ConnectionState::Connecting>()) {
        return QStringLiteral("connecting");
    }
    return QStringLiteral("disconnected");
}

EngineClient::EngineClient(
    QUrl endpoint, QString clientVersion, std::optional<QString> language, QObject *parent)
    : QObject(parent),
      m_endpoint(std::move(endpoint)),
      m_clientVersion(std::move(clientVersion)),
      m_language(std::move(language))
{
    m_reconnectTimer.setSingleShot(true);
    // A coarse timer may fire 5% late, which at 8 s is most of a second of dictation lost.
    m_reconnectTimer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_reconnectTimer, &QTimer::timeout, this, [this] {
        if (m_shouldStayConnected) {
            openSocket();
        }
    });
}

EngineClient::~EngineClient()
{
    // Quietly: the delegate may already be gone, and nobody is left to reconnect.
    m_delegate = nullptr;
    m_pending.clear();
    m_pendingBytes = 0;
    if (m_socket != nullptr) {
        m_socket->QObject::disconnect(this);
        m_socket->abort();
    }
}

void EngineClient::setDelegate(EngineClientDelegate *delegate, QObject *lifetime)
{
    m_delegate = delegate;
    m_delegateLifetime = lifetime;
    m_delegateHasLifetime = lifetime != nullptr;
}

EngineClientDelegate *EngineClient::liveDelegate() const
{
    if (m_delegateHasLifetime && m_delegateLifetime.isNull()) {
        return nullptr;
    }
    return m_delegate;
}

void EngineClient::connect()
{
    if (m_connectionState.is<ConnectionState::Connected>()
        || m_connectionState.is<ConnectionState::Connecting>()) {
        return;
    }
    m_shouldStayConnected = true;
    m_reconnectDelaySeconds = kInitialReconnectDelaySeconds;
    openSocket();
}

void EngineClient::disconnect()
{
    m_shouldStayConnected = false;
    m_reconnectTimer.stop();
    m_receiving = false;
    if (m_socket != nullptr) {
        QWebSocket *socket = m_socket;
        m_socket = nullptr;
        failPending({EngineClientError::sendFailed, QStringLiteral("disconnected")});
        retireSocket(socket, /*graceful=*/true);
    }
    setConnectionState(ConnectionState::disconnected());
}

void EngineClient::updateEndpoint(const QUrl &url)
{
    if (url == m_endpoint) {
        return;
    }
    m_endpoint = url;
    if (m_shouldStayConnected) {
        disconnect();
        connect();
    }
}

void EngineClient::openSocket()
{
    // An explicit open supersedes a reconnect that was still waiting.
    m_reconnectTimer.stop();
    setConnectionState(ConnectionState::connecting());

    if (m_socket != nullptr) {
        QWebSocket *previous = m_socket;
        m_socket = nullptr;
        failPending({EngineClientError::sendFailed, QStringLiteral("socket replaced")});
        retireSocket(previous, /*graceful=*/false);
    }
    m_receiving = false;

    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    m_socket = socket;
    ++m_socketGeneration;
    QObject::connect(
        socket, &QWebSocket::connected, this, [this, socket] { onSocketConnected(socket); });
    QObject::connect(
        socket, &QWebSocket::disconnected, this, [this, socket] { onSocketFailed(socket); });
    // Qt 6.5 renamed the error signal; Debian 12 ships 6.4.
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    QObject::connect(
        socket, &QWebSocket::errorOccurred, this, [this, socket] { onSocketFailed(socket); });
#else
    QObject::connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
        [this, socket] { onSocketFailed(socket); });
#endif
    QObject::connect(socket, &QWebSocket::textMessageReceived, this,
        [this, socket](const QString &text) { handleInbound(socket, text.toUtf8()); });
    QObject::connect(socket, &QWebSocket::binaryMessageReceived, this,
        [this, socket](const QByteArray &bytes) { handleInbound(socket, bytes); });
    socket->open(m_endpoint);
    if (socket->state() == QAbstractSocket::UnconnectedState) {
        // Qt turns some endpoints down inside open() (a scheme other than ws or wss, an
        // invalid URL, wss without TLS support) and reports nothing afterwards: treat that as a
        // failed handshake, from the event loop like every other failure, so the back-off runs.
        const QString reason = socket->errorString();
        const quint64 generation = m_socketGeneration;
        QMetaObject::invokeMethod(
            this,
            [this, generation, reason] {
                if (generation == m_socketGeneration && m_socket != nullptr) {
                    handleConnectionFailure(QStringLiteral("hello handshake failed: ") + reason);
                }
            },
            Qt::QueuedConnection);
        return;
    }

    HelloMessage hello;
    hello.version = m_clientVersion.toStdString();
    if (m_language) {
        hello.language = m_language->toStdString();
    }
    hello.feedbackEnabled = m_feedbackEnabled;
    // The hello's own completion runs at once (not queued) so that reading starts before
    // any reply to it can be dispatched: the hello is always the first frame on a socket.
    sendFrame(QByteArray::fromStdString(encode(hello)), false,
        [this, socket](const std::optional<SendFailure> &failure) {
            if (socket != m_socket) {
                return;
            }
            if (failure) {
                handleConnectionFailure(
                    QStringLiteral("hello handshake failed: ") + failure->description);
                return;
            }
            m_receiving = true;
        });
}

void EngineClient::startUtterance(const QString &id, SendCompletion done)
{
    UtteranceStartMessage message;
    message.utteranceId = id.toStdString();
    send(message, std::move(done));
}

void EngineClient::endUtterance(const QString &id, SendCompletion done)
{
    UtteranceEndMessage message;
    message.utteranceId = id.toStdString();
    send(message, std::move(done));
}

void EngineClient::sendBinary(const QByteArray &data, SendCompletion done)
{
    sendFrame(data, true, queued(std::move(done)));
}

void EngineClient::updateContext(const ContextPack &pack)
{
    if (pack.isEmpty()) {
        return;
    }
    ContextUpdateMessage message;
    message.context = pack;
    send(message);
}

void EngineClient::pinDomain(const QString &domain)
{
    DomainPinMessage message;
    message.domain = domain.toStdString();
    send(message);
}

void EngineClient::unpinDomain()
{
    send(DomainUnpinMessage {});
}

void EngineClient::requestSuggestions()
{
    send(SuggestionsRequestMessage {});
}

void EngineClient::sendFeedback(const QString &utteranceId, const QString &finalTextAfterEdit,
    qint64 editDelayMs, const QString &source)
{
    UtteranceFeedbackMessage message;
    message.utteranceId = utteranceId.toStdString();
    message.finalTextAfterEdit = finalTextAfterEdit.toStdString();
    message.editDelayMs = editDelayMs;
    message.source = source.toStdString();
    send(message);
}

EngineClient::SendCompletion EngineClient::queued(SendCompletion done)
{
    return [this, done = std::move(done)](const std::optional<SendFailure> &failure) {
        if (!done) {
            return;
        }
        QMetaObject::invokeMethod(
            this, [done, failure] { done(failure); }, Qt::QueuedConnection);
    };
}

void EngineClient::sendFrame(QByteArray bytes, bool binary, SendCompletion done)
{
    writeFrame(PendingFrame {std::move(bytes), binary, std::move(done)});
}

void EngineClient::writeFrame(PendingFrame frame)
{
    if (m_socket == nullptr) {
        if (frame.done) {
            frame.done(SendFailure {
                EngineClientError::notConnected, describe(EngineClientError::notConnected)});
        }
        return;
    }
    if (m_socket->state() != QAbstractSocket::ConnectedState || !m_pending.empty()) {
        // A socket that takes long to open must not gather every context update meanwhile.
        if (m_pendingBytes + frame.bytes.size() > kMaxPendingBytes) {
            if (frame.done) {
                frame.done(SendFailure {EngineClientError::sendFailed,
                    QStringLiteral("too much is waiting for the engine connection to open")});
            }
            return;
        }
        m_pendingBytes += frame.bytes.size();
        m_pending.push_back(std::move(frame));
        return;
    }
    const qint64 written = frame.binary ? m_socket->sendBinaryMessage(frame.bytes)
                                        : m_socket->sendTextMessage(QString::fromUtf8(frame.bytes));
    // Onto the wire now rather than when the event loop next gets to the socket: a key-up's
    // utterance.end would otherwise wait behind whatever else that turn holds.
    m_socket->flush();
    std::optional<SendFailure> failure;
    if (written < frame.bytes.size()) {
        QString reason = m_socket->errorString();
        failure = SendFailure {EngineClientError::sendFailed,
            reason.isEmpty() ? describe(EngineClientError::sendFailed) : reason};
    }
    if (frame.done) {
        frame.done(failure);
    }
}

bool EngineClient::writesAtOnce() const
{
    return m_socket != nullptr && m_socket->state() == QAbstractSocket::ConnectedState
        && m_pending.empty();
}

void EngineClient::onSocketConnected(QWebSocket *socket)
{
    if (socket != m_socket) {
        return;
    }
    // Frames sent while the socket was opening go out now, the hello first.
    std::vector<PendingFrame> pending;
    pending.swap(m_pending);
    m_pendingBytes = 0;
    for (PendingFrame &frame : pending) {
        if (m_socket != socket) {
            if (frame.done) {
                frame.done(SendFailure {
                    EngineClientError::notConnected, describe(EngineClientError::notConnected)});
            }
            continue;
        }
        writeFrame(std::move(frame));
    }
}

void EngineClient::onSocketFailed(QWebSocket *socket)
{
    if (socket != m_socket) {
        return;
    }
    QString description = socket->errorString();
    if (description.isEmpty() || socket->error() == QAbstractSocket::UnknownSocketError) {
        description = socket->closeReason().isEmpty()
            ? QStringLiteral("the engine closed the connection (code %1)")
                  .arg(static_cast<int>(socket->closeCode()))
            : socket->closeReason();
    }
    const bool wasReceiving = m_receiving;
    // Pending frames include the hello when the socket never opened; its completion
    // reports the handshake failure.
    failPending({EngineClientError::sendFailed, description});
    if (wasReceiving && socket == m_socket) {
        handleConnectionFailure(QStringLiteral("connection lost: ") + description);
    }
}

void EngineClient::failPending(const SendFailure &failure)
{
    std::vector<PendingFrame> pending;
    pending.swap(m_pending);
    m_pendingBytes = 0;
    for (PendingFrame &frame : pending) {
        if (frame.done) {
            frame.done(failure);
        }
    }
}

void EngineClient::handleInbound(QWebSocket *socket, const QByteArray &bytes)
{
    if (socket != m_socket || !m_receiving) {
        return;
    }
    auto decoded
        = decodeInbound(std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())));
    if (!decoded) {
        return; // undecodable frames are dropped; the connection goes on
    }
    std::visit(
        [this](const auto &message) {
            using T = std::decay_t<decltype(message)>;
            if constexpr (std::is_same_v<T, HelloAckMessage>) {
                setConnectionState(ConnectionState::connected(message.backends));
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceiveHelloAck(*this, message);
                }
            } else if constexpr (std::is_same_v<T, PartialMessage>) {
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceivePartial(*this, message);
                }
            } else if constexpr (std::is_same_v<T, FinalMessage>) {
                markLatency("final-received");
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceiveFinal(*this, message);
                }
            } else if constexpr (std::is_same_v<T, DomainChangedMessage>) {
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceiveDomainChanged(*this, message);
                }
            } else if constexpr (std::is_same_v<T, ErrorMessage>) {
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceiveError(*this, message);
                }
            } else if constexpr (std::is_same_v<T, SuggestionsMessage>) {
                if (auto *d = liveDelegate()) {
                    d->engineClientDidReceiveSuggestions(*this, message);
                }
            }
            // Unknown types are dropped.
        },
        decoded.value());
}

void EngineClient::handleConnectionFailure(const QString &message)
{
    QWebSocket *socket = std::exchange(m_socket, nullptr);
    m_receiving = false;
    // After the socket is cleared, so that a waiting hello's completion finds it gone.
    failPending({EngineClientError::sendFailed, message});
    if (socket != nullptr) {
        retireSocket(socket, /*graceful=*/false);
    }
    setConnectionState(ConnectionState::failed(message));
    if (m_shouldStayConnected) {
        scheduleReconnect();
    }
}

void EngineClient::scheduleReconnect()
{
    m_reconnectTimer.stop();
    const double wait = m_reconnectDelaySeconds;
    m_reconnectDelaySeconds = std::min(2.0 * wait, kMaxReconnectDelaySeconds);
    m_reconnectTimer.start(std::chrono::milliseconds(std::llround(wait * 1000.0)));
}

void EngineClient::setConnectionState(ConnectionState state)
{
    // Every assignment is announced, even an unchanged one.
    m_connectionState = std::move(state);
    if (auto *d = liveDelegate()) {
        d->engineClientDidChangeConnection(*this, m_connectionState);
    }
}

void EngineClient::retireSocket(QWebSocket *socket, bool graceful)
{
    socket->QObject::disconnect(this);
    if (graceful && socket->state() == QAbstractSocket::ConnectedState) {
        // Let the close frame (1001, going away) reach the engine before the socket goes.
        QObject::connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
        QTimer::singleShot(std::chrono::seconds(2), socket, &QObject::deleteLater);
        socket->close(static_cast<QWebSocketProtocol::CloseCode>(kGoingAwayCloseCode));
        return;
    }
    socket->abort();
    socket->deleteLater();
}

} // namespace sayvo
