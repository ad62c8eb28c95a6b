#pragma once

#include "protocol/WireCodec.h"

#include <QObject>
#include <QString>
#include <QWebSocket>

#include <optional>
#include <vector>

namespace sayvo::test {

// A WebSocket client for engine tests: sends with the shared codec, decodes every inbound
// frame with the client's decoder and keeps it. Test thread only; waits spin the event loop.
class EngineTestClient : public QObject
{
    Q_OBJECT

public:
    explicit EngineTestClient(const QString &origin = {});

    bool connectTo(const QString &url, int timeoutMs = 5000);
    // True when the handshake was refused or dropped.
    bool refusedBy(const QString &url, int timeoutMs = 5000);

    template <typename Message> void send(const Message &message)
    {
        m_socket.sendTextMessage(QString::fromStdString(encode(message)));
    }
    void sendText(const QString &text) { m_socket.sendTextMessage(text); }
    void sendAudio(const QByteArray &pcm) { m_socket.sendBinaryMessage(pcm); }

    // Waits until `count` messages of type T have arrived in total.
    template <typename T> bool waitFor(std::size_t count = 1, int timeoutMs = 10000);
    template <typename T> std::vector<T> received() const
    {
        std::vector<T> out;
        for (const auto &m : m_messages) {
            if (const T *t = std::get_if<T>(&m)) {
                out.push_back(*t);
            }
        }
        return out;
    }
    std::vector<std::string> errorCodes() const;

    // hello, then waits for hello.ack: the engine takes no utterance before it.
    bool greet(int timeoutMs = 10000);
    // One utterance as a live microphone delivers it: `pcm` in 100 ms frames at real time,
    // then utterance.end. The milliseconds from writing utterance.end to the final's arrival
    // (the engine's own end -> final, which benches compare the client against); nullopt when
    // no final came within timeoutMs.
    std::optional<double> endToFinalMs(
        const std::string &utteranceId, const QByteArray &pcm, int timeoutMs = 30000);
    int undecodable() const { return m_undecodable; }
    QWebSocket &socket() { return m_socket; }

private:
    bool waitUntil(const std::function<bool()> &condition, int timeoutMs);

    QWebSocket m_socket;
    std::vector<InboundMessage> m_messages;
    int m_undecodable = 0;
    // steady_clock nanoseconds of the last final's arrival, before it was decoded.
    qint64 m_lastFinalAtNs = 0;
};

template <typename T> bool EngineTestClient::waitFor(std::size_t count, int timeoutMs)
{
    return waitUntil([this, count] { return received<T>().size() >= count; }, timeoutMs);
}

} // namespace sayvo::test
