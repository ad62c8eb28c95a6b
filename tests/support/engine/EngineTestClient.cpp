#include "support/engine/EngineTestClient.h"

#include <QTest>

namespace sayvo::test {

EngineTestClient::EngineTestClient(const QString &origin) : m_socket(origin)
{
    connect(&m_socket, &QWebSocket::textMessageReceived, this, [this](const QString &text) {
        const QByteArray bytes = text.toUtf8();
        auto decoded = decodeInbound(
            std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        if (decoded) {
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

bool EngineTestClient::waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

} // namespace sayvo::test
