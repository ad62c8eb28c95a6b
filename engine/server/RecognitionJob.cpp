#include "engine/server/RecognitionJob.h"

#include "engine/format/Formatter.h"

namespace sayvo {

RecognitionJob::RecognitionJob(std::string utteranceId, Context context)
    : m_utteranceId(std::move(utteranceId)), m_context(std::move(context))
{ }

RecognitionJob::~RecognitionJob() = default;

double RecognitionJob::millisecondsSince(Clock::time_point from, Clock::time_point to) const
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

bool RecognitionJob::begin()
{
    if (m_cancelled) {
        return true;
    }
    m_recognizer = m_context.recognizers.create();
    return m_recognizer != nullptr;
}

std::optional<std::string> RecognitionJob::feed(const std::vector<std::int16_t> &samples)
{
    if (m_cancelled || !m_recognizer) {
        return std::nullopt;
    }
    const auto before = m_context.now();
    m_recognizer->feed(samples);
    m_samples += static_cast<std::int64_t>(samples.size());
    const auto after = m_context.now();
    m_recognitionMs += millisecondsSince(before, after);

    // Partials are worth their cost only a few times a second, and only when they change.
    if (m_lastPartialAt && after - *m_lastPartialAt < kPartialInterval) {
        return std::nullopt;
    }
    std::string text = m_recognizer->partialText();
    const auto end = m_context.now();
    m_recognitionMs += millisecondsSince(after, end);
    if (text.empty() || text == m_lastPartial) {
        return std::nullopt;
    }
    m_lastPartial = text;
    m_lastPartialAt = end;
    return text;
}

std::optional<FinalMessage> RecognitionJob::finish(const Ending &ending)
{
    if (m_cancelled || !m_recognizer) {
        release();
        return std::nullopt;
    }
    const auto startedAt = m_context.now();
    // The streaming hypothesis as it stood at the end, then the recogniser's final pass.
    m_recognizer->partialText();
    const auto streamAt = m_context.now();
    const std::string raw = m_recognizer->finish();
    const auto finalAt = m_context.now();
    release();

    const FormatResult formatted
        = m_context.formatter.format(raw, ending.domain, ending.personalDictionary);
    const auto formattedAt = m_context.now();

    FinalMessage final;
    final.utteranceId = m_utteranceId;
    final.rawText = raw;
    final.formattedText = formatted.text;
    final.domain = ending.domain;
    final.domainSource = ending.domainSource;
    final.guardrail = formatted.guardrail;

    TimingsMs timings;
    timings.streamFinal = millisecondsSince(startedAt, streamAt);
    timings.finalPass = millisecondsSince(streamAt, finalAt);
    timings.gec = millisecondsSince(finalAt, formattedAt);
    // From the end's arrival: includes any audio still queued for the recogniser then.
    timings.total = millisecondsSince(ending.endedAt, formattedAt);
    final.timingsMs = timings;

    Stats stats;
    stats.audioDurationS = static_cast<double>(m_samples) / kSampleRate;
    stats.fillerCount = formatted.fillerCount;
    stats.wordCount = formatted.spokenWordCount - formatted.fillerCount;
    stats.spokenWpm = stats.audioDurationS > 0.0
        ? static_cast<double>(stats.wordCount) / (stats.audioDurationS / 60.0)
        : 0.0;
    const double recognitionMs = m_recognitionMs + millisecondsSince(startedAt, finalAt);
    const double processingMs = recognitionMs + timings.gec.value_or(0.0);
    stats.asrRtf = stats.audioDurationS > 0.0 ? recognitionMs / 1000.0 / stats.audioDurationS : 0.0;
    stats.transcriptionRtf
        = stats.audioDurationS > 0.0 ? processingMs / 1000.0 / stats.audioDurationS : 0.0;
    stats.fillerRate = formatted.spokenWordCount > 0 ? static_cast<double>(formatted.fillerCount)
            / static_cast<double>(formatted.spokenWordCount)
                                                     : 0.0;
    final.stats = stats;
    return final;
}

void RecognitionJob::release()
{
    m_recognizer.reset();
}

} // namespace sayvo
