#include "engine/server/EngineSession.h"

#include "engine/format/DomainDetector.h"
#include "engine/store/LearningStore.h"
#include "protocol/WireCodec.h"

#include <cstdio>
#include <vector>

namespace sayvo {

void RecentUtterances::add(UtteranceRecord record)
{
    m_records.push_back(std::move(record));
    while (m_records.size() > kCapacity) {
        m_records.pop_front();
    }
}

const UtteranceRecord *RecentUtterances::find(std::string_view utteranceId) const
{
    for (auto it = m_records.rbegin(); it != m_records.rend(); ++it) {
        if (it->utteranceId == utteranceId) {
            return &*it;
        }
    }
    return nullptr;
}

namespace {

// The last `bytes` bytes of `text` or fewer, starting on a character boundary.
std::string utf8Tail(const std::string &text, std::size_t bytes)
{
    if (text.size() <= bytes) {
        return text;
    }
    std::size_t from = text.size() - bytes;
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) {
        ++from;
    }
    return text.substr(from);
}

} // namespace

// The session's side of one open utterance; its recognition runs on `lane`.
struct EngineSession::Utterance
{
    std::string id;
    std::int64_t samples = 0;
    std::unique_ptr<TaskLane> lane;
    std::shared_ptr<RecognitionJob> job;
};

EngineSession::EngineSession(EngineServices &services, Send send)
    : m_services(services), m_send(std::move(send))
{ }

EngineSession::~EngineSession()
{
    if (m_utterance) {
        abandonOpenUtterance();
    }
}

template <typename Work, typename Then>
void EngineSession::runOn(TaskLane &lane, Work work, Then then)
{
    lane.post([work = std::move(work), then = std::move(then), back = m_services.toSessionThread,
                  alive = std::weak_ptr<bool>(m_alive)]() mutable {
        auto result = work();
        back([then, result = std::move(result), alive]() mutable {
            if (!alive.expired()) {
                then(std::move(result));
            }
        });
    });
}

std::string EngineSession::domain() const
{
    return m_pinnedDomain.value_or(m_contextDomain);
}

std::string EngineSession::domainSource() const
{
    if (m_pinnedDomain) {
        return "pinned";
    }
    return m_hasContext ? "context" : "default";
}

bool EngineSession::isCurrent(const std::string &utteranceId) const
{
    return m_latestId == utteranceId;
}

void EngineSession::error(Concern concern, const std::string &code, const std::string &message)
{
    const bool tell = concern == Concern::currentUtterance
        || (concern == Concern::receivedMessage && !m_utterance);
    m_services.log("error " + code + ": " + message + (tell ? "" : " (not sent)"));
    if (tell) {
        m_send(encode(ErrorMessage {code, message}));
    }
}

void EngineSession::handleText(std::string_view frame)
{
    auto decoded = decodeOutbound(frame);
    if (!decoded) {
        const DecodeError e = decoded.error();
        if (e == DecodeError::notJson) {
            error(Concern::receivedMessage, "invalid_json", "the message is not valid JSON");
        } else {
            error(Concern::receivedMessage, "invalid_message", std::string(describe(e)));
        }
        return;
    }
    std::visit([this](const auto &message) { handle(message); }, decoded.value());
}

void EngineSession::handleBinary(std::string_view frame)
{
    if (frame.size() > kMaxAudioFrameBytes) {
        error(m_utterance ? Concern::currentUtterance : Concern::receivedMessage, "frame_too_large",
            "an audio frame of " + std::to_string(frame.size()) + " bytes is over the 1 MiB limit");
        return;
    }
    if (!m_utterance) {
        if (!m_closedId) {
            error(Concern::receivedMessage, "no_utterance",
                "audio arrived without an open utterance");
        }
        return;
    }
    if (frame.size() % 2 != 0) {
        error(Concern::currentUtterance, "odd_frame_length",
            "audio frames hold 16-bit samples; " + std::to_string(frame.size()) + " bytes is odd");
        return;
    }
    const auto limit = static_cast<std::int64_t>(m_services.maxUtteranceSeconds * kSampleRate);
    const auto available = static_cast<std::int64_t>(frame.size() / 2);
    const std::int64_t take = std::min(available, limit - m_utterance->samples);
    std::vector<std::int16_t> samples(static_cast<std::size_t>(take));
    // Little-endian on the wire; copy byte by byte so alignment and host order never matter.
    for (std::int64_t k = 0; k < take; ++k) {
        const auto lo = static_cast<unsigned char>(frame[static_cast<std::size_t>(2 * k)]);
        const auto hi = static_cast<unsigned char>(frame[static_cast<std::size_t>(2 * k + 1)]);
        samples[static_cast<std::size_t>(k)] = static_cast<std::int16_t>(lo | (hi << 8));
    }
    m_utterance->samples += take;
    const std::string id = m_utterance->id;
    runOn(
        *m_utterance->lane,
        [job = m_utterance->job, samples = std::move(samples)] { return job->feed(samples); },
        [this, id](const std::optional<std::string> &partial) {
            if (partial) {
                deliverPartial(id, *partial);
            }
        });

    if (take < available) {
        // The client is still talking: it gets the final for what fits, then the reason; the
        // rest of its audio and its end are ignored.
        m_closedId = id;
        char limitText[32];
        std::snprintf(limitText, sizeof limitText, "%g", m_services.maxUtteranceSeconds);
        finishOpenUtterance(ErrorMessage {"utterance_too_long",
            "utterance " + id + " reached the " + limitText
                + " s limit and was finalised; later audio is ignored"});
    }
}

void EngineSession::deliverPartial(const std::string &utteranceId, const std::string &text)
{
    // Once the end has arrived the client waits for the final; a late partial would only
    // confuse it.
    if (m_utterance && m_utterance->id == utteranceId) {
        m_send(encode(PartialMessage {utteranceId, text}));
    }
}

void EngineSession::handle(const HelloMessage &message)
{
    if (message.sampleRate != kSampleRate) {
        error(Concern::receivedMessage, "unsupported_sample_rate",
            "audio must be 16000 Hz; the client offered " + std::to_string(message.sampleRate));
        return;
    }
    m_services.log("hello: client=" + message.client + " version=" + message.version);
    m_send(encode(HelloAckMessage {m_services.serverVersion, m_services.recognizers.backends()}));
}

void EngineSession::handle(const ContextUpdateMessage &message)
{
    m_context = message.context;
    m_context.clipboard.reset();
    if (m_context.screenText) {
        m_context.screenText = utf8Tail(*m_context.screenText, kKeptScreenTextBytes);
    }
    m_hasContext = true;
    const std::string detected = DomainDetector::detect(m_context);
    if (detected != m_contextDomain) {
        m_contextDomain = detected;
        if (!m_pinnedDomain) {
            m_send(encode(DomainChangedMessage {detected, "context"}));
        }
    }
}

void EngineSession::handle(const UtteranceStartMessage &message)
{
    ++m_startCount;
    m_latestId = message.utteranceId;
    m_closedId.reset();
    if (m_utterance) {
        const std::string abandoned = m_utterance->id;
        abandonOpenUtterance();
        error(Concern::elsewhere, "utterance_abandoned",
            "utterance " + abandoned + " was still open when " + message.utteranceId
                + " started; its audio is discarded");
    }
    std::unique_ptr<TaskLane> lane = m_services.workers->acquire();
    if (!lane) {
        m_closedId = message.utteranceId;
        error(Concern::currentUtterance, "busy",
            "all " + std::to_string(m_services.workers->capacity())
                + " speech recognisers are in use by other dictations; try again in a moment");
        return;
    }
    m_utterance = std::make_unique<Utterance>();
    m_utterance->id = message.utteranceId;
    m_utterance->lane = std::move(lane);
    m_utterance->job = std::make_shared<RecognitionJob>(message.utteranceId,
        RecognitionJob::Context {m_services.recognizers, m_services.formatter, m_services.now});
    runOn(
        *m_utterance->lane, [job = m_utterance->job] { return job->begin(); },
        [this, id = message.utteranceId](bool made) {
            if (!made) {
                recognizerUnavailable(id);
            }
        });
}

void EngineSession::recognizerUnavailable(const std::string &utteranceId)
{
    // An utterance that has ended meanwhile hears of it through its final's absence.
    if (!m_utterance || m_utterance->id != utteranceId) {
        return;
    }
    abandonOpenUtterance();
    m_closedId = utteranceId;
    error(Concern::currentUtterance, "recognizer_unavailable",
        "no speech recogniser could be started for this utterance");
}

void EngineSession::abandonOpenUtterance()
{
    const std::unique_ptr<Utterance> u = std::move(m_utterance);
    u->job->cancel();
    u->lane->post([job = u->job] { job->release(); });
}

void EngineSession::handle(const UtteranceEndMessage &message)
{
    if (m_closedId && *m_closedId == message.utteranceId) {
        return; // already answered for
    }
    if (!m_utterance) {
        error(Concern::receivedMessage, "no_utterance",
            "utterance.end for " + message.utteranceId + " but no utterance is open");
        return;
    }
    if (m_utterance->id != message.utteranceId) {
        error(Concern::receivedMessage, "utterance_mismatch",
            "utterance.end for " + message.utteranceId + " but the open utterance is "
                + m_utterance->id);
        return;
    }
    finishOpenUtterance();
}

void EngineSession::finishOpenUtterance(std::optional<ErrorMessage> followUp)
{
    const std::unique_ptr<Utterance> u = std::move(m_utterance);
    RecognitionJob::Ending ending {domain(), domainSource(),
        m_context.personalDictionary.value_or(std::vector<std::string> {}), m_services.now()};
    runOn(
        *u->lane, [job = u->job, ending = std::move(ending)] { return job->finish(ending); },
        [this, id = u->id, followUp = std::move(followUp)](
            const std::optional<FinalMessage> &final) { deliverFinal(id, final, followUp); });
}

void EngineSession::deliverFinal(const std::string &utteranceId,
    const std::optional<FinalMessage> &final, const std::optional<ErrorMessage> &followUp)
{
    const Concern concern = isCurrent(utteranceId) ? Concern::currentUtterance : Concern::elsewhere;
    if (!final) {
        error(concern, "recognizer_unavailable",
            "no speech recogniser could be started for utterance " + utteranceId);
        return;
    }
    m_services.recent.add(
        UtteranceRecord {final->utteranceId, final->rawText, final->formattedText, final->domain});
    char summary[160];
    std::snprintf(summary, sizeof summary,
        "utterance %s: %.2fs audio, %lld words, domain=%s, final in %.1fms", utteranceId.c_str(),
        final->stats->audioDurationS, static_cast<long long>(final->stats->wordCount),
        final->domain.c_str(), final->timingsMs->total.value_or(0.0));
    m_services.log(summary);
    m_send(encode(*final));
    if (followUp) {
        error(concern, followUp->code, followUp->message);
    }
}

void EngineSession::handle(const DomainPinMessage &message)
{
    if (!DomainDetector::isKnownDomain(message.domain)) {
        error(Concern::receivedMessage, "unknown_domain",
            "\"" + message.domain + "\" is not a domain; use default, email, legal or casual");
        return;
    }
    m_pinnedDomain = message.domain;
    m_send(encode(DomainChangedMessage {message.domain, "pinned"}));
}

void EngineSession::handle(const DomainUnpinMessage &)
{
    m_pinnedDomain.reset();
    m_send(encode(DomainChangedMessage {m_contextDomain, "context"}));
}

void EngineSession::handle(const SuggestionsRequestMessage &)
{
    if (!m_services.store) {
        m_send(encode(SuggestionsMessage {}));
        return;
    }
    runOn(
        *m_services.storeLane, [store = m_services.store] { return store->suggestions(); },
        [this](const SuggestionsMessage &suggestions) { m_send(encode(suggestions)); });
}

void EngineSession::handle(const UtteranceFeedbackMessage &message)
{
    const UtteranceRecord *record = m_services.recent.find(message.utteranceId);
    if (!record) {
        error(Concern::receivedMessage, "unknown_utterance",
            "no recent utterance has the id " + message.utteranceId + "; feedback not stored");
        return;
    }
    if (!m_services.store) {
        error(Concern::receivedMessage, "learning_unavailable",
            "the learning store could not be opened; feedback not stored");
        return;
    }
    FeedbackRecord feedback;
    feedback.utteranceId = record->utteranceId;
    feedback.rawText = record->rawText;
    feedback.formattedText = record->formattedText;
    feedback.finalText = message.finalTextAfterEdit;
    feedback.domain = record->domain;
    feedback.source = message.source.value_or("user");
    feedback.editDelayMs = message.editDelayMs;
    feedback.createdAtUnixMs = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch())
                                   .count();
    runOn(
        *m_services.storeLane,
        [store = m_services.store, feedback = std::move(feedback)]() -> std::optional<std::string> {
            if (store->record(feedback)) {
                return std::nullopt;
            }
            return store->lastError();
        },
        [this, startsBefore = m_startCount](const std::optional<std::string> &failure) {
            if (failure) {
                // About the message received then; an utterance begun since is not its business.
                error(m_startCount == startsBefore ? Concern::receivedMessage : Concern::elsewhere,
                    "store_failed", "feedback could not be stored: " + *failure);
            }
        });
}

void EngineSession::handle(const UnknownMessage &message)
{
    error(
        Concern::receivedMessage, "unknown_type", "unknown message type \"" + message.type + "\"");
}

} // namespace sayvo
