// The engine as a client sees it: a real sayvo-engine process on loopback, spoken to over a
// WebSocket with the shared codec.
#include "support/engine/EngineProcess.h"
#include "support/engine/EngineTestClient.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <unistd.h>

namespace sayvo::test {
namespace {

int runEngine(const QStringList &arguments, QString *output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(SAYVO_ENGINE_BINARY), arguments);
    if (!process.waitForFinished(15000)) {
        process.kill();
        process.waitForFinished();
        return -1;
    }
    if (output) {
        *output = QString::fromUtf8(process.readAll());
    }
    return process.exitCode();
}

class EngineProtocol : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        QFile replay(m_dir.filePath("replay.txt"));
        ASSERT_TRUE(replay.open(QIODevice::WriteOnly));
        replay.write("um the meeting is at three pm in room two oh four\n"
                     "ask marin about it\n"
                     "ask marin about it\n");
        replay.close();
        startEngine();
    }

    void startEngine(QStringList extra = {})
    {
        QStringList args {"--asr", "replay:" + m_dir.filePath("replay.txt"), "--data-dir",
            m_dir.filePath("data")};
        args << extra;
        ASSERT_TRUE(m_engine.start(args)) << m_engine.log().toStdString();
    }

    // Streams `frames` 100 ms chunks of silence, paced a little so that partials can flow.
    static void speak(EngineTestClient &client, const std::string &id, int frames, int paceMs = 0)
    {
        client.send(UtteranceStartMessage {.utteranceId = id});
        for (int i = 0; i < frames; ++i) {
            client.sendAudio(QByteArray(3200, '\0'));
            if (paceMs > 0) {
                QTest::qWait(paceMs);
            }
        }
        client.send(UtteranceEndMessage {.utteranceId = id});
    }

    // How many utterances the engine recognises at once, as its start-up log says; 0 when
    // the log does not say.
    int recognitionWorkers()
    {
        const auto found = QRegularExpression(QStringLiteral("recognisers: up to (\\d+) at once"))
                               .match(m_engine.log());
        return found.hasMatch() ? found.captured(1).toInt() : 0;
    }

    QTemporaryDir m_dir;
    EngineProcess m_engine;
};

TEST_F(EngineProtocol, BindsLoopbackAndAcknowledgesHello)
{
    EXPECT_EQ(m_engine.host(), "127.0.0.1");
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.send(HelloMessage {.version = "0.1.0", .feedbackEnabled = false});
    ASSERT_TRUE(client.waitFor<HelloAckMessage>());
    const HelloAckMessage ack = client.received<HelloAckMessage>()[0];
    EXPECT_FALSE(ack.serverVersion.empty());
    EXPECT_EQ(ack.backends, (Backends {"replay", "replay", "sayvo-rules"}));
    EXPECT_EQ(client.undecodable(), 0);
}

TEST_F(EngineProtocol, AnUtteranceEndToEnd)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.send(HelloMessage {.version = "0.1.0", .feedbackEnabled = true});
    ContextUpdateMessage context;
    context.context.appBundleId = "org.gnome.TextEditor";
    context.context.windowTitle = "notes";
    client.send(context);
    speak(client, "A1B2C3D4-0000-4000-8000-000000000001", 14, 80);
    ASSERT_TRUE(client.waitFor<FinalMessage>());
    const auto partials = client.received<PartialMessage>();
    ASSERT_GE(partials.size(), 2u);
    EXPECT_LT(partials.front().text.size(), partials.back().text.size()) << "partials grow";
    const FinalMessage f = client.received<FinalMessage>()[0];
    EXPECT_EQ(f.utteranceId, "A1B2C3D4-0000-4000-8000-000000000001");
    EXPECT_EQ(f.rawText, "um the meeting is at three pm in room two oh four");
    EXPECT_EQ(f.formattedText, "The meeting is at 3pm in room 204.");
    EXPECT_EQ(f.domain, "default");
    EXPECT_EQ(f.domainSource, "context");
    EXPECT_TRUE(f.guardrail.applied);
    ASSERT_TRUE(f.stats.has_value());
    EXPECT_DOUBLE_EQ(f.stats->audioDurationS, 1.4);
    EXPECT_EQ(f.stats->wordCount, 11);
    EXPECT_EQ(f.stats->fillerCount, 1);
    EXPECT_NEAR(f.stats->fillerRate, 1.0 / 12.0, 1e-9);
    ASSERT_TRUE(f.timingsMs.has_value());
    EXPECT_TRUE(f.timingsMs->total.has_value());
    EXPECT_TRUE(client.errorCodes().empty());
    EXPECT_TRUE(m_engine.log().contains("utterance A1B2C3D4-0000-4000-8000-000000000001"));
    EXPECT_EQ(client.undecodable(), 0) << "every reply decodes with the client's decoder";
}

TEST_F(EngineProtocol, DomainsFollowContextAndPins)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    ContextUpdateMessage mail;
    mail.context.appBundleId = "org.mozilla.thunderbird";
    client.send(mail);
    client.send(DomainPinMessage {.domain = "casual"});
    client.send(DomainUnpinMessage {});
    ASSERT_TRUE(client.waitFor<DomainChangedMessage>(3));
    const auto changes = client.received<DomainChangedMessage>();
    EXPECT_EQ(changes[0], (DomainChangedMessage {"email", "context"}));
    EXPECT_EQ(changes[1], (DomainChangedMessage {"casual", "pinned"}));
    EXPECT_EQ(changes[2], (DomainChangedMessage {"email", "context"}));
}

TEST_F(EngineProtocol, EveryBadInputGetsAnErrorAndTheSessionGoesOn)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.sendText("this is not json");
    client.sendText(R"({"type":"utterance.rewind"})");
    client.sendAudio(QByteArray(3200, '\0'));
    client.send(UtteranceStartMessage {.utteranceId = "U1"});
    client.sendAudio(QByteArray(3201, '\0'));
    client.send(UtteranceEndMessage {.utteranceId = "U9"});
    client.sendAudio(QByteArray(1024 * 1024 + 2, '\0'));
    ASSERT_TRUE(client.waitFor<ErrorMessage>(5));
    // The mismatched end is about no utterance the client is in: logged, not sent.
    EXPECT_EQ(client.errorCodes(),
        (std::vector<std::string> {"invalid_json", "unknown_type", "no_utterance",
            "odd_frame_length", "frame_too_large"}));
    client.send(UtteranceEndMessage {.utteranceId = "U1"});
    ASSERT_TRUE(client.waitFor<FinalMessage>());
    EXPECT_EQ(client.received<FinalMessage>()[0].utteranceId, "U1");
    EXPECT_TRUE(m_engine.log().contains("error odd_frame_length"));
    EXPECT_TRUE(m_engine.log().contains("error utterance_mismatch"));
}

TEST_F(EngineProtocol, AnUtteranceOverFiveMinutesIsFinalisedThenReported)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.send(UtteranceStartMessage {.utteranceId = "LONG"});
    const QByteArray thirtySeconds(30 * 32000, '\0');
    for (int i = 0; i < 11; ++i) {
        client.sendAudio(thirtySeconds);
    }
    client.send(UtteranceEndMessage {.utteranceId = "LONG"});
    ASSERT_TRUE(client.waitFor<ErrorMessage>(1, 20000));
    ASSERT_EQ(client.received<FinalMessage>().size(), 1u) << "the final comes before the error";
    EXPECT_DOUBLE_EQ(client.received<FinalMessage>()[0].stats->audioDurationS, 300.0);
    EXPECT_EQ(client.errorCodes(), std::vector<std::string> {"utterance_too_long"});
    speak(client, "NEXT", 2);
    ASSERT_TRUE(client.waitFor<FinalMessage>(2));
    EXPECT_EQ(client.errorCodes().size(), 1u);
}

TEST_F(EngineProtocol, RefusesHandshakesThatCarryAnOrigin)
{
    EngineTestClient page(QStringLiteral("https://evil.example"));
    EXPECT_TRUE(page.refusedBy(m_engine.url()));
    EngineTestClient app;
    EXPECT_TRUE(app.connectTo(m_engine.url())) << "a client without an Origin is welcome";
    EXPECT_TRUE(m_engine.log().contains("refused handshake with origin https://evil.example"));
}

// Opens a WebSocket handshake to host:port from a shell running as `uid` (through setpriv
// when that is another user) and returns the first line of the answer: empty when the
// connection was dropped without one.
QString handshakeAs(std::optional<int> uid, const QString &host, quint16 port)
{
    const QString script = QStringLiteral(
        R"(exec 3<>"/dev/tcp/$0/$1" || exit 9
printf 'GET / HTTP/1.1\r\nHost: sayvo\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n' >&3
IFS= read -r -t 10 line <&3
printf '%s' "${line%$'\r'}")");
    QStringList command;
    if (uid) {
        command << "setpriv"
                << "--reuid" << QString::number(*uid) << "--regid" << QString::number(*uid)
                << "--clear-groups"
                << "--";
    }
    command << "bash"
            << "-c" << script << host << QString::number(port);
    QProcess shell;
    shell.start(command.takeFirst(), command);
    shell.waitForFinished(30000);
    return QString::fromUtf8(shell.readAllStandardOutput());
}

class OtherUsers : public EngineProtocol
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "running a client as another user needs root";
        }
        EngineProtocol::SetUp();
    }
};

TEST_F(OtherUsers, AProgramOfAnotherUserIsRefusedBeforeTheHandshake)
{
    EXPECT_EQ(handshakeAs(std::nullopt, "127.0.0.1", m_engine.port()).toStdString(),
        "HTTP/1.1 101 Switching Protocols");
    EXPECT_EQ(handshakeAs(65534, "127.0.0.1", m_engine.port()).toStdString(), "");
    EXPECT_TRUE(QTest::qWaitFor([&] {
        return m_engine.log().contains("refused connection from another user's program");
    })) << m_engine.log().toStdString();
    EXPECT_TRUE(m_engine.log().contains("peer socket belongs to uid 65534"));
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url())) << "the engine's own user still gets in";
}

TEST_F(OtherUsers, OverIpv6LoopbackToo)
{
    m_engine.kill();
    startEngine({"--host", "::1"});
    EXPECT_EQ(handshakeAs(std::nullopt, "::1", m_engine.port()).toStdString(),
        "HTTP/1.1 101 Switching Protocols");
    EXPECT_EQ(handshakeAs(65534, "::1", m_engine.port()).toStdString(), "");
    EXPECT_TRUE(QTest::qWaitFor([&] {
        return m_engine.log().contains("peer socket belongs to uid 65534");
    })) << m_engine.log().toStdString();
}

TEST_F(EngineProtocol, PastOneUtterancePerCoreANewOneIsBusyUntilOneEnds)
{
    const int workers = recognitionWorkers();
    ASSERT_GE(workers, 1) << m_engine.log().toStdString();
    std::vector<std::unique_ptr<EngineTestClient>> talking;
    for (int i = 0; i < workers; ++i) {
        talking.push_back(std::make_unique<EngineTestClient>());
        ASSERT_TRUE(talking.back()->connectTo(m_engine.url()));
        talking.back()->send(UtteranceStartMessage {.utteranceId = "T" + std::to_string(i)});
        talking.back()->sendAudio(QByteArray(3200, '\0'));
        // A round trip: the engine has taken the start before the next client speaks.
        talking.back()->send(SuggestionsRequestMessage {});
        ASSERT_TRUE(talking.back()->waitFor<SuggestionsMessage>());
    }
    EngineTestClient late;
    ASSERT_TRUE(late.connectTo(m_engine.url()));
    speak(late, "LATE", 2);
    ASSERT_TRUE(late.waitFor<ErrorMessage>());
    EXPECT_EQ(late.errorCodes(), std::vector<std::string> {"busy"});
    EXPECT_TRUE(late.received<FinalMessage>().empty());

    talking.front()->send(UtteranceEndMessage {.utteranceId = "T0"});
    ASSERT_TRUE(talking.front()->waitFor<FinalMessage>());
    speak(late, "AGAIN", 2);
    ASSERT_TRUE(late.waitFor<FinalMessage>());
    EXPECT_EQ(late.received<FinalMessage>()[0].utteranceId, "AGAIN");
    EXPECT_EQ(late.errorCodes().size(), 1u);
}

// Every worker but one is held by an open utterance, so back-to-back dictation has exactly
// one worker: each start sent the moment the previous final arrives must find it free.
TEST_F(EngineProtocol, AStartRightAfterAFinalIsNeverBusy)
{
    const int workers = recognitionWorkers();
    ASSERT_GE(workers, 1) << m_engine.log().toStdString();
    std::vector<std::unique_ptr<EngineTestClient>> holding;
    for (int i = 0; i + 1 < workers; ++i) {
        holding.push_back(std::make_unique<EngineTestClient>());
        ASSERT_TRUE(holding.back()->connectTo(m_engine.url()));
        holding.back()->send(UtteranceStartMessage {.utteranceId = "H" + std::to_string(i)});
        holding.back()->send(SuggestionsRequestMessage {});
        ASSERT_TRUE(holding.back()->waitFor<SuggestionsMessage>());
    }
    EngineTestClient dictating;
    ASSERT_TRUE(dictating.connectTo(m_engine.url()));
    constexpr int kSentences = 30;
    for (int i = 0; i < kSentences; ++i) {
        speak(dictating, "S" + std::to_string(i), 2);
        ASSERT_TRUE(dictating.waitFor<FinalMessage>(static_cast<std::size_t>(i) + 1))
            << "sentence " << i << "; errors: " << dictating.errorCodes().size();
        ASSERT_TRUE(dictating.errorCodes().empty())
            << "sentence " << i << " was refused: " << dictating.errorCodes().front();
    }
}

TEST_F(EngineProtocol, TwoSessionsAreIndependent)
{
    EngineTestClient first;
    EngineTestClient second;
    ASSERT_TRUE(first.connectTo(m_engine.url()));
    ASSERT_TRUE(second.connectTo(m_engine.url()));
    first.send(DomainPinMessage {.domain = "casual"});
    ASSERT_TRUE(first.waitFor<DomainChangedMessage>());
    first.send(UtteranceStartMessage {.utteranceId = "F"});
    second.send(UtteranceStartMessage {.utteranceId = "S"});
    for (int i = 0; i < 3; ++i) {
        first.sendAudio(QByteArray(3200, '\0'));
        second.sendAudio(QByteArray(3200, '\0'));
    }
    second.send(UtteranceEndMessage {.utteranceId = "S"});
    first.send(UtteranceEndMessage {.utteranceId = "F"});
    ASSERT_TRUE(first.waitFor<FinalMessage>());
    ASSERT_TRUE(second.waitFor<FinalMessage>());
    const FinalMessage f = first.received<FinalMessage>()[0];
    const FinalMessage s = second.received<FinalMessage>()[0];
    EXPECT_EQ(f.utteranceId, "F");
    EXPECT_EQ(s.utteranceId, "S");
    EXPECT_EQ(f.domain, "casual");
    EXPECT_EQ(s.domain, "default");
    EXPECT_TRUE(second.received<DomainChangedMessage>().empty());
    EXPECT_TRUE(first.errorCodes().empty());
    EXPECT_TRUE(second.errorCodes().empty());
}

TEST_F(EngineProtocol, RepeatedCorrectionsBecomeSuggestionsThatSurviveAKill)
{
    {
        EngineTestClient client;
        ASSERT_TRUE(client.connectTo(m_engine.url()));
        client.send(SuggestionsRequestMessage {});
        ASSERT_TRUE(client.waitFor<SuggestionsMessage>());
        EXPECT_TRUE(client.received<SuggestionsMessage>()[0].dictionary.empty());
        for (int n = 1; n <= 3; ++n) {
            const std::string id = "U" + std::to_string(n);
            speak(client, id, 2);
            ASSERT_TRUE(client.waitFor<FinalMessage>(static_cast<std::size_t>(n)));
            // The first line has nothing to correct; lines two and three say "marin".
            const std::string text
                = n == 1 ? client.received<FinalMessage>()[0].formattedText : "Ask Maren about it.";
            client.send(UtteranceFeedbackMessage {.utteranceId = id,
                .finalTextAfterEdit = text,
                .editDelayMs = 900,
                .source = "user"});
        }
        client.send(SuggestionsRequestMessage {});
        ASSERT_TRUE(client.waitFor<SuggestionsMessage>(2));
        const SuggestionsMessage s = client.received<SuggestionsMessage>()[1];
        EXPECT_EQ(s.dictionary, (std::vector<DictionarySuggestion> {{"marin", "Maren", 2}}));
        EXPECT_EQ(s.exemplars,
            (std::vector<ExemplarSuggestion> {
                {"default", "ask marin about it", "Ask Maren about it.", 2}}));
    }
    m_engine.kill(); // SIGKILL: no orderly shutdown
    startEngine();
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.send(SuggestionsRequestMessage {});
    ASSERT_TRUE(client.waitFor<SuggestionsMessage>());
    const SuggestionsMessage s = client.received<SuggestionsMessage>()[0];
    EXPECT_EQ(s.dictionary, (std::vector<DictionarySuggestion> {{"marin", "Maren", 2}}));
    EXPECT_EQ(s.exemplars.size(), 1u);
}

TEST_F(EngineProtocol, AStoreThatCannotOpenIsReportedAndTheEngineRunsWithoutLearning)
{
    m_engine.kill();
    QFile blocker(m_dir.filePath("blocker"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QStringList args {"--asr", "replay:" + m_dir.filePath("replay.txt"), "--data-dir",
        m_dir.filePath("blocker/data")};
    ASSERT_TRUE(m_engine.start(args));
    EXPECT_TRUE(m_engine.log().contains("learning store unavailable"));
    EXPECT_TRUE(m_engine.log().contains(m_dir.filePath("blocker/data/learning.sqlite3")));
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    speak(client, "U1", 2);
    ASSERT_TRUE(client.waitFor<FinalMessage>());
    client.send(UtteranceFeedbackMessage {.utteranceId = "U1", .finalTextAfterEdit = "x"});
    ASSERT_TRUE(client.waitFor<ErrorMessage>());
    EXPECT_EQ(client.errorCodes(), std::vector<std::string> {"learning_unavailable"});
}

TEST_F(EngineProtocol, TheMockEngineSaysSo)
{
    m_engine.kill();
    ASSERT_TRUE(m_engine.start({"--asr", "mock", "--data-dir", m_dir.filePath("data")}));
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.send(HelloMessage {.version = "0.1.0"});
    ASSERT_TRUE(client.waitFor<HelloAckMessage>());
    EXPECT_TRUE(client.received<HelloAckMessage>()[0].backends.isMock());
}

TEST_F(EngineProtocol, ContextsUpToTheSocketLimitAreTakenAndTheUtteranceWorks)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    for (const int megabytes : {2, 6}) {
        ContextUpdateMessage context;
        context.context.appName = "Editor";
        context.context.clipboard = std::string(static_cast<std::size_t>(megabytes) << 20, 'c');
        client.send(context);
    }
    speak(client, "BIG", 3);
    ASSERT_TRUE(client.waitFor<FinalMessage>());
    EXPECT_TRUE(client.errorCodes().empty());
}

TEST_F(EngineProtocol, AFrameOverEightMebibytesClosesTheConnectionAndTheEngineGoesOn)
{
    EngineTestClient client;
    ASSERT_TRUE(client.connectTo(m_engine.url()));
    client.socket().setMaxAllowedIncomingMessageSize(64 << 20);
    client.sendText(QString(9 << 20, QLatin1Char(' ')));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return client.socket().state() == QAbstractSocket::UnconnectedState; }, 20000));
    EXPECT_EQ(client.socket().closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    EXPECT_TRUE(client.errorCodes().empty());

    EngineTestClient next;
    ASSERT_TRUE(next.connectTo(m_engine.url()));
    next.send(HelloMessage {.version = "0.1.0"});
    EXPECT_TRUE(next.waitFor<HelloAckMessage>());
}

// A model folder with one file damaged, as a bad download or a full disk leaves it.
QString damagedModel(const QTemporaryDir &dir, const QString &damaged)
{
    const QString model = dir.filePath("model");
    QDir().mkpath(model);
    for (const char *part : {"en-us", "en-us.lm.bin", "cmudict-en-us.dict"}) {
        QFile::link(QStringLiteral(SAYVO_POCKETSPHINX_MODEL_DIR "/") + part, model + "/" + part);
    }
    if (!damaged.isEmpty()) {
        QFile::remove(model + "/" + damaged);
        QFile file(model + "/" + damaged);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(4096, 'x'));
    }
    return model;
}

TEST_F(EngineProtocol, AModelThatCannotLoadStopsTheEngineWithOneLineNamingTheFile)
{
    m_engine.kill();
    const QString missing = m_dir.filePath("no-model");
    QString out;
    EXPECT_EQ(runEngine({"--model-dir", missing, "--data-dir", m_dir.filePath("data")}, &out), 3);
    EXPECT_TRUE(out.trimmed().split('\n').last().contains(missing + "/en-us")) << out.toStdString();

    const QString damaged = damagedModel(m_dir, "en-us.lm.bin");
    EXPECT_EQ(runEngine({"--model-dir", damaged, "--data-dir", m_dir.filePath("data")}, &out), 3);
    const QString last = out.trimmed().split('\n').last();
    EXPECT_TRUE(last.contains(damaged + "/en-us.lm.bin")) << out.toStdString();
    EXPECT_FALSE(out.contains("listening on"));
}

TEST_F(EngineProtocol, CommandLineMistakesExitWithTheirCodes)
{
    const QString data = m_dir.filePath("data");
    QString out;
    EXPECT_EQ(runEngine({"--asr", "whisper", "--data-dir", data}, &out), 2);
    EXPECT_TRUE(out.contains("unknown --asr whisper"));
    EXPECT_EQ(runEngine({"--port", "70000", "--data-dir", data}), 2);
    EXPECT_EQ(runEngine({"--host", "not an address", "--data-dir", data}), 2);
    EXPECT_EQ(runEngine({"--max-utterance-seconds", "0", "--data-dir", data}), 2);
    EXPECT_EQ(runEngine({"--max-utterance-seconds", "soon", "--data-dir", data}), 2);
    EXPECT_EQ(
        runEngine({"--asr", "replay:" + m_dir.filePath("missing.txt"), "--data-dir", data}, &out),
        3);
    EXPECT_TRUE(out.contains(m_dir.filePath("missing.txt")));
    EXPECT_EQ(
        runEngine({"--asr", "mock", "--port", QString::number(m_engine.port()), "--data-dir", data},
            &out),
        4);
    EXPECT_TRUE(out.contains("cannot listen"));
    EXPECT_EQ(runEngine({"--check", "--data-dir", data}, &out), 0);
    EXPECT_TRUE(out.contains("backends: pocketsphinx-en-us"));
    EXPECT_EQ(runEngine({"--check", "--asr", "mock", "--data-dir", data}), 3);
}

} // namespace
} // namespace sayvo::test
