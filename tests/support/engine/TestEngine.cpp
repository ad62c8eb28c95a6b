#include "support/engine/TestEngine.h"

#include "protocol/WireCodec.h"

#include <QHostAddress>
#include <QWebSocket>

namespace sayvo::test {

TestEngine::TestEngine(QObject *parent)
    : QObject(parent),
      m_server(QStringLiteral("sayvo-test-engine"), QWebSocketServer::NonSecureMode)
{
    m_clock.start();
    connect(&m_server, &QWebSocketServer::newConnection, this, &TestEngine::onNewConnection);
}

TestEngine::~TestEngine()
{
    for (const auto &socket : m_sockets) {
        if (socket) {
            socket->disconnect(this);
            socket->abort();
        }
    }
}

bool TestEngine::listen(quint16 port)
{
    return m_server.listen(QHostAddress::LocalHost, port);
}

void TestEngine::stopListening()
{
    m_server.close();
}

quint16 TestEngine::port() const
{
    return m_server.serverPort();
}

QUrl TestEngine::url() const
{
    return QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port()));
}

void TestEngine::onNewConnection()
{
    while (QWebSocket *socket = m_server.nextPendingConnection()) {
        const int index = static_cast<int>(m_sockets.size());
        socket->setParent(this);
        m_sockets.emplace_back(socket);
        m_closeCodes.emplace_back(std::nullopt);
        m_connectionTimesMs.append(m_clock.elapsed());
        connect(socket, &QWebSocket::textMessageReceived, this,
            [this, socket, index](const QString &text) {
                const QByteArray bytes = text.toUtf8();
                if (m_recording) {
                    m_frames.push_back({false, bytes, index, m_clock.elapsed()});
                }
                const auto decoded = decodeOutbound(bytes.toStdString());
                if (decoded && std::holds_alternative<HelloMessage>(decoded.value())
                    && m_ackBackends) {
                    HelloAckMessage ack;
                    ack.serverVersion = m_serverVersion.toStdString();
                    ack.backends = *m_ackBackends;
                    socket->sendTextMessage(QString::fromStdString(encode(ack)));
                }
                if (m_onText) {
                    m_onText(bytes, index);
                }
                emit frameReceived();
            });
        connect(socket, &QWebSocket::binaryMessageReceived, this,
            [this, index](const QByteArray &bytes) {
                if (m_recording) {
                    m_frames.push_back({true, bytes, index, m_clock.elapsed()});
                }
                emit frameReceived();
            });
        connect(socket, &QWebSocket::disconnected, this, [this, socket, index] {
            m_closeCodes[static_cast<size_t>(index)] = static_cast<int>(socket->closeCode());
            emit clientDisconnected();
        });
        emit clientConnected();
    }
}

int TestEngine::openConnectionCount() const
{
    int open = 0;
    for (const auto &socket : m_sockets) {
        if (socket && socket->state() == QAbstractSocket::ConnectedState) {
            ++open;
        }
    }
    return open;
}

void TestEngine::answerEveryEndWith(const QString &text, const Stats &stats)
{
    setOnText([this, text = text.toStdString(), stats](const QByteArray &frame, int) {
        const auto decoded = decodeOutbound(frame.toStdString());
        if (!decoded || !std::holds_alternative<UtteranceEndMessage>(decoded.value())) {
            return;
        }
        FinalMessage final;
        final.utteranceId = std::get<UtteranceEndMessage>(decoded.value()).utteranceId;
        final.rawText = final.formattedText = text;
        final.domain = "default";
        final.domainSource = "context";
        final.guardrail.applied = true;
        final.stats = stats;
        sendText(QByteArray::fromStdString(encode(final)));
    });
}

void TestEngine::sendText(const QByteArray &text)
{
    for (auto it = m_sockets.rbegin(); it != m_sockets.rend(); ++it) {
        if (*it && (*it)->state() == QAbstractSocket::ConnectedState) {
            (*it)->sendTextMessage(QString::fromUtf8(text));
            return;
        }
    }
}

void TestEngine::sendBinary(const QByteArray &bytes)
{
    for (auto it = m_sockets.rbegin(); it != m_sockets.rend(); ++it) {
        if (*it && (*it)->state() == QAbstractSocket::ConnectedState) {
            (*it)->sendBinaryMessage(bytes);
            return;
        }
    }
}

void TestEngine::dropConnection()
{
    for (auto it = m_sockets.rbegin(); it != m_sockets.rend(); ++it) {
        if (*it && (*it)->state() == QAbstractSocket::ConnectedState) {
            (*it)->abort();
            return;
        }
    }
}

std::vector<QByteArray> TestEngine::textFrames() const
{
    std::vector<QByteArray> texts;
    for (const Frame &frame : m_frames) {
        if (!frame.binary) {
            texts.push_back(frame.bytes);
        }
    }
    return texts;
}

std::vector<QString> TestEngine::textTypes() const
{
    std::vector<QString> types;
    for (const QByteArray &text : textFrames()) {
        const auto decoded = decodeOutbound(text.toStdString());
        types.push_back(decoded ? QString::fromStdString(std::visit(
                            [](const auto &m) { return std::string(m.type); }, decoded.value()))
                                : QStringLiteral("<undecodable>"));
    }
    return types;
}

std::optional<int> TestEngine::closeCode(int index) const
{
    if (index < 0 || index >= static_cast<int>(m_closeCodes.size())) {
        return std::nullopt;
    }
    return m_closeCodes[static_cast<size_t>(index)];
}

} // namespace sayvo::test
