#pragma once

#include "engineclient/ConnectionState.h"
#include "engineclient/EngineClientDelegate.h"
#include "engineclient/EngineClientError.h"
#include "protocol/OutboundMessages.h"
#include "protocol/WireCodec.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include <functional>
#include <optional>
#include <vector>

class QWebSocket;

namespace sayvo {

// Keeps one WebSocket connection to the speech engine: sends "hello" first on every new
// socket, hands each decoded inbound message to the delegate, and reconnects after failures
// with a doubling back-off (0.5, 1, 2, 4, 8, 8 … s). Lives on the main thread; every
// callback arrives there.
//
// Sends need only a socket, not a finished handshake: frames sent while the socket is still
// opening wait for it, in order, up to kMaxPendingBytes, and fail if it fails. A frame on an
// open socket is written to the connection before the send returns. Completions are always
// delivered later from the event loop, never from inside the call that sent.
class EngineClient : public QObject
{
    Q_OBJECT

public:
    // nullopt on success.
    using SendCompletion = std::function<void(const std::optional<SendFailure> &)>;

    static constexpr double kInitialReconnectDelaySeconds = 0.5;
    static constexpr double kMaxReconnectDelaySeconds = 8.0;
    static constexpr quint16 kGoingAwayCloseCode = 1001;
    // Frames waiting for a socket that is still opening, in bytes; sends beyond it fail.
    static constexpr qsizetype kMaxPendingBytes = qsizetype {4} * 1024 * 1024;

    EngineClient(QUrl endpoint, QString clientVersion,
        std::optional<QString> language = std::nullopt, QObject *parent = nullptr);
    ~EngineClient() override;

    // The delegate is held weakly: pass its QObject as `lifetime` and nothing is delivered
    // once that object is gone.
    void setDelegate(EngineClientDelegate *delegate, QObject *lifetime = nullptr);

    void connect();
    void disconnect();
    void updateEndpoint(const QUrl &url);

    const ConnectionState &connectionState() const { return m_connectionState; }
    QUrl endpoint() const { return m_endpoint; }
    QString clientVersion() const { return m_clientVersion; }

    // Carried by the next "hello"; changing them sends nothing.
    std::optional<QString> language() const { return m_language; }
    void setLanguage(std::optional<QString> language) { m_language = std::move(language); }
    bool feedbackEnabled() const { return m_feedbackEnabled; }
    void setFeedbackEnabled(bool enabled) { m_feedbackEnabled = enabled; }

    // Whether a socket exists (open or opening); sends need nothing more.
    bool hasSocket() const { return m_socket != nullptr; }
    // Whether a frame sent now goes onto the wire before the call returns: the socket is open
    // and nothing waits for it. Its completion still comes later.
    bool writesAtOnce() const;

    // The reconnect wait that the next failure will use.
    double reconnectDelaySeconds() const { return m_reconnectDelaySeconds; }

    // Any outbound message as one text frame. Fails with notConnected when no socket exists.
    template <typename Message> void send(const Message &message, SendCompletion done = {})
    {
        sendFrame(QByteArray::fromStdString(encode(message)), false, queued(std::move(done)));
    }

    void startUtterance(const QString &id, SendCompletion done = {});
    void endUtterance(const QString &id, SendCompletion done = {});
    void sendBinary(const QByteArray &data, SendCompletion done = {});

    // Fire-and-forget: failures are swallowed.
    void updateContext(const ContextPack &pack);
    void pinDomain(const QString &domain);
    void unpinDomain();
    void requestSuggestions();
    void sendFeedback(const QString &utteranceId, const QString &finalTextAfterEdit,
        qint64 editDelayMs, const QString &source);

private:
    struct PendingFrame
    {
        QByteArray bytes;
        bool binary = false;
        SendCompletion done;
    };

    void openSocket();
    void sendFrame(QByteArray bytes, bool binary, SendCompletion done);
    void writeFrame(PendingFrame frame);
    void onSocketConnected(QWebSocket *socket);
    void onSocketFailed(QWebSocket *socket);
    void handleInbound(QWebSocket *socket, const QByteArray &bytes);
    void handleConnectionFailure(const QString &message);
    void scheduleReconnect();
    void setConnectionState(ConnectionState state);
    void retireSocket(QWebSocket *socket, bool graceful);
    void failPending(const SendFailure &failure);
    SendCompletion queued(SendCompletion done);
    EngineClientDelegate *liveDelegate() const;

    ConnectionState m_connectionState = ConnectionState::disconnected();
    QUrl m_endpoint;
    QString m_clientVersion;
    std::optional<QString> m_language;
    bool m_feedbackEnabled = false;

    EngineClientDelegate *m_delegate = nullptr;
    QPointer<QObject> m_delegateLifetime;
    bool m_delegateHasLifetime = false;

    QWebSocket *m_socket = nullptr; // the current socket, owned
    bool m_receiving = false; // the hello went out; inbound frames are read
    std::vector<PendingFrame> m_pending;
    qsizetype m_pendingBytes = 0;
    quint64 m_socketGeneration = 0; // tells a queued failure whether its socket is still current
    QTimer m_reconnectTimer;
    double m_reconnectDelaySeconds = kInitialReconnectDelaySeconds;
    bool m_shouldStayConnected = false;
};

} // namespace sayvo
