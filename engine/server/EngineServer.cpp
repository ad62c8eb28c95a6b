#include "engine/server/EngineServer.h"

#include "engine/server/SocketOwner.h"

#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QWebSocket>
#include <QWebSocketCorsAuthenticator>
#include <QWebSocketServer>

#include <memory>
#include <unistd.h>

namespace sayvo {

namespace {

const char *const kSocketListings[] = {"/proc/net/tcp", "/proc/net/tcp6"};

SocketEndpoint endpointOf(const QHostAddress &address, quint16 port)
{
    // IPv4 comes back mapped into IPv6, as SocketEndpoint holds it.
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    std::array<std::uint8_t, 16> raw {};
    std::copy(std::begin(bytes.c), std::end(bytes.c), raw.begin());
    return SocketEndpoint::ipv6(raw, port);
}

} // namespace

EngineServer::EngineServer(EngineServices &services, int recognitionWorkers, QObject *parent)
    : QObject(parent),
      m_services(services),
      m_workers(recognitionWorkers > 0 ? recognitionWorkers : QThread::idealThreadCount()),
      m_listener(new QTcpServer(this)),
      m_server(new QWebSocketServer(
          QStringLiteral("sayvo-engine"), QWebSocketServer::NonSecureMode, this))
{
    connect(m_listener, &QTcpServer::newConnection, this, &EngineServer::admitConnections);
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
    return m_listener->listen(address, port);
}

QString EngineServer::errorString() const
{
    return m_listener->errorString();
}

quint16 EngineServer::port() const
{
    return m_listener->serverPort();
}

void EngineServer::admitConnections()
{
    while (QTcpSocket *socket = m_listener->nextPendingConnection()) {
        if (isOwnUsersPeer(*socket)) {
            m_server->handleConnection(socket);
            continue;
        }
        m_services.log("refused connection from another user's program: peer="
            + socket->peerAddress().toString().toStdString() + ":"
            + std::to_string(socket->peerPort()));
        socket->abort();
        socket->deleteLater();
    }
}

bool EngineServer::isOwnUsersPeer(const QTcpSocket &socket) const
{
    // Only loopback peers can be looked up; others reach an engine that was told to listen
    // beyond this machine.
    if (!socket.peerAddress().isLoopback()) {
        return true;
    }
    const SocketEndpoint peer = endpointOf(socket.peerAddress(), socket.peerPort());
    const SocketEndpoint own = endpointOf(socket.localAddress(), socket.localPort());
    bool listed = false;
    for (const char *path : kSocketListings) {
        QFile file(QString::fromLatin1(path));
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        listed = true;
        const QByteArray text = file.readAll();
        // The peer's socket is the one whose own end is the peer and whose other end is us.
        if (const auto uid = tcpSocketOwner(
                std::string_view(text.constData(), static_cast<std::size_t>(text.size())), peer,
                own)) {
            if (*uid != ::getuid()) {
                m_services.log("peer socket belongs to uid " + std::to_string(*uid));
            }
            return *uid == ::getuid();
        }
    }
    // A system without these listings cannot tell; on one that has them, a peer that is not
    // listed (gone already) is not let in.
    return !listed;
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
