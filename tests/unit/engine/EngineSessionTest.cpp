#include "engine/server/EngineSession.h"

#include "engine/asr/ReplayRecognizer.h"
#include "engine/store/LearningStore.h"
#include "protocol/WireCodec.h"
#include "support/engine/InlineWorkers.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <condition_variable>
#include <mutex>

namespace sayvo {
namespace {

using namespace std::chrono_literals;

// A session over the replay recogniser with a hand-driven clock; what it sends is decoded
// with the client's own decoder.
class EngineSessionTest : public ::testing::Test
{
protected:
    explicit EngineSessionTest(std::vector<std::string> lines = {"hello world again", "second one"})
        : m_recognizers(std::move(lines))
    {
        auto store = LearningStore::open(m_dir.filePath("l.sqlite3").toStdString());
        m_store = std::move(store).value();
        m_services.store = m_store.get();
        m_services.now = [this] { return m_now; };
        m_services.workers = &m_workers;
        m_services.storeLane = &m_storeLane;
        m_services.log = [this](const std::string &line) { m_log.push_back(line); };
        m_session = std::make_unique<EngineSession>(m_services, [this](const std::string &json) {
            auto decoded = decodeInbound(json);
            ASSERT_TRUE(decoded) << json;
            m_sent.push_back(decoded.value());
        });
    }

    bool logged(const std::string &text) const
    {
        return std::any_of(m_log.begin(), m_log.end(),
            [&](const std::string &line) { return line.find(text) != std::string::npos; });
    }

    void text(const std::string &json) { m_session->handleText(json); }
    void audio(std::size_t bytes) { m_session->handleBinary(std::string(bytes, '\0')); }

    template <typename T> std::vector<T> sent() const
    {
        std::vector<T> out;
        for (const auto &m : m_sent) {
            if (const T *t = std::get_if<T>(&m)) {
                out.push_back(*t);
            }
        }
        return out;
    }
    std::vector<std::string> errorCodes() const
    {
        std::vector<std::string> codes;
        for (const auto &e : sent<ErrorMessage>()) {
            codes.push_back(e.code);
        }
        return codes;
    }

    void utterance(const std::string &id, int frames = 5)
    {
        text(encode(UtteranceStartMessage {.utteranceId = id}));
        for (int i = 0; i < frames; ++i) {
            audio(3200);
            m_now += 100ms;
        }
        text(encode(UtteranceEndMessage {.utteranceId = id}));
    }

    QTemporaryDir m_dir;
    ReplayRecognizerFactory m_recognizers;
    Formatter m_formatter;
    RecentUtterances m_recent;
    std::unique_ptr<LearningStore> m_store;
    test::InlineWorkers m_workers {2};
    test::InlineLane m_storeLane;
    EngineServices m_services {m_recognizers, m_formatter, nullptr, m_recent, "9.9.9"};
    std::chrono::steady_clock::time_point m_now {};
    std::unique_ptr<EngineSession> m_session;
    std::vector<InboundMessage> m_sent;
    std::vector<std::string> m_log;
};

TEST_F(EngineSessionTest, HelloIsAcknowledgedWithTheLoadedBackends)
{
    text(encode(HelloMessage {.version = "0.1.0", .feedbackEnabled = false}));
    const auto acks = sent<HelloAckMessage>();
    ASSERT_EQ(acks.size(), 1u);
    EXPECT_EQ(acks[0].serverVersion, "9.9.9");
    EXPECT_EQ(acks[0].backends, (Backends {"replay", "replay", "sayvo-rules"}));
    EXPECT_FALSE(acks[0].backends.isMock());
}

TEST_F(EngineSessionTest, KeyOrderAndUnknownKeysDoNotMatter)
{
    text(
        R"({"feedback_enabled":false,"sample_rate":16000,"version":"0.1.0","future":[1],"client":"macos","type":"hello"})");
    text(R"({"utterance_id":"U1","type":"utterance.start","extra":{"a":null}})");
    text(R"({"utterance_id":"U1","type":"utterance.end"})");
    EXPECT_EQ(sent<HelloAckMessage>().size(), 1u);
    EXPECT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(EngineSessionTest, AnUtteranceGetsGrowingPartialsAndACompleteFinal)
{
    utterance("U1", 5);
    const auto partials = sent<PartialMessage>();
    ASSERT_GE(partials.size(), 2u);
    EXPECT_EQ(partials.front().text, "hello");
    EXPECT_EQ(partials.back().text, "hello world again");
    for (const auto &p : partials) {
        EXPECT_EQ(p.utteranceId, "U1");
    }
    const auto finals = sent<FinalMessage>();
    ASSERT_EQ(finals.size(), 1u);
    const FinalMessage &f = finals[0];
    EXPECT_EQ(f.utteranceId, "U1");
    EXPECT_EQ(f.rawText, "hello world again");
    EXPECT_EQ(f.formattedText, "Hello world again.");
    EXPECT_EQ(f.domain, "default");
    EXPECT_EQ(f.domainSource, "default");
    EXPECT_TRUE(f.guardrail.applied);
    ASSERT_TRUE(f.timingsMs && f.stats);
    EXPECT_TRUE(f.timingsMs->streamFinal && f.timingsMs->finalPass && f.timingsMs->gec
        && f.timingsMs->total);
    EXPECT_DOUBLE_EQ(f.stats->audioDurationS, 0.5);
    EXPECT_EQ(f.stats->wordCount, 3);
    EXPECT_DOUBLE_EQ(f.stats->spokenWpm, 360.0);
    EXPECT_EQ(f.stats->fillerCount, 0);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(EngineSessionTest, PartialsComeAtMostEvery300Ms)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    for (int i = 0; i < 3; ++i) {
        audio(3200);
        m_now += 50ms; // frames faster than real time
    }
    EXPECT_EQ(sent<PartialMessage>().size(), 1u);
    m_now += 300ms;
    audio(3200);
    EXPECT_EQ(sent<PartialMessage>().size(), 2u);
}

TEST_F(EngineSessionTest, AcceptsAnyEvenLengthAndRefusesOddFrames)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    audio(2);
    audio(0);
    audio(3199);
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"odd_frame_length"});
    text(encode(UtteranceEndMessage {.utteranceId = "U1"}));
    EXPECT_EQ(sent<FinalMessage>().size(), 1u) << "the session goes on";
}

TEST_F(EngineSessionTest, BadInputIsAnsweredWithStableCodes)
{
    text("{not json");
    text("[1,2]");
    text(R"({"type":42})");
    text(R"({"type":"utterance.start"})");
    text(R"({"type":"teleport"})");
    audio(3200);
    text(encode(UtteranceEndMessage {.utteranceId = "nobody"}));
    text(encode(DomainPinMessage {.domain = "poetry"}));
    text(encode(UtteranceFeedbackMessage {.utteranceId = "never", .finalTextAfterEdit = "x"}));
    EXPECT_EQ(errorCodes(),
        (std::vector<std::string> {"invalid_json", "invalid_message", "invalid_message",
            "invalid_message", "unknown_type", "no_utterance", "no_utterance", "unknown_domain",
            "unknown_utterance"}));
    for (const auto &e : sent<ErrorMessage>()) {
        EXPECT_FALSE(e.message.empty());
    }
}

TEST_F(EngineSessionTest, AnEndForAnotherUtteranceIsLoggedAndTheOpenOneContinues)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    audio(3200);
    text(encode(UtteranceEndMessage {.utteranceId = "U2"}));
    EXPECT_TRUE(errorCodes().empty()) << "the client would fail U1 on any error";
    EXPECT_TRUE(logged("error utterance_mismatch"));
    text(encode(UtteranceEndMessage {.utteranceId = "U1"}));
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
}

TEST_F(EngineSessionTest, AudioFramesOverOneMebibyteAreRefused)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    audio(EngineSession::kMaxAudioFrameBytes + 2);
    audio(EngineSession::kMaxAudioFrameBytes);
    EXPECT_EQ(errorCodes(), (std::vector<std::string> {"frame_too_large"}));
    text(encode(UtteranceEndMessage {.utteranceId = "U1"}));
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_DOUBLE_EQ(sent<FinalMessage>()[0].stats->audioDurationS, 32.768);
}

TEST_F(EngineSessionTest, AContextOfSeveralMegabytesIsTakenWithoutError)
{
    for (const std::size_t megabytes : {2u, 6u}) {
        ContextUpdateMessage update;
        update.context.appName = "Editor";
        update.context.clipboard = std::string(megabytes * 1024 * 1024, 'c');
        // The text around the cursor ends with the words that make it a contract.
        update.context.screenText
            = std::string(megabytes * 1024 * 1024, 's') + " whereas the parties agree";
        text(encode(update));
    }
    utterance("U1");
    EXPECT_TRUE(errorCodes().empty());
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_EQ(sent<FinalMessage>()[0].domain, "legal");
}

TEST_F(EngineSessionTest, AnUtteranceOverFiveMinutesIsFinalisedThenReported)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    const std::size_t frame = std::size_t {1024} * 1000; // 32 s of audio a frame
    for (int i = 0; i < 10; ++i) {
        audio(frame);
    }
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_DOUBLE_EQ(sent<FinalMessage>()[0].stats->audioDurationS, 300.0);
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"utterance_too_long"});
    ASSERT_EQ(m_sent.size(), 3u);
    EXPECT_TRUE(std::holds_alternative<FinalMessage>(m_sent[1]))
        << "the final comes first: the client fails its utterance on an error";
    audio(frame); // the client is still talking
    text(encode(UtteranceEndMessage {.utteranceId = "U1"}));
    EXPECT_EQ(errorCodes().size(), 1u)
        << "late audio and the end of a cut-off utterance are expected";
    EXPECT_EQ(sent<FinalMessage>().size(), 1u);
    utterance("U2");
    EXPECT_EQ(sent<FinalMessage>().size(), 2u);
}

TEST_F(EngineSessionTest, TheLengthLimitIsTheServicesOne)
{
    m_services.maxUtteranceSeconds = 1.0;
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    for (int i = 0; i < 15; ++i) {
        audio(3200);
    }
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_DOUBLE_EQ(sent<FinalMessage>()[0].stats->audioDurationS, 1.0);
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"utterance_too_long"});
    EXPECT_NE(sent<ErrorMessage>()[0].message.find("1 s limit"), std::string::npos);
}

TEST_F(EngineSessionTest, ContextPicksTheDomainAndAnnouncesChanges)
{
    ContextUpdateMessage mail;
    mail.context.appBundleId = "org.mozilla.thunderbird";
    text(encode(mail));
    text(encode(mail));
    ContextUpdateMessage chat;
    chat.context.appName = "Slack";
    text(encode(chat));
    const auto changes = sent<DomainChangedMessage>();
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0], (DomainChangedMessage {"email", "context"}));
    EXPECT_EQ(changes[1], (DomainChangedMessage {"casual", "context"}));
    utterance("U1");
    EXPECT_EQ(sent<FinalMessage>()[0].domain, "casual");
    EXPECT_EQ(sent<FinalMessage>()[0].domainSource, "context");
    EXPECT_EQ(sent<FinalMessage>()[0].formattedText, "hello world again");
}

TEST_F(EngineSessionTest, APinnedDomainWinsUntilUnpinned)
{
    text(encode(DomainPinMessage {.domain = "legal"}));
    ContextUpdateMessage mail;
    mail.context.appBundleId = "com.apple.mail";
    text(encode(mail));
    utterance("U1");
    EXPECT_EQ(sent<FinalMessage>()[0].domain, "legal");
    EXPECT_EQ(sent<FinalMessage>()[0].domainSource, "pinned");
    text(encode(DomainUnpinMessage {}));
    const auto changes = sent<DomainChangedMessage>();
    ASSERT_EQ(changes.size(), 2u) << "context changes stay quiet while pinned";
    EXPECT_EQ(changes[0], (DomainChangedMessage {"legal", "pinned"}));
    EXPECT_EQ(changes[1], (DomainChangedMessage {"email", "context"}));
}

TEST_F(EngineSessionTest, PersonalDictionaryComesFromTheContext)
{
    ContextUpdateMessage update;
    update.context.personalDictionary = std::vector<std::string> {"Hello World"};
    text(encode(update));
    utterance("U1");
    EXPECT_EQ(sent<FinalMessage>()[0].formattedText, "Hello World again.");
}

TEST_F(EngineSessionTest, RepeatedFeedbackBecomesSuggestions)
{
    for (const char *id : {"U1", "U2", "U3"}) {
        utterance(id);
        text(encode(UtteranceFeedbackMessage {
            .utteranceId = id, .finalTextAfterEdit = "Hello world again.", .source = "user"}));
    }
    // U2 was "second one" -> "Second one.", corrected to another text.
    text(encode(SuggestionsRequestMessage {}));
    const auto s = sent<SuggestionsMessage>();
    ASSERT_EQ(s.size(), 1u);
    EXPECT_TRUE(s[0].dictionary.empty());
    EXPECT_TRUE(s[0].exemplars.empty());
    text(encode(UtteranceStartMessage {.utteranceId = "U4"}));
    text(encode(UtteranceEndMessage {.utteranceId = "U4"}));
    text(encode(
        UtteranceFeedbackMessage {.utteranceId = "U4", .finalTextAfterEdit = "Second won."}));
    text(encode(
        UtteranceFeedbackMessage {.utteranceId = "U2", .finalTextAfterEdit = "Second won."}));
    text(encode(SuggestionsRequestMessage {}));
    const auto after = sent<SuggestionsMessage>();
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[1].dictionary, (std::vector<DictionarySuggestion> {{"one", "won", 2}}));
    EXPECT_EQ(after[1].exemplars,
        (std::vector<ExemplarSuggestion> {{"default", "second one", "Second won.", 2}}));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(EngineSessionTest, WithoutAStoreFeedbackIsRefusedAndSuggestionsAreEmpty)
{
    m_services.store = nullptr;
    utterance("U1");
    text(encode(UtteranceFeedbackMessage {.utteranceId = "U1", .finalTextAfterEdit = "x"}));
    text(encode(SuggestionsRequestMessage {}));
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"learning_unavailable"});
    ASSERT_EQ(sent<SuggestionsMessage>().size(), 1u);
}

TEST_F(EngineSessionTest, ANewStartAbandonsTheOpenUtteranceQuietly)
{
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    text(encode(UtteranceStartMessage {.utteranceId = "U2"}));
    EXPECT_TRUE(errorCodes().empty()) << "U1's fate is no reason to fail U2";
    EXPECT_TRUE(logged("error utterance_abandoned"));
    EXPECT_EQ(m_workers.leased(), 1) << "U1's worker is free again";
    text(encode(UtteranceEndMessage {.utteranceId = "U2"}));
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_EQ(sent<FinalMessage>()[0].utteranceId, "U2");
}

TEST_F(EngineSessionTest, ErrorsAboutOtherThingsDoNotReachAClientInTheMiddleOfAnUtterance)
{
    utterance("DONE");
    text(encode(UtteranceStartMessage {.utteranceId = "A"}));
    audio(3200);
    text(encode(UtteranceStartMessage {.utteranceId = "B"}));
    audio(3200);
    text(encode(UtteranceFeedbackMessage {.utteranceId = "never", .finalTextAfterEdit = "x"}));
    text(encode(DomainPinMessage {.domain = "poetry"}));
    text("{not json");
    text(R"({"type":"teleport"})");
    text(encode(UtteranceEndMessage {.utteranceId = "B"}));
    EXPECT_TRUE(errorCodes().empty());
    for (const char *code : {"utterance_abandoned", "unknown_utterance", "unknown_domain",
             "invalid_json", "unknown_type"}) {
        EXPECT_TRUE(logged(std::string("error ") + code)) << code;
    }
    ASSERT_EQ(sent<FinalMessage>().size(), 2u);
    EXPECT_EQ(sent<FinalMessage>()[1].utteranceId, "B");
}

TEST_F(EngineSessionTest, AFeedbackWriteThatFailsWhileAnUtteranceRunsIsOnlyLogged)
{
    utterance("U1");
    // Someone else's hand on the database: the feedback table is gone.
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(m_dir.filePath("l.sqlite3").toUtf8().constData(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "DROP TABLE feedback", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);

    text(encode(UtteranceStartMessage {.utteranceId = "U2"}));
    text(encode(UtteranceFeedbackMessage {.utteranceId = "U1", .finalTextAfterEdit = "x"}));
    text(encode(UtteranceEndMessage {.utteranceId = "U2"}));
    EXPECT_TRUE(errorCodes().empty());
    EXPECT_TRUE(logged("error store_failed"));
    ASSERT_EQ(sent<FinalMessage>().size(), 2u);

    text(encode(UtteranceFeedbackMessage {.utteranceId = "U2", .finalTextAfterEdit = "y"}));
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"store_failed"})
        << "with no utterance open the client hears why";
}

TEST_F(EngineSessionTest, AHelloAtAnotherSampleRateIsRefused)
{
    HelloMessage hello;
    hello.sampleRate = 44100;
    text(encode(hello));
    EXPECT_EQ(errorCodes(), std::vector<std::string> {"unsupported_sample_rate"});
    EXPECT_TRUE(sent<HelloAckMessage>().empty());
}

// A store lane whose tasks run when the test says: what the store answers comes late.
class DeferredLane : public TaskLane
{
public:
    void post(std::function<void()> task) override { m_tasks.push_back(std::move(task)); }
    void runAll()
    {
        for (auto tasks = std::exchange(m_tasks, {}); auto &task : tasks) {
            task();
        }
    }

private:
    std::vector<std::function<void()>> m_tasks;
};

TEST_F(EngineSessionTest, AStoreErrorThatComesBackAfterANewStartIsOnlyLogged)
{
    DeferredLane store;
    m_services.storeLane = &store;
    utterance("U1");
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(m_dir.filePath("l.sqlite3").toUtf8().constData(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "DROP TABLE feedback", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    text(encode(UtteranceFeedbackMessage {.utteranceId = "U1", .finalTextAfterEdit = "x"}));
    utterance("U2");
    store.runAll();
    EXPECT_TRUE(errorCodes().empty()) << "U2 began after the feedback was sent";
    EXPECT_TRUE(logged("error store_failed"));
}

TEST_F(EngineSessionTest, PastTheWorkerCapacityAStartIsRefusedAsBusyAndItsAudioIgnored)
{
    test::InlineWorkers one(1);
    m_services.workers = &one;
    std::vector<std::string> otherSent;
    EngineSession other(m_services, [&](const std::string &json) { otherSent.push_back(json); });
    other.handleText(encode(UtteranceStartMessage {.utteranceId = "OTHER"}));

    text(encode(UtteranceStartMessage {.utteranceId = "MINE"}));
    audio(3200);
    text(encode(UtteranceEndMessage {.utteranceId = "MINE"}));
    ASSERT_EQ(errorCodes(), std::vector<std::string> {"busy"});
    EXPECT_NE(sent<ErrorMessage>()[0].message.find("all 1 speech recognisers are in use"),
        std::string::npos);
    EXPECT_TRUE(sent<FinalMessage>().empty());

    other.handleText(encode(UtteranceEndMessage {.utteranceId = "OTHER"}));
    utterance("AGAIN");
    EXPECT_EQ(errorCodes().size(), 1u);
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    EXPECT_EQ(sent<FinalMessage>()[0].utteranceId, "AGAIN");
}

TEST_F(EngineSessionTest, ALateHypothesisAfterTheEndIsNotSent)
{
    DeferredLane worker;
    struct OneLane : WorkerPool
    {
        DeferredLane &lane;
        explicit OneLane(DeferredLane &l) : lane(l) { }
        int capacity() const override { return 1; }
        std::unique_ptr<TaskLane> acquire() override
        {
            struct Forward : TaskLane
            {
                DeferredLane &to;
                explicit Forward(DeferredLane &t) : to(t) { }
                void post(std::function<void()> task) override { to.post(std::move(task)); }
            };
            return std::make_unique<Forward>(lane);
        }
    } pool(worker);
    m_services.workers = &pool;
    text(encode(UtteranceStartMessage {.utteranceId = "U1"}));
    audio(3200);
    text(encode(UtteranceEndMessage {.utteranceId = "U1"}));
    worker.runAll();
    EXPECT_TRUE(sent<PartialMessage>().empty());
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
}

// A recogniser whose final pass waits until the test lets it go.
class HeldFinalPass
{
public:
    void waitForRelease()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_waiting = true;
        }
        m_changed.notify_all();
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_released; });
    }
    bool waitUntilWaiting()
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_waiting; });
    }
    bool isReleased()
    {
        const std::lock_guard lock(m_mutex);
        return m_released;
    }
    void release()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_released = true;
        }
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_waiting = false;
    bool m_released = false;
};

class HeldRecognizerFactory : public RecognizerFactory
{
public:
    explicit HeldRecognizerFactory(HeldFinalPass &held) : m_held(held) { }
    Backends backends() const override { return Backends {"held", "held", "held"}; }
    std::unique_ptr<Recognizer> create() override
    {
        struct Held : Recognizer
        {
            HeldFinalPass &held;
            explicit Held(HeldFinalPass &h) : held(h) { }
            void feed(std::span<const std::int16_t>) override { }
            std::string partialText() override { return {}; }
            std::string finish() override
            {
                held.waitForRelease();
                return "at last";
            }
        };
        return std::make_unique<Held>(m_held);
    }

private:
    HeldFinalPass &m_held;
};

// Work handed back by the workers, run when the test's thread gets to it.
class SessionThreadQueue
{
public:
    void post(std::function<void()> task)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        m_arrived.notify_all();
    }
    // Runs what arrives until `done` holds; false after 20 s without it.
    bool runUntil(const std::function<bool()> &done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done()) {
            std::vector<std::function<void()>> tasks;
            {
                std::unique_lock lock(m_mutex);
                if (!m_arrived.wait_until(lock, deadline, [this] { return !m_tasks.empty(); })) {
                    return false;
                }
                tasks.swap(m_tasks);
            }
            for (auto &task : tasks) {
                task();
            }
        }
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::function<void()>> m_tasks;
};

TEST(EngineSessionThreads, AnotherClientIsAnsweredWhileAFinalPassRuns)
{
    HeldFinalPass held;
    HeldRecognizerFactory recognizers(held);
    Formatter formatter;
    RecentUtterances recent;
    ThreadWorkerPool workers(2);
    SessionThreadQueue back;
    EngineServices services {recognizers, formatter, nullptr, recent, "1"};
    services.workers = &workers;
    services.toSessionThread = [&back](std::function<void()> task) { back.post(std::move(task)); };

    std::vector<InboundMessage> first;
    std::vector<InboundMessage> second;
    const auto into = [](std::vector<InboundMessage> &list) {
        return [&list](const std::string &json) { list.push_back(decodeInbound(json).value()); };
    };
    EngineSession talking(services, into(first));
    EngineSession arriving(services, into(second));
    talking.handleText(encode(UtteranceStartMessage {.utteranceId = "LONG"}));
    talking.handleBinary(std::string(32000, '\0'));
    talking.handleText(encode(UtteranceEndMessage {.utteranceId = "LONG"}));
    ASSERT_TRUE(held.waitUntilWaiting()) << "the final pass started";

    arriving.handleText(encode(HelloMessage {.version = "0.1.0"}));
    ASSERT_EQ(second.size(), 1u);
    EXPECT_TRUE(std::holds_alternative<HelloAckMessage>(second[0]));
    EXPECT_FALSE(held.isReleased()) << "answered while the other final pass still runs";

    held.release();
    ASSERT_TRUE(back.runUntil([&] { return !first.empty(); }));
    ASSERT_EQ(first.size(), 1u);
    ASSERT_TRUE(std::holds_alternative<FinalMessage>(first[0]));
    EXPECT_EQ(std::get<FinalMessage>(first[0]).rawText, "at last");
}

class EngineSessionSilence : public EngineSessionTest
{
protected:
    EngineSessionSilence() : EngineSessionTest({""}) { }
};

TEST_F(EngineSessionSilence, NothingHeardGivesAnEmptyFinal)
{
    utterance("U1", 0);
    ASSERT_EQ(sent<FinalMessage>().size(), 1u);
    const FinalMessage f = sent<FinalMessage>()[0];
    EXPECT_EQ(f.rawText, "");
    EXPECT_EQ(f.formattedText, "");
    EXPECT_EQ(f.stats->wordCount, 0);
    EXPECT_DOUBLE_EQ(f.stats->audioDurationS, 0.0);
    EXPECT_DOUBLE_EQ(f.stats->spokenWpm, 0.0);
    EXPECT_DOUBLE_EQ(f.stats->fillerRate, 0.0);
    EXPECT_TRUE(sent<PartialMessage>().empty());
}

TEST(ReplayRecognizer, HandsOutLinesInTurnAndCycles)
{
    ReplayRecognizerFactory factory({"one two", "three"});
    std::vector<std::string> finals;
    finals.reserve(3);
    for (int i = 0; i < 3; ++i) {
        finals.push_back(factory.create()->finish());
    }
    EXPECT_EQ(finals, (std::vector<std::string> {"one two", "three", "one two"}));
}

TEST(ReplayRecognizer, RevealsAWordPer100MsOfAudio)
{
    ReplayRecognizerFactory factory({"a b c"});
    auto r = factory.create();
    EXPECT_EQ(r->partialText(), "");
    const std::vector<std::int16_t> tenth(1600);
    r->feed(tenth);
    EXPECT_EQ(r->partialText(), "a");
    r->feed(tenth);
    r->feed(tenth);
    r->feed(tenth);
    EXPECT_EQ(r->partialText(), "a b c");
}

TEST(ReplayRecognizer, AMissingFileIsAnError)
{
    auto loaded = ReplayRecognizerFactory::load("/nonexistent/replay.txt");
    ASSERT_FALSE(loaded);
    EXPECT_NE(loaded.error().find("/nonexistent/replay.txt"), std::string::npos);
}

TEST(EngineSessionMock, TheMockBackendIsNamedMock)
{
    MockRecognizerFactory mock;
    EXPECT_TRUE(mock.backends().isMock());
}

} // namespace
} // namespace sayvo
