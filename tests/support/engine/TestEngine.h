#pragma once

#include "protocol/InboundMessages.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QWebSocketServer>

#include <functional>
#include <optional>
#include <vector>

class QWebSocket;

namespace sayvo::test {

// A WebSocket engine on loopback that tests script: it answers "hello" with a "hello.ack"
// naming the backends it was given, records every frame it receives, and can send any
// frame, drop the connection or stop listening on demand.
class TestEngine : public QObject
{
    Q_OBJECT

public:
    struct Frame
    {
        bool binary = false;
        QByteArray bytes;
        int connection = 0; // index of the connection it arrived on
        qint64 atMs = 0; // since the engine started
    };

    explicit TestEngine(QObject *parent = nullptr);
    ~TestEngine() override;

    // Listens on 127.0.0.1; port 0 picks a free one.
    bool listen(quint16 port = 0);
    void stopListening();
    quint16 port() const;
    QUrl url() const;

    // When set, "hello" is answered with these backends; nullopt leaves hellos unanswered.
    void setHelloAckBackends(std::optional<Backends> backends)
    {
        m_ackBackends = std::move(backends);
    }
    void setServerVersion(QString version) { m_serverVersion = std::move(version); }

    // Off: frames are answered but not kept, for long runs that must not grow.
    void setRecording(bool recording) { m_recording = recording; }

    // Called for every text frame after it is recorded (for scripted replies).
    void setOnText(std::function<void(const QByteArray &text, int connection)> handler)
    {
        m_onText = std::move(handler);
    }

    void sendText(const QByteArray &text); // to the newest open connection
    // Answers every utterance.end with a final whose text is `text`, as an engine that
    // recognised it would; replaces the text handler.
    void answerEveryEndWith(const QString &text, const Stats &stats);
    void sendBinary(const QByteArray &bytes);
    void dropConnection(); // abort the newest connection, no close frame

    int connectionCount() const { return static_cast<int>(m_sockets.size()); }
    int openConnectionCount() const;
    const std::vector<Frame> &frames() const { return m_frames; }
    std::vector<QByteArray> textFrames() const;
    std::vector<QString> textTypes() const; // the "type" of each text frame, in order
    QList<qint64> connectionTimesMs() const { return m_connectionTimesMs; }
    // Close code the client sent when it closed connection `index`, if it did.
    std::optional<int> closeCode(int index) const;

signals:
    void frameReceived();
    void clientConnected();
    void clientDisconnected();

private:
    void onNewConnection();

    QWebSocketServer m_server;
    QElapsedTimer m_clock;
    std::vector<QPointer<QWebSocket>> m_sockets;
    std::vector<std::optional<int>> m_closeCodes;
    std::vector<Frame> m_frames;
    QList<qint64> m_connectionTimesMs;
    std::optional<Backends> m_ackBackends = Backends {"test-stream", "test-final", "test-gec"};
    QString m_serverVersion = QStringLiteral("test-engine 1.0");
    std::function<void(const QByteArray &, int)> m_onText;
    bool m_recording = true;
};

} // namespace sayvo::test
