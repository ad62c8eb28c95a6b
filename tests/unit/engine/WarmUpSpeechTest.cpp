#include "engine/asr/WarmUpSpeech.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace sayvo {
namespace {

using std::chrono::milliseconds;

double rms(const std::vector<std::int16_t> &samples, std::size_t from, std::size_t count)
{
    double sum = 0.0;
    for (std::size_t i = from; i < from + count; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
    }
    return std::sqrt(sum / static_cast<double>(count));
}

TEST(WarmUpSpeech, LastsAsLongAsAskedAt16kHz)
{
    EXPECT_EQ(synthesizeWarmUpSpeech(milliseconds(2000)).size(), 32000U);
    EXPECT_TRUE(synthesizeWarmUpSpeech(milliseconds(0)).empty());
}

TEST(WarmUpSpeech, IsTheSameEveryTime)
{
    EXPECT_EQ(synthesizeWarmUpSpeech(milliseconds(500)), synthesizeWarmUpSpeech(milliseconds(500)));
}

// At the level of speech near a microphone, well inside 16 bits, never clipped.
TEST(WarmUpSpeech, IsAudibleAndUnclipped)
{
    const auto samples = synthesizeWarmUpSpeech(milliseconds(2000));
    const double level = rms(samples, 0, samples.size());
    EXPECT_GT(level, 500.0);
    EXPECT_LT(level, 8000.0);
    const auto loudest = std::max_element(samples.begin(), samples.end(),
        [](std::int16_t a, std::int16_t b) { return std::abs(a) < std::abs(b); });
    EXPECT_LT(std::abs(*loudest), 32000);
}

// Syllables: it swells and fades four times a second, as speech does and a tone does not.
TEST(WarmUpSpeech, RisesAndFallsAtTheRateOfSyllables)
{
    const auto samples = synthesizeWarmUpSpeech(milliseconds(1000));
    // 250 ms a syllable: loudest around 62 ms in, quietest around 187 ms.
    constexpr std::size_t kWindow = 320; // 20 ms
    for (std::size_t syllable = 0; syllable < 4; ++syllable) {
        const std::size_t start = syllable * 4000;
        const double peak = rms(samples, start + 1000 - kWindow / 2, kWindow);
        const double trough = rms(samples, start + 3000 - kWindow / 2, kWindow);
        EXPECT_GT(peak, 4.0 * trough) << "syllable " << syllable;
    }
}

} // namespace
} // namespace sayvo
