#include "support/engine/EngineTestClient.h"

#include <QTest>

#include <algorithm>
#include <chrono>

namespace sayvo::test {

namespace {

qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

EngineTestClient::EngineTestClient(const QString &origin) : m_socket(origin)
{
    connect(&m_socket, &QWebSocket::textMessageReceived, this, [this](const QString &text) {
        const qint64 arrivedAtNs = steadyNs();
        const QByteArray bytes = text.toUtf8();
        auto decoded = decodeInbound(
            std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        if (decoded) {
            if (std::holds_alternative<FinalMessage>(decoded.value())) {
                m_lastFinalAtNs = arrivedAtNs;
            }
            m_messages.push_back(decoded.value());
        } else {
            ++m_undecodable;
        }
    });
}

bool EngineTestClient::connectTo(const QString &url, int timeoutMs)
{
    m_socket.open(QUrl(url));
    return waitUntil(
        [this] { return m_socket.state() == QAbstractSocket::ConnectedState; }, timeoutMs);
}

bool EngineTestClient::refusedBy(const QString &url, int timeoutMs)
{
    bool failed = false;
    const auto a
        = connect(&m_socket, &QWebSocket::disconnected, this, [&failed] { failed = true; });
    const auto b = connect(&m_socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error),
        this, [&failed] { failed = true; });
    m_socket.open(QUrl(url));
    waitUntil(
        [&] { return failed || m_socket.state() == QAbstractSocket::ConnectedState; }, timeoutMs);
    disconnect(a);
    disconnect(b);
    return failed && m_socket.state() != QAbstractSocket::ConnectedState;
}

std::vector<std::string> EngineTestClient::errorCodes() const
{
    std::vector<std::string> codes;
    for (const auto &e : received<ErrorMessage>()) {
        codes.push_back(e.code);
    }
    return codes;
}

bool EngineTestClient::greet(int timeoutMs)
{
    const std::size_t acks = received<HelloAckMessage>().size();
    send(HelloMessage {.version = "0.1.0", .feedbackEnabled = false});
    return waitFor<HelloAckMessage>(acks + 1, timeoutMs);
}

std::optional<double> EngineTestClient::endToFinalMs(
    const std::string &utteranceId, const QByteArray &pcm, int timeoutMs)
{
    constexpr qsizetype kFrameBytes = 3200; // 100 ms
    constexpr qsizetype kBytesPerMs = 32;
    const std::size_t finals = received<FinalMessage>().size();
    send(UtteranceStartMessage {.utteranceId = utteranceId});
    const auto started = std::chrono::steady_clock::now();
    for (qsizetype offset = 0; offset < pcm.size(); offset += kFrameBytes) {
        sendAudio(pcm.mid(offset, kFrameBytes));
        m_socket.flush();
        // A microphone hands over a frame once it has been spoken.
        const auto due = started + std::chrono::milliseconds((offset + kFrameBytes) / kBytesPerMs);
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
            due - std::chrono::steady_clock::now());
        QTest::qWait(static_cast<int>(std::max<qint64>(0, wait.count())));
    }
    send(UtteranceEndMessage {.utteranceId = utteranceId});
    const qint64 endAtNs = steadyNs();
    m_socket.flush();
    if (!waitFor<FinalMessage>(finals + 1, timeoutMs)) {
        return std::nullopt;
    }
    return static_cast<double>(m_lastFinalAtNs - endAtNs) / 1e6;
}

bool EngineTestClient::waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

} // namespace sayvo::test
