#pragma once

#include "engine/asr/Recognizer.h"
#include "engine/format/Formatter.h"
#include "engine/server/RecognitionJob.h"
#include "engine/server/WorkerPool.h"
#include "protocol/ContextPack.h"
#include "protocol/OutboundMessages.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace sayvo {

class LearningStore;

// What the engine said for one utterance, kept a while so that feedback can refer to it.
struct UtteranceRecord
{
    std::string utteranceId;
    std::string rawText;
    std::string formattedText;
    std::string domain;
};

// The most recent utterances of every session, oldest dropped first.
class RecentUtterances
{
public:
    static constexpr std::size_t kCapacity = 512;

    void add(UtteranceRecord record);
    const UtteranceRecord *find(std::string_view utteranceId) const;

private:
    std::deque<UtteranceRecord> m_records;
};

// What all sessions share; owned by the server, outlives every session.
struct EngineServices
{
    // Thread-safe: recognisers are made on the workers.
    RecognizerFactory &recognizers;
    const Formatter &formatter;
    // Null when the database could not be opened; used on `storeLane` only.
    LearningStore *store = nullptr;
    RecentUtterances &recent;
    std::string serverVersion;
    std::function<void(const std::string &)> log = [](const std::string &) {};
    std::function<std::chrono::steady_clock::time_point()> now
        = [] { return std::chrono::steady_clock::now(); };
    // Where recognition runs, one worker per live utterance; past its capacity new
    // utterances are refused as busy.
    WorkerPool *workers = nullptr;
    // Where the learning store is read and written, in order.
    TaskLane *storeLane = nullptr;
    // Hands work done elsewhere back to the thread the sessions live on.
    std::function<void(std::function<void()>)> toSessionThread
        = [](const std::function<void()> &task) { task(); };
    double maxUtteranceSeconds = 300.0;
};

// One client connection's conversation: reads its text and binary frames, and answers through
// `send` (JSON text). Never throws; bad input is answered with an "error" message when it
// concerns the client's utterance in progress, or the message just received while none is
// open, and only logged otherwise, since the client fails whatever utterance is in progress
// on any error. Transport-free; lives on one thread, while recognition runs on the services'
// workers and the store on its lane, their results coming back through `toSessionThread`.
class EngineSession
{
public:
    using Send = std::function<void(const std::string &json)>;

    // Audio frames larger than this are refused; text frames are bounded by the transport.
    static constexpr std::size_t kMaxAudioFrameBytes = std::size_t {1024} * 1024;
    // Of the context's free texts the engine keeps what the domain detection reads: the end
    // of the text around the cursor. The clipboard it never uses.
    static constexpr std::size_t kKeptScreenTextBytes = 4096;
    static constexpr int kSampleRate = RecognitionJob::kSampleRate;

    EngineSession(EngineServices &services, Send send);
    ~EngineSession();
    EngineSession(const EngineSession &) = delete;
    EngineSession &operator=(const EngineSession &) = delete;

    void handleText(std::string_view frame);
    void handleBinary(std::string_view frame);

    std::string domain() const;
    std::string domainSource() const;

private:
    struct Utterance;
    // What an error is about, which decides whether the client hears of it.
    enum class Concern {
        // The utterance the client is in, as far as the engine knows: the latest started.
        currentUtterance,
        // The message just received; sent only while no utterance is open.
        receivedMessage,
        // Something else (a superseded utterance, ...): logged only.
        elsewhere,
    };

    void handle(const HelloMessage &message);
    void handle(const ContextUpdateMessage &message);
    void handle(const UtteranceStartMessage &message);
    void handle(const UtteranceEndMessage &message);
    void handle(const DomainPinMessage &message);
    void handle(const DomainUnpinMessage &message);
    void handle(const SuggestionsRequestMessage &message);
    void handle(const UtteranceFeedbackMessage &message);
    void handle(const UnknownMessage &message);

    void abandonOpenUtterance();
    // Ends the open utterance: its final is sent when the worker has built it, followed by
    // `followUp` (an error about the same utterance) when there is one.
    void finishOpenUtterance(std::optional<ErrorMessage> followUp = std::nullopt);
    void deliverFinal(const std::string &utteranceId, const std::optional<FinalMessage> &final,
        const std::optional<ErrorMessage> &followUp);
    void deliverPartial(const std::string &utteranceId, const std::string &text);
    void recognizerUnavailable(const std::string &utteranceId);

    // Runs `work` on `lane` and `then` with its result back on the session's thread, unless
    // the session is gone by then.
    template <typename Work, typename Then> void runOn(TaskLane &lane, Work work, Then then);

    void error(Concern concern, const std::string &code, const std::string &message);
    bool isCurrent(const std::string &utteranceId) const;

    EngineServices &m_services;
    Send m_send;
    ContextPack m_context;
    bool m_hasContext = false;
    std::string m_contextDomain = "default";
    std::optional<std::string> m_pinnedDomain;
    std::unique_ptr<Utterance> m_utterance;
    // The latest utterance the client started.
    std::optional<std::string> m_latestId;
    std::uint64_t m_startCount = 0;
    // An utterance the engine already answered for (cut off at the length limit, refused or
    // unable to start): its late frames and its end are expected and ignored.
    std::optional<std::string> m_closedId;
    // Outlives the session only in the hands of work still under way elsewhere.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace sayvo
