#include "engine/asr/WarmUpSpeech.h"

#include <cmath>
#include <numbers>
#include <random>

namespace sayvo {

std::vector<std::int16_t> synthesizeWarmUpSpeech(std::chrono::milliseconds length)
{
    constexpr double kRate = 16000.0;
    constexpr double kTwoPi = 2.0 * std::numbers::pi;
    constexpr double kSyllablesPerSecond = 4.0;
    constexpr double kAmplitude = 3000.0;
    const auto count = static_cast<std::size_t>(length.count() * 16);
    std::vector<std::int16_t> samples(count);
    std::minstd_rand random(1);
    std::normal_distribution<double> noise(0.0, 1.0);
    double breath = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / kRate;
        const double envelope = 0.5 + 0.5 * std::sin(kTwoPi * kSyllablesPerSecond * t);
        const double pitch = 120.0 + 40.0 * std::sin(kTwoPi * 0.7 * t);
        const double formant = 700.0 + 300.0 * std::sin(kTwoPi * 3.0 * t);
        const double voice = std::sin(kTwoPi * pitch * t) + 0.5 * std::sin(kTwoPi * 2.0 * pitch * t)
            + 0.3 * std::sin(kTwoPi * formant * t);
        breath = 0.9 * breath + 0.1 * noise(random);
        samples[i] = static_cast<std::int16_t>(kAmplitude * envelope * (voice + 0.5 * breath));
    }
    return samples;
}

} // namespace sayvo
