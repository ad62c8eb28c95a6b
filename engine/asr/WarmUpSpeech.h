#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace sayvo {

// 16 kHz mono sound that a recogniser takes for speech: a voiced tone with a wandering pitch
// and a formant-like sweep, rising and falling at the rate of syllables, with a little
// breath noise. Not words; what matters is that the search hypothesises many, as it does
// for real speech and does not for silence or plain noise. The same every time.
std::vector<std::int16_t> synthesizeWarmUpSpeech(std::chrono::milliseconds length);

} // namespace sayvo
