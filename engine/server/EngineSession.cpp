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

using Clock = std::chrono::steady_clock;

double millisecondsBetween(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

} // namespace

struct EngineSession::Utterance
{
    std::string id;
    std::unique_ptr<Recognizer> recognizer;
    std::int64_t samples = 0;
    double recognitionMs = 0.0; // time spent inside the recogniser
    std::string lastPartial;
    std::optional<Clock::time_point> lastPartialAt;
};

EngineSession::EngineSession(EngineServices &services, Send send)
    : m_services(services), m_send(std::move(send))
{ }

EngineSession::~EngineSession() = default;

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

void EngineSession::error(const std::string &code, const std::string &message)
{
    m_services.log("error " + code + ": " + message);
    m_send(encode(ErrorMessage {code, message}));
}

void EngineSession::handleText(std::string_view frame)
{
    if (frame.size() > kMaxFrameBytes) {
        error("frame_too_large",
            "a message of " + std::to_string(frame.size()) + " bytes is over the 1 MiB limit");
        return;
    }
    auto decoded = decodeOutbound(frame);
    if (!decoded) {
        const DecodeError e = decoded.error();
        if (e == DecodeError::notJson) {
            error("invalid_json", "the message is not valid JSON");
        } else {
            error("invalid_message", std::string(describe(e)));
        }
        return;
    }
    std::visit([this](const auto &message) { handle(message); }, decoded.value());
}

void EngineSession::handleBinary(std::string_view frame)
{
    if (frame.size() > kMaxFrameBytes) {
        error("frame_too_large",
            "an audio frame of " + std::to_string(frame.size()) + " bytes is over the 1 MiB limit");
        return;
    }
    if (!m_utterance) {
        if (!m_overlongId) {
            error("no_utterance", "audio arrived without an open utterance");
        }
        return;
    }
    if (frame.size() % 2 != 0) {
        error("odd_frame_length",
            "audio frames hold 16-bit samples; " + std::to_string(frame.size()) + " bytes is odd");
        return;
    }
    const auto limit = static_cast<std::int64_t>(kMaxUtteranceSeconds * kSampleRate);
    const auto available = static_cast<std::int64_t>(frame.size() / 2);
    const std::int64_t take = std::min(available, limit - m_utterance->samples);
    std::vector<std::int16_t> samples(static_cast<std::size_t>(take));
    // Little-endian on the wire; copy byte by byte so alignment and host order never matter.
    for (std::int64_t k = 0; k < take; ++k) {
        const auto lo = static_cast<unsigned char>(frame[static_cast<std::size_t>(2 * k)]);
        const auto hi = static_cast<unsigned char>(frame[static_cast<std::size_t>(2 * k + 1)]);
        samples[static_cast<std::size_t>(k)] = static_cast<std::int16_t>(lo | (hi << 8));
    }
    const auto before = m_services.now();
    m_utterance->recognizer->feed(samples);
    m_utterance->samples += take;
    auto after = m_services.now();
    m_utterance->recognitionMs += millisecondsBetween(before, after);

    if (take < available) {
        const std::string id = m_utterance->id;
        finalize();
        m_overlongId = id;
        error("utterance_too_long",
            "utterance " + id
                + " reached the 5 minute limit and was finalised; later audio is ignored");
        return;
    }

    // Partials are worth their cost only a few times a second, and only when they change.
    if (m_utterance->lastPartialAt && after - *m_utterance->lastPartialAt < kPartialInterval) {
        return;
    }
    std::string text = m_utterance->recognizer->partialText();
    const auto end = m_services.now();
    m_utterance->recognitionMs += millisecondsBetween(after, end);
    if (text.empty() || text == m_utterance->lastPartial) {
        return;
    }
    m_utterance->lastPartial = text;
    m_utterance->lastPartialAt = end;
    m_send(encode(PartialMessage {m_utterance->id, text}));
}

void EngineSession::handle(const HelloMessage &message)
{
    if (message.sampleRate != kSampleRate) {
        error("unsupported_sample_rate",
            "audio must be 16000 Hz; the client offered " + std::to_string(message.sampleRate));
        return;
    }
    m_services.log("hello: client=" + message.client + " version=" + message.version);
    m_send(encode(HelloAckMessage {m_services.serverVersion, m_services.recognizers.backends()}));
}

void EngineSession::handle(const ContextUpdateMessage &message)
{
    m_context = message.context;
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
    m_overlongId.reset();
    if (m_utterance) {
        error("utterance_abandoned",
            "utterance " + m_utterance->id + " was still open when " + message.utteranceId
                + " started; its audio is discarded");
        m_utterance.reset();
    }
    auto recognizer = m_services.recognizers.create();
    if (!recognizer) {
        error("recognizer_unavailable", "no speech recogniser could be started for this utterance");
        return;
    }
    m_utterance = std::make_unique<Utterance>();
    m_utterance->id = message.utteranceId;
    m_utterance->recognizer = std::move(recognizer);
}

void EngineSession::handle(const UtteranceEndMessage &message)
{
    if (m_overlongId && *m_overlongId == message.utteranceId) {
        m_overlongId.reset();
        return; // already finalised at the length limit
    }
    if (!m_utterance) {
        error("no_utterance",
            "utterance.end for " + message.utteranceId + " but no utterance is open");
        return;
    }
    if (m_utterance->id != message.utteranceId) {
        error("utterance_mismatch",
            "utterance.end for " + message.utteranceId + " but the open utterance is "
                + m_utterance->id);
        return;
    }
    finalize();
}

void EngineSession::finalize()
{
    std::unique_ptr<Utterance> u = std::move(m_utterance);
    const auto endAt = m_services.now();
    // The streaming hypothesis as it stood at the end, then the recogniser's final pass.
    u->recognizer->partialText();
    const auto streamAt = m_services.now();
    const std::string raw = u->recognizer->finish();
    const auto finalAt = m_services.now();
    u->recognizer.reset();

    const std::string domainUsed = domain();
    const FormatResult formatted = m_services.formatter.format(
        raw, domainUsed, m_context.personalDictionary.value_or(std::vector<std::string> {}));
    const auto formattedAt = m_services.now();

    FinalMessage final;
    final.utteranceId = u->id;
    final.rawText = raw;
    final.formattedText = formatted.text;
    final.domain = domainUsed;
    final.domainSource = domainSource();
    final.guardrail = formatted.guardrail;

    TimingsMs timings;
    timings.streamFinal = millisecondsBetween(endAt, streamAt);
    timings.finalPass = millisecondsBetween(streamAt, finalAt);
    timings.gec = millisecondsBetween(finalAt, formattedAt);
    timings.total = millisecondsBetween(endAt, formattedAt);
    final.timingsMs = timings;

    Stats stats;
    stats.audioDurationS = static_cast<double>(u->samples) / kSampleRate;
    stats.fillerCount = formatted.fillerCount;
    stats.wordCount = formatted.spokenWordCount - formatted.fillerCount;
    stats.spokenWpm = stats.audioDurationS > 0.0
        ? static_cast<double>(stats.wordCount) / (stats.audioDurationS / 60.0)
        : 0.0;
    const double recognitionMs = u->recognitionMs + millisecondsBetween(endAt, finalAt);
    const double processingMs = recognitionMs + timings.gec.value_or(0.0);
    stats.asrRtf = stats.audioDurationS > 0.0 ? recognitionMs / 1000.0 / stats.audioDurationS : 0.0;
    stats.transcriptionRtf
        = stats.audioDurationS > 0.0 ? processingMs / 1000.0 / stats.audioDurationS : 0.0;
    stats.fillerRate = formatted.spokenWordCount > 0 ? static_cast<double>(formatted.fillerCount)
            / static_cast<double>(formatted.spokenWordCount)
                                                     : 0.0;
    final.stats = stats;

    m_services.recent.add(UtteranceRecord {u->id, raw, formatted.text, domainUsed});
    char summary[160];
    std::snprintf(summary, sizeof summary,
        "utterance %s: %.2fs audio, %lld words, domain=%s, final in %.1fms", u->id.c_str(),
        stats.audioDurationS, static_cast<long long>(stats.wordCount), domainUsed.c_str(),
        timings.total.value_or(0.0));
    m_services.log(summary);
    m_send(encode(final));
}

void EngineSession::handle(const DomainPinMessage &message)
{
    if (!DomainDetector::isKnownDomain(message.domain)) {
        error("unknown_domain",
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
    m_send(encode(m_services.store ? m_services.store->suggestions() : SuggestionsMessage {}));
}

void EngineSession::handle(const UtteranceFeedbackMessage &message)
{
    const UtteranceRecord *record = m_services.recent.find(message.utteranceId);
    if (!record) {
        error("unknown_utterance",
            "no recent utterance has the id " + message.utteranceId + "; feedback not stored");
        return;
    }
    if (!m_services.store) {
        error(
            "learning_unavailable", "the learning store could not be opened; feedback not stored");
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
    if (!m_services.store->record(feedback)) {
        error("store_failed", "feedback could not be stored: " + m_services.store->lastError());
    }
}

void EngineSession::handle(const UnknownMessage &message)
{
    error("unknown_type", "unknown message type \"" + message.type + "\"");
}

} // namespace sayvo
