#pragma once

#include "engine/asr/Recognizer.h"
#include "engine/format/Formatter.h"
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
    RecognizerFactory &recognizers;
    const Formatter &formatter;
    LearningStore *store = nullptr; // null when the database could not be opened
    RecentUtterances &recent;
    std::string serverVersion;
    std::function<void(const std::string &)> log = [](const std::string &) {};
    std::function<std::chrono::steady_clock::time_point()> now
        = [] { return std::chrono::steady_clock::now(); };
};

// One client connection's conversation: reads its text and binary frames, drives one
// recogniser per utterance and answers through `send` (JSON text). Never throws; every bad
// input is answered with an "error" message and the conversation goes on. Transport-free
// and single-threaded.
class EngineSession
{
public:
    using Send = std::function<void(const std::string &json)>;

    static constexpr std::size_t kMaxFrameBytes = std::size_t {1024} * 1024;
    static constexpr double kMaxUtteranceSeconds = 300.0;
    static constexpr int kSampleRate = 16000;
    static constexpr std::chrono::milliseconds kPartialInterval {300};

    EngineSession(EngineServices &services, Send send);
    ~EngineSession();

    void handleText(std::string_view frame);
    void handleBinary(std::string_view frame);

    std::string domain() const;
    std::string domainSource() const;

private:
    struct Utterance;

    void handle(const HelloMessage &message);
    void handle(const ContextUpdateMessage &message);
    void handle(const UtteranceStartMessage &message);
    void handle(const UtteranceEndMessage &message);
    void handle(const DomainPinMessage &message);
    void handle(const DomainUnpinMessage &message);
    void handle(const SuggestionsRequestMessage &message);
    void handle(const UtteranceFeedbackMessage &message);
    void handle(const UnknownMessage &message);

    void finalize();
    void error(const std::string &code, const std::string &message);

    EngineServices &m_services;
    Send m_send;
    ContextPack m_context;
    bool m_hasContext = false;
    std::string m_contextDomain = "default";
    std::optional<std::string> m_pinnedDomain;
    std::unique_ptr<Utterance> m_utterance;
    // An utterance cut off at the length limit: its late frames and its end are expected.
    std::optional<std::string> m_overlongId;
};

} // namespace sayvo
