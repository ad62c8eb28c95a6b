#pragma once

#include "engine/asr/Recognizer.h"
#include "protocol/InboundMessages.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sayvo {

class Formatter;

// One utterance's recognition as its worker runs it: makes the recogniser, feeds it,
// reads the running hypothesis a few times a second and builds the final. The steps run one
// at a time on the utterance's lane; only `cancel` may be called from another thread.
class RecognitionJob
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int kSampleRate = 16000;
    static constexpr std::chrono::milliseconds kPartialInterval {300};

    struct Context
    {
        RecognizerFactory &recognizers;
        const Formatter &formatter;
        std::function<Clock::time_point()> now;
    };

    // What the final is formatted with, as the session knew it when the utterance ended.
    struct Ending
    {
        std::string domain;
        std::string domainSource;
        std::vector<std::string> personalDictionary;
        Clock::time_point endedAt;
    };

    RecognitionJob(std::string utteranceId, Context context);
    ~RecognitionJob();

    const std::string &utteranceId() const { return m_utteranceId; }

    // Makes the recogniser; false when none could be made.
    bool begin();
    // Feeds audio; returns the running hypothesis when one is due and it changed.
    std::optional<std::string> feed(const std::vector<std::int16_t> &samples);
    // Ends recognition and builds the final; nothing without a recogniser or once cancelled.
    std::optional<FinalMessage> finish(const Ending &ending);
    // Drops the recogniser here, on the worker, however much work its end takes.
    void release();
    // From any thread: later steps do nothing.
    void cancel() { m_cancelled = true; }

private:
    double millisecondsSince(Clock::time_point from, Clock::time_point to) const;

    std::string m_utteranceId;
    Context m_context;
    std::unique_ptr<Recognizer> m_recognizer;
    std::atomic<bool> m_cancelled {false};
    std::int64_t m_samples = 0;
    double m_recognitionMs = 0.0; // time spent inside the recogniser
    std::string m_lastPartial;
    std::optional<Clock::time_point> m_lastPartialAt;
};

} // namespace sayvo
