#pragma once

#include <cstdint>

namespace sayvo {

// The running totals over every recorded utterance, and the averages derived from them. The
// real-time factors are accumulated as processing seconds (duration x factor), so their
// averages weigh each utterance by its length. Every guarded average is exactly 0 when its
// divisor is not positive.
struct UsageTotals
{
    std::int64_t utterances = 0;
    std::int64_t totalWords = 0;
    std::int64_t totalFillers = 0;
    double totalAudioSeconds = 0.0;
    double totalProcessingSeconds = 0.0;
    double totalAsrProcessingSeconds = 0.0;

    // Words per minute of audio.
    double avgSpokenWpm() const;
    // Fillers per word, as a fraction.
    double avgFillerRate() const;
    // Whole-pipeline processing time per second of audio.
    double avgRtf() const;
    // Recognition-only processing time per second of audio.
    double avgAsrRtf() const;
    double totalSpeakingMinutes() const;

    bool operator==(const UsageTotals &) const = default;
};

} // namespace sayvo
