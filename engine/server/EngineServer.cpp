#include "engine/server/EngineServer.h"

#include <QThread>
#include <QWebSocket>
#include <QWebSocketCorsAuthenticator>
#include <QWebSocketServer>

#include <memory>

namespace sayvo {

EngineServer::EngineServer(EngineServices &services, int recognitionWorkers, QObject *parent)
    : QObject(parent),
      m_services(services),
      m_workers(recognitionWorkers > 0 ? recognitionWorkers : QThread::idealThreadCount()),
      m_server(new QWebSocketServer(
          QStringLiteral("sayvo-engine"), QWebSocketServer::NonSecureMode, this))
{
    m_services.workers = &m_workers;
    m_services.storeLane = &m_storeThread;
    m_services.toSessionThread = [this](std::function<void()> task) {
        QMetaObject::invokeMethod(this, std::move(task), Qt::QueuedConnection);
    };
    connect(m_server, &QWebSocketServer::originAuthenticationRequired, this,
        [this](QWebSocketCorsAuthenticator *authenticator) {
            const bool allowed = authenticator->origin().isEmpty();
            if (!allowed) {
                m_services.log(
                    "refused handshake with origin " + authenticator->origin().toStdString());
            }
            authenticator->setAllowed(allowed);
        });
    connect(m_server, &QWebSocketServer::newConnection, this, &EngineServer::acceptPending);
}

EngineServer::~EngineServer()
{
    // The sessions go first (the connections own them), then the threads they used.
    qDeleteAll(findChildren<QWebSocket *>());
}

bool EngineServer::listen(const QHostAddress &address, quint16 port)
{
    return m_server->listen(address, port);
}

QString EngineServer::errorString() const
{
    return m_server->errorString();
}

quint16 EngineServer::port() const
{
    return m_server->serverPort();
}

void EngineServer::acceptPending()
{
    while (QWebSocket *socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        socket->setMaxAllowedIncomingMessageSize(kHardMessageLimitBytes);
        socket->setMaxAllowedIncomingFrameSize(kHardMessageLimitBytes);
        const std::string peer = socket->peerAddress().toString().toStdString() + ":"
            + std::to_string(socket->peerPort());
        m_services.log("connection opened: peer=" + peer);

        auto session
            = std::make_shared<EngineSession>(m_services, [socket](const std::string &json) {
                  socket->sendTextMessage(
                      QString::fromUtf8(json.data(), static_cast<qsizetype>(json.size())));
              });
        connect(socket, &QWebSocket::textMessageReceived, socket, [session](const QString &text) {
            const QByteArray bytes = text.toUtf8();
            session->handleText(
                std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        });
        connect(
            socket, &QWebSocket::binaryMessageReceived, socket, [session](const QByteArray &bytes) {
                session->handleBinary(
                    std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
            });
        connect(socket, &QWebSocket::disconnected, this, [this, socket, peer]() mutable {
            m_services.log("connection closed: peer=" + peer);
            socket->deleteLater();
        });
    }
}

} // namespace sayvo
