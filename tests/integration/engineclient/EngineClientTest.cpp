// The engine client against a real WebSocket server on loopback.
#include "engineclient/EngineClient.h"
#include "support/engine/TestEngine.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace sayvo;
using sayvo::test::TestEngine;

namespace {

class RecordingDelegate : public QObject, public EngineClientDelegate
{
public:
    std::vector<ConnectionState> states;
    std::vector<qint64> connectingAtMs;
    std::vector<qint64> failedAtMs;
    std::vector<HelloAckMessage> acks;
    std::vector<PartialMessage> partials;
    std::vector<FinalMessage> finals;
    std::vector<DomainChangedMessage> domains;
    std::vector<ErrorMessage> errors;
    std::vector<SuggestionsMessage> suggestions;
    QElapsedTimer clock;

    RecordingDelegate() { clock.start(); }

    void engineClientDidChangeConnection(EngineClient &, const ConnectionState &state) override
    {
        states.push_back(state);
        if (state.is<ConnectionState::Connecting>()) {
            connectingAtMs.push_back(clock.elapsed());
        }
        if (state.is<ConnectionState::Failed>()) {
            failedAtMs.push_back(clock.elapsed());
        }
    }
    void engineClientDidReceiveHelloAck(EngineClient &client, const HelloAckMessage &m) override
    {
        // The state is already connected when the ack is delivered.
        EXPECT_TRUE(client.connectionState().is<ConnectionState::Connected>());
        acks.push_back(m);
    }
    void engineClientDidReceivePartial(EngineClient &, const PartialMessage &m) override
    {
        partials.push_back(m);
    }
    void engineClientDidReceiveFinal(EngineClient &, const FinalMessage &m) override
    {
        finals.push_back(m);
    }
    void engineClientDidReceiveDomainChanged(EngineClient &, const DomainChangedMessage &m) override
    {
        domains.push_back(m);
    }
    void engineClientDidReceiveError(EngineClient &, const ErrorMessage &m) override
    {
        errors.push_back(m);
    }
    void engineClientDidReceiveSuggestions(EngineClient &, const SuggestionsMessage &m) override
    {
        suggestions.push_back(m);
    }

    int count(auto predicate) const
    {
        return static_cast<int>(std::count_if(states.begin(), states.end(), predicate));
    }
};

// A port on which nothing listens: bind, note the port, close.
quint16 deadPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    const quint16 port = server.serverPort();
    server.close();
    return port;
}

QUrl deadUrl()
{
    return QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(deadPort()));
}

class EngineClientTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(engine.listen()); }

    std::unique_ptr<EngineClient> makeClient(
        QUrl url, std::optional<QString> language = std::nullopt)
    {
        auto client = std::make_unique<EngineClient>(url, QStringLiteral("0.1.0"), language);
        client->setDelegate(&delegate, &delegate);
        return client;
    }

    bool waitConnected(EngineClient &client, int timeoutMs = 5000)
    {
        return QTest::qWaitFor(
            [&] { return client.connectionState().is<ConnectionState::Connected>(); }, timeoutMs);
    }

    TestEngine engine;
    RecordingDelegate delegate;
};

const char *kFinal
    = R"({"type":"final","utterance_id":"U1","raw_text":"hi","formatted_text":"Hi.",)"
      R"("domain":"default","domain_source":"context","guardrail":{"applied":true}})";

} // namespace

TEST(ConnectionStateTest, EqualityComparesCaseAndPayload)
{
    EXPECT_EQ(ConnectionState::disconnected(), ConnectionState::disconnected());
    EXPECT_EQ(ConnectionState::connecting(), ConnectionState::connecting());
    EXPECT_NE(ConnectionState::connecting(), ConnectionState::disconnected());
    EXPECT_EQ(ConnectionState::failed("a"), ConnectionState::failed("a"));
    EXPECT_NE(ConnectionState::failed("a"), ConnectionState::failed("b"));
    EXPECT_EQ(ConnectionState::connected(Backends {"x", std::nullopt, "z"}),
        ConnectionState::connected(Backends {"x", std::nullopt, "z"}));
    EXPECT_NE(ConnectionState::connected(Backends {"x", std::nullopt, "z"}),
        ConnectionState::connected(Backends {"x", "", "z"}));
    EXPECT_NE(ConnectionState::connected(Backends {}), ConnectionState::disconnected());
}

TEST_F(EngineClientTest, HelloIsTheFirstFrameAndTheAckConnects)
{
    engine.setHelloAckBackends(Backends {"pocketsphinx", "pocketsphinx", "rules"});
    auto client = makeClient(engine.url());
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Disconnected>());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));

    ASSERT_GE(engine.textFrames().size(), 1u);
    EXPECT_EQ(engine.textFrames().front(),
        R"({"type":"hello","client":"macos","version":"0.1.0","sample_rate":16000,"feedback_enabled":false})");
    ASSERT_EQ(delegate.states.size(), 2u);
    EXPECT_EQ(delegate.states[0], ConnectionState::connecting());
    EXPECT_EQ(delegate.states[1],
        ConnectionState::connected(Backends {"pocketsphinx", "pocketsphinx", "rules"}));
    ASSERT_EQ(delegate.acks.size(), 1u);
    EXPECT_EQ(delegate.acks[0].serverVersion, "test-engine 1.0");
}

TEST_F(EngineClientTest, LanguageIsSentWhenTheClientHasOne)
{
    auto client = makeClient(engine.url(), QStringLiteral("hi"));
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    EXPECT_EQ(nlohmann::json::parse(engine.textFrames().front().toStdString())["language"], "hi");
}

TEST_F(EngineClientTest, ConnectTwiceOpensOneSocket)
{
    auto client = makeClient(engine.url());
    client->connect();
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->connect();
    QTest::qWait(200);
    EXPECT_EQ(engine.connectionCount(), 1);
    EXPECT_EQ(
        delegate.count([](const auto &s) { return s.template is<ConnectionState::Connecting>(); }),
        1);
}

TEST_F(EngineClientTest, ConnectWhileConnectedKeepsTheDoubledDelay)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.dropConnection(); // waits 0.5 s, and the next wait becomes 1 s
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.connectionCount() == 2; }, 5000));
    ASSERT_TRUE(waitConnected(*client));
    EXPECT_EQ(client->reconnectDelaySeconds(), 1.0);
    client->connect();
    EXPECT_EQ(client->reconnectDelaySeconds(), 1.0);
}

TEST_F(EngineClientTest, ASuccessfulHandshakeDoesNotResetTheBackOff)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.dropConnection(); // waits 0.5 s
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.connectionCount() == 2; }, 5000));
    ASSERT_TRUE(waitConnected(*client));
    engine.dropConnection(); // a second handshake went well, and still this waits 1 s
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.connectionCount() == 3; }, 5000));
    ASSERT_TRUE(waitConnected(*client));
    ASSERT_EQ(delegate.connectingAtMs.size(), 3u);
    ASSERT_EQ(delegate.failedAtMs.size(), 2u);
    EXPECT_GE(delegate.connectingAtMs[1] - delegate.failedAtMs[0], 450);
    // Half a second had the handshake reset the delay; a timer may run late on a busy machine,
    // never early.
    const qint64 secondWaitMs = delegate.connectingAtMs[2] - delegate.failedAtMs[1];
    EXPECT_GE(secondWaitMs, 950);
    EXPECT_LT(secondWaitMs, 1900);
    EXPECT_EQ(client->reconnectDelaySeconds(), 2.0);
}

TEST_F(EngineClientTest, NoEngineFailsTheHandshakeAndBacksOffDoubling)
{
    auto client = makeClient(deadUrl());
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.connectingAtMs.size() >= 7; }, 30000));
    client->disconnect();

    ASSERT_GE(delegate.states.size(), 2u);
    EXPECT_EQ(delegate.states[0], ConnectionState::connecting());
    const auto *failed = delegate.states[1].as<ConnectionState::Failed>();
    ASSERT_NE(failed, nullptr);
    EXPECT_TRUE(failed->message.startsWith("hello handshake failed: "))
        << failed->message.toStdString();
    EXPECT_GT(failed->message.size(), QString("hello handshake failed: ").size());

    // Waits between attempts: 0.5, 1, 2, 4, 8, 8 s (measured from one attempt to the next,
    // which includes the refused connection's own few milliseconds).
    const std::vector<double> expected {0.5, 1, 2, 4, 8, 8};
    for (size_t i = 0; i < expected.size(); ++i) {
        const double gap = (delegate.connectingAtMs[i + 1] - delegate.connectingAtMs[i]) / 1000.0;
        EXPECT_NEAR(gap, expected[i], 0.25) << "attempt " << i + 1;
    }
}

TEST_F(EngineClientTest, DisconnectDuringAPendingReconnectStopsTrying)
{
    auto client = makeClient(deadUrl());
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return client->connectionState().is<ConnectionState::Failed>(); }, 5000));
    client->disconnect();
    EXPECT_EQ(client->connectionState(), ConnectionState::disconnected());
    const size_t attempts = delegate.connectingAtMs.size();
    QTest::qWait(1500);
    EXPECT_EQ(delegate.connectingAtMs.size(), attempts);
    EXPECT_EQ(delegate.states.back(), ConnectionState::disconnected());
}

TEST_F(EngineClientTest, EveryAssignmentReachesTheDelegateEvenWhenUnchanged)
{
    auto client = makeClient(engine.url());
    client->disconnect();
    client->disconnect();
    ASSERT_EQ(delegate.states.size(), 2u);
    EXPECT_EQ(delegate.states[0], ConnectionState::disconnected());
    EXPECT_EQ(delegate.states[1], ConnectionState::disconnected());
}

TEST_F(EngineClientTest, DisconnectClosesWithGoingAway)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->disconnect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.closeCode(0).has_value(); }, 5000));
    EXPECT_EQ(engine.closeCode(0), 1001);
    QTest::qWait(700);
    EXPECT_EQ(engine.connectionCount(), 1); // no reconnect after a deliberate disconnect
}

TEST_F(EngineClientTest, UpdateEndpointWithTheSameUrlDoesNothing)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    const size_t before = delegate.states.size();
    client->updateEndpoint(engine.url());
    QTest::qWait(200);
    EXPECT_EQ(delegate.states.size(), before);
    EXPECT_EQ(engine.connectionCount(), 1);
}

TEST_F(EngineClientTest, UpdateEndpointWhileDisconnectedOnlyStoresTheUrl)
{
    TestEngine other;
    ASSERT_TRUE(other.listen());
    auto client = makeClient(engine.url());
    client->updateEndpoint(other.url());
    QTest::qWait(300);
    EXPECT_EQ(client->endpoint(), other.url());
    EXPECT_TRUE(delegate.states.empty());
    EXPECT_EQ(other.connectionCount(), 0);
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    EXPECT_EQ(other.connectionCount(), 1);
    EXPECT_EQ(engine.connectionCount(), 0);
}

TEST_F(EngineClientTest, UpdateEndpointWhileConnectedMovesToTheNewEngine)
{
    TestEngine other;
    ASSERT_TRUE(other.listen());
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->updateEndpoint(other.url());
    ASSERT_TRUE(QTest::qWaitFor([&] { return other.connectionCount() == 1; }, 5000));
    ASSERT_TRUE(waitConnected(*client));
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.closeCode(0).has_value(); }, 5000));
    EXPECT_EQ(engine.closeCode(0), 1001);
    EXPECT_EQ(client->reconnectDelaySeconds(), 0.5);
}

TEST_F(EngineClientTest, InboundMessagesReachTheDelegateAndGarbageIsSkipped)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.sendText("this is not json");
    engine.sendText(R"({"type":"partial","utterance_id":"U1"})"); // missing text: dropped
    engine.sendText(R"({"type":"engine.heartbeat"})"); // unknown: dropped
    engine.sendText(R"({"type":"partial","utterance_id":"U1","text":"hel"})");
    engine.sendBinary(
        R"({"type":"partial","utterance_id":"U1","text":"hello"})"); // JSON in a binary frame
    engine.sendBinary(QByteArray("\x00\x01\x02", 3));
    engine.sendText(R"({"type":"final","utterance_id":"U0","raw_text":"x","formatted_text":"X.",)"
                    R"("domain":"default","domain_source":"context"})"); // no guardrail: dropped
    engine.sendText(kFinal);
    engine.sendText(R"({"type":"domain.changed","domain":"email","source":"context"})");
    engine.sendText(R"({"type":"error","code":"bad_audio","message":"odd"})");
    engine.sendText(R"({"type":"suggestions","dictionary":[],"exemplars":[]})");
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.suggestions.size() == 1; }, 5000));

    ASSERT_EQ(delegate.partials.size(), 2u);
    EXPECT_EQ(delegate.partials[0].text, "hel");
    EXPECT_EQ(delegate.partials[1].text, "hello");
    ASSERT_EQ(delegate.finals.size(), 1u);
    EXPECT_EQ(delegate.finals[0].utteranceId, "U1");
    EXPECT_EQ(delegate.finals[0].formattedText, "Hi.");
    ASSERT_EQ(delegate.domains.size(), 1u);
    EXPECT_EQ(delegate.domains[0].domain, "email");
    ASSERT_EQ(delegate.errors.size(), 1u);
    EXPECT_EQ(delegate.errors[0].code, "bad_audio");
    // An engine error leaves the connection alone.
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Connected>());
    EXPECT_EQ(engine.connectionCount(), 1);
}

TEST_F(EngineClientTest, ASecondAckReentersConnectedWithTheNewBackends)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.sendText(R"({"type":"hello.ack","server_version":"2","backends":{"streaming":"mock"}})");
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.acks.size() == 2; }, 5000));
    EXPECT_EQ(client->connectionState(),
        ConnectionState::connected(Backends {"mock", std::nullopt, std::nullopt}));
}

TEST_F(EngineClientTest, AGoneDelegateHearsNothingButTheAckStillConnects)
{
    auto client = std::make_unique<EngineClient>(engine.url(), QStringLiteral("0.1.0"));
    {
        auto gone = std::make_unique<RecordingDelegate>();
        client->setDelegate(gone.get(), gone.get());
    }
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.sendText(kFinal);
    QTest::qWait(200); // nothing to observe but the absence of a crash
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Connected>());
}

TEST_F(EngineClientTest, ADroppedConnectionIsLostAndReconnects)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    engine.dropConnection();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return client->connectionState().is<ConnectionState::Failed>(); }, 5000));
    const auto *failed = client->connectionState().as<ConnectionState::Failed>();
    EXPECT_TRUE(failed->message.startsWith("connection lost: ")) << failed->message.toStdString();
    ASSERT_TRUE(waitConnected(*client));
    EXPECT_EQ(engine.connectionCount(), 2);
    const QList<qint64> times = engine.connectionTimesMs();
    EXPECT_NEAR((times[1] - times[0]) / 1000.0, 0.5, 0.4);
}

TEST_F(EngineClientTest, AServerThatIsNotAWebSocketFailsTheHandshake)
{
    QTcpServer plain;
    ASSERT_TRUE(plain.listen(QHostAddress::LocalHost, 0));
    QObject::connect(&plain, &QTcpServer::newConnection, [&] {
        QTcpSocket *socket = plain.nextPendingConnection();
        socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
        socket->disconnectFromHost();
    });
    auto client = makeClient(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(plain.serverPort())));
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return client->connectionState().is<ConnectionState::Failed>(); }, 5000));
    client->disconnect();
    EXPECT_TRUE(delegate.states[1].as<ConnectionState::Failed>()->message.startsWith(
        "hello handshake failed: "));
}

// Endpoints Qt refuses inside open(): each one fails the handshake and is retried with the
// back-off, and what was sent meanwhile fails instead of waiting for ever.
void expectRefusedAndRetried(RecordingDelegate &delegate, EngineClient &client)
{
    client.connect();
    std::optional<SendFailure> sent;
    bool answered = false;
    client.startUtterance("U1", [&](const auto &f) {
        answered = true;
        sent = f;
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.connectingAtMs.size() >= 3; }, 5000));
    client.disconnect();
    ASSERT_GE(delegate.states.size(), 2u);
    EXPECT_EQ(delegate.states[0], ConnectionState::connecting());
    const auto *failed = delegate.states[1].as<ConnectionState::Failed>();
    ASSERT_NE(failed, nullptr) << describe(delegate.states[1]).toStdString();
    EXPECT_TRUE(failed->message.startsWith("hello handshake failed: "))
        << failed->message.toStdString();
    EXPECT_GT(failed->message.size(), QString("hello handshake failed: ").size());
    EXPECT_NEAR((delegate.connectingAtMs[1] - delegate.failedAtMs[0]) / 1000.0, 0.5, 0.4);
    EXPECT_GE(delegate.connectingAtMs[2] - delegate.failedAtMs[1], 950);
    ASSERT_TRUE(QTest::qWaitFor([&] { return answered; }, 1000));
    ASSERT_TRUE(sent.has_value());
}

TEST_F(EngineClientTest, AWebAddressFailsTheHandshakeAndIsRetried)
{
    auto client = makeClient(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(engine.port())));
    expectRefusedAndRetried(delegate, *client);
    EXPECT_EQ(engine.connectionCount(), 0);
}

TEST_F(EngineClientTest, AnInvalidUrlFailsTheHandshakeAndIsRetried)
{
    const QUrl invalid(QStringLiteral("ws://[::1"));
    ASSERT_FALSE(invalid.isValid());
    auto client = makeClient(invalid);
    expectRefusedAndRetried(delegate, *client);
}

TEST_F(EngineClientTest, SecureWebSocketsWithoutTlsFailTheHandshakeAndAreRetried)
{
    // The certificate-only backend has no TLS sockets, as on a system without OpenSSL. The
    // choice is possible only before the first socket of the process (CTest runs each case
    // in a process of its own).
    if (!QSslSocket::setActiveBackend(QStringLiteral("cert-only"))) {
        GTEST_SKIP() << "another test of this process chose the TLS backend already";
    }
    ASSERT_FALSE(QSslSocket::supportsSsl());
    auto client = makeClient(QUrl(QStringLiteral("wss://127.0.0.1:%1").arg(engine.port())));
    expectRefusedAndRetried(delegate, *client);
    EXPECT_EQ(engine.connectionCount(), 0);
}

// A server that accepts the connection and never answers the WebSocket upgrade: the client's
// socket stays opening.
class SilentServer
{
public:
    SilentServer()
    {
        server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket *socket = server.nextPendingConnection()) {
                sockets << socket;
            }
        });
    }
    QUrl url() const { return QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(server.serverPort())); }
    bool anyClosed() const
    {
        return std::any_of(sockets.begin(), sockets.end(),
            [](QTcpSocket *s) { return s->state() != QAbstractSocket::ConnectedState; });
    }

    QTcpServer server;
    QList<QTcpSocket *> sockets;
};

// A frame sent on an open socket is in the connection when the send returns: the peer reads
// it while this thread's event loop does not run (a key-up's utterance.end does not wait for
// the loop's next turn to leave).
TEST_F(EngineClientTest, AFrameOnAnOpenSocketIsOnTheWireWhenTheSendReturns)
{
    SilentServer server;
    auto client = makeClient(server.url());
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return server.sockets.size() == 1 && server.sockets[0]->canReadLine(); }, 5000));
    QTcpSocket &peer = *server.sockets[0];
    // The upgrade, answered by hand so that this side's socket is a plain one.
    ASSERT_TRUE(QTest::qWaitFor([&] { return peer.peek(4096).contains("\r\n\r\n"); }, 5000));
    QByteArray key;
    for (const QByteArray &line : peer.readAll().split('\n')) {
        if (line.toLower().startsWith("sec-websocket-key:")) {
            key = line.mid(line.indexOf(':') + 1).trimmed();
        }
    }
    ASSERT_FALSE(key.isEmpty());
    const QByteArray accept = QCryptographicHash::hash(
        key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1)
                                  .toBase64();
    peer.write("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n"
               "Connection: Upgrade\r\nSec-WebSocket-Accept: "
        + accept + "\r\n\r\n");
    peer.flush();
    ASSERT_TRUE(QTest::qWaitFor([&] { return client->writesAtOnce(); }, 5000));
    QTest::qWait(50);
    peer.readAll(); // the hello

    client->sendBinary(QByteArray(3200, 'a'));
    // Blocks on the peer's socket alone: nothing of this thread's event loop runs meanwhile.
    QByteArray received;
    while (received.size() < 3200 && peer.waitForReadyRead(2000)) {
        received += peer.readAll();
    }
    // A client frame: 2 header bytes, 2 of extended length, 4 of mask, then the payload.
    EXPECT_EQ(received.size(), 3200 + 8);
}

TEST_F(EngineClientTest, DisconnectWhileTheSocketIsStillOpeningStopsEverything)
{
    SilentServer silent;
    auto client = makeClient(silent.url());
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return silent.sockets.size() == 1; }, 5000));
    std::optional<SendFailure> waiting;
    bool answered = false;
    client->startUtterance("U1", [&](const auto &f) {
        answered = true;
        waiting = f;
    });
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Connecting>());
    client->disconnect();
    EXPECT_EQ(client->connectionState(), ConnectionState::disconnected());
    EXPECT_FALSE(client->hasSocket());
    ASSERT_TRUE(QTest::qWaitFor([&] { return answered; }, 1000));
    ASSERT_TRUE(waiting.has_value());
    EXPECT_EQ(waiting->error, EngineClientError::sendFailed);
    ASSERT_TRUE(QTest::qWaitFor([&] { return silent.anyClosed(); }, 5000));
    QTest::qWait(1200);
    EXPECT_EQ(delegate.states.back(), ConnectionState::disconnected());
    EXPECT_EQ(delegate.connectingAtMs.size(), 1u);
    EXPECT_EQ(silent.sockets.size(), 1);
}

TEST_F(EngineClientTest, WhatWaitsForAnOpeningSocketIsBounded)
{
    SilentServer silent;
    auto client = makeClient(silent.url());
    client->connect();
    const QByteArray frame(256 * 1024, 'a');
    const int sends = 32;
    std::vector<int> refused;
    for (int i = 0; i < sends; ++i) {
        client->sendBinary(frame, [&refused, i](const auto &f) {
            if (f) {
                EXPECT_EQ(f->error, EngineClientError::sendFailed);
                refused.push_back(i);
            }
        });
    }
    // What fits waits for the socket; the rest fails at once.
    const int fits = static_cast<int>(EngineClient::kMaxPendingBytes / frame.size()) - 1;
    ASSERT_TRUE(QTest::qWaitFor([&] { return refused.size() == size_t(sends - fits); }, 2000));
    EXPECT_EQ(refused.front(), fits);
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Connecting>());
    client->disconnect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return refused.size() == size_t(sends); }, 2000));
}

TEST_F(EngineClientTest, SendsWithoutASocketFailWithNotConnected)
{
    auto client = makeClient(engine.url());
    std::vector<std::optional<SendFailure>> results;
    auto record = [&](const std::optional<SendFailure> &f) { results.push_back(f); };
    client->send(DomainPinMessage {"domain.pin", "legal"}, record);
    client->startUtterance("U", record);
    client->endUtterance("U", record);
    client->sendBinary(QByteArray(3200, 'a'), record);
    EXPECT_TRUE(results.empty()); // completions are never delivered inside the call
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 4; }, 1000));
    for (const auto &result : results) {
        ASSERT_TRUE(result.has_value());
        EXPECT_EQ(result->error, EngineClientError::notConnected);
    }
    // The fire-and-forget operations stay silent: no state change, and nothing of theirs is
    // kept for a later socket.
    client->pinDomain("x");
    client->unpinDomain();
    client->requestSuggestions();
    client->sendFeedback("U", "t", 1, "user");
    client->updateContext(ContextPack {std::string("a"), {}, {}, {}, {}, {}});
    QTest::qWait(100);
    EXPECT_TRUE(delegate.states.empty());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    QTest::qWait(200);
    EXPECT_EQ(engine.textTypes(), std::vector<QString> {"hello"});
    EXPECT_EQ(engine.frames().size(), 1u);
}

TEST_F(EngineClientTest, SendsWhileConnectingGoOutInOrderAfterTheHello)
{
    engine.setHelloAckBackends(std::nullopt); // stay in connecting
    auto client = makeClient(engine.url());
    client->connect();
    std::vector<std::optional<SendFailure>> results;
    ContextPack pack;
    pack.appName = "Editor";
    client->updateContext(pack);
    client->startUtterance("U1", [&](const auto &f) { results.push_back(f); });
    client->sendBinary(QByteArray(3200, '\x01'), [&](const auto &f) { results.push_back(f); });
    client->sendBinary(QByteArray(600, '\x02'), [&](const auto &f) { results.push_back(f); });
    client->endUtterance("U1", [&](const auto &f) { results.push_back(f); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.frames().size() == 6; }, 5000));
    EXPECT_TRUE(client->connectionState().is<ConnectionState::Connecting>());
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 4; }, 1000));
    for (const auto &r : results) {
        EXPECT_FALSE(r.has_value());
    }
    EXPECT_EQ(engine.textTypes(),
        (std::vector<QString> {"hello", "context.update", "utterance.start", "utterance.end"}));
    const auto &frames = engine.frames();
    EXPECT_FALSE(frames[0].binary);
    EXPECT_EQ(frames[3].bytes, QByteArray(3200, '\x01'));
    EXPECT_EQ(frames[4].bytes, QByteArray(600, '\x02'));
    EXPECT_EQ(frames[5].bytes, R"({"type":"utterance.end","utterance_id":"U1"})");
}

TEST_F(EngineClientTest, SendsWaitingForASocketThatFailsFail)
{
    auto client = makeClient(deadUrl());
    client->connect();
    std::optional<SendFailure> startResult;
    bool called = false;
    client->startUtterance("U1", [&](const auto &f) {
        called = true;
        startResult = f;
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return called; }, 5000));
    client->disconnect();
    ASSERT_TRUE(startResult.has_value());
    EXPECT_EQ(startResult->error, EngineClientError::sendFailed);
    EXPECT_FALSE(startResult->description.isEmpty());
}

TEST_F(EngineClientTest, EmptyContextSendsNothing)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->updateContext(ContextPack {});
    ContextPack named;
    named.windowTitle = "notes";
    client->updateContext(named);
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.textFrames().size() == 2; }, 5000));
    QTest::qWait(100);
    EXPECT_EQ(engine.textTypes(), (std::vector<QString> {"hello", "context.update"}));
    EXPECT_EQ(
        engine.textFrames()[1], R"({"type":"context.update","context":{"window_title":"notes"}})");
}

TEST_F(EngineClientTest, FeedbackSettingTravelsWithTheNextHelloOnly)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->setFeedbackEnabled(true);
    QTest::qWait(200);
    EXPECT_EQ(engine.textFrames().size(), 1u);
    client->disconnect();
    client->connect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.textFrames().size() == 2; }, 5000));
    EXPECT_EQ(
        nlohmann::json::parse(engine.textFrames()[1].toStdString())["feedback_enabled"], true);
}

TEST_F(EngineClientTest, EveryFireAndForgetMessageIsSent)
{
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    client->pinDomain("legal");
    client->unpinDomain();
    client->requestSuggestions();
    client->sendFeedback("U9", "Final text.", 2500, "calibration");
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.textFrames().size() == 5; }, 5000));
    const auto texts = engine.textFrames();
    EXPECT_EQ(texts[1], R"({"type":"domain.pin","domain":"legal"})");
    EXPECT_EQ(texts[2], R"({"type":"domain.unpin"})");
    EXPECT_EQ(texts[3], R"({"type":"suggestions.request"})");
    EXPECT_EQ(texts[4],
        R"({"type":"utterance.feedback","utterance_id":"U9","final_text_after_edit":"Final text.",)"
        R"("edit_delay_ms":2500,"source":"calibration"})");
}

TEST_F(EngineClientTest, ARecordedUtteranceStreamsAndItsFinalArrives)
{
    // A scripted engine that answers the end of an utterance with a final naming the bytes it got.
    engine.setOnText([&](const QByteArray &text, int) {
        const auto decoded = decodeOutbound(text.toStdString());
        if (decoded && std::holds_alternative<UtteranceEndMessage>(decoded.value())) {
            qsizetype bytes = 0;
            for (const auto &frame : engine.frames()) {
                bytes += frame.binary ? frame.bytes.size() : 0;
            }
            FinalMessage final;
            final.utteranceId = std::get<UtteranceEndMessage>(decoded.value()).utteranceId;
            final.rawText = std::to_string(bytes);
            final.formattedText = std::to_string(bytes) + " bytes";
            final.domain = "default";
            final.domainSource = "context";
            final.guardrail.applied = true;
            engine.sendText(QByteArray::fromStdString(encode(final)));
        }
    });
    auto client = makeClient(engine.url());
    client->connect();
    ASSERT_TRUE(waitConnected(*client));
    QByteArray pcm(16000 * 2 * 1 + 1280, '\0'); // 1.04 s of 16 kHz mono s16le
    for (qsizetype i = 0; i < pcm.size(); i += 2) {
        pcm[i] = static_cast<char>(i & 0xff);
    }
    client->startUtterance("REC-1");
    for (qsizetype offset = 0; offset < pcm.size(); offset += 3200) {
        client->sendBinary(pcm.mid(offset, 3200));
    }
    client->endUtterance("REC-1");
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate.finals.size() == 1; }, 5000));
    EXPECT_EQ(delegate.finals[0].utteranceId, "REC-1");
    EXPECT_EQ(delegate.finals[0].formattedText, std::to_string(pcm.size()) + " bytes");
    QByteArray received;
    for (const auto &frame : engine.frames()) {
        if (frame.binary) {
            received += frame.bytes;
        }
    }
    EXPECT_EQ(received, pcm);
}
