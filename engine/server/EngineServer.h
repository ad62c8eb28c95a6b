#pragma once

#include "engine/server/EngineSession.h"

#include <QHostAddress>
#include <QObject>
#include <QString>

class QWebSocketServer;

namespace sayvo {

// The engine's WebSocket endpoint: one independent `EngineSession` per connection.
// Refuses any handshake that carries an Origin header, since only a web page sends one and
// no web page may read transcripts or the personal dictionary. Main thread only.
class EngineServer : public QObject
{
    Q_OBJECT

public:
    // Messages larger than this close the connection outright instead of being answered.
    static constexpr qint64 kHardMessageLimitBytes = qint64 {8} * 1024 * 1024;

    EngineServer(EngineServices &services, QObject *parent = nullptr);
    ~EngineServer() override;

    bool listen(const QHostAddress &address, quint16 port);
    QString errorString() const;
    quint16 port() const;

private:
    void acceptPending();

    EngineServices &m_services;
    QWebSocketServer *m_server;
};

} // namespace sayvo
