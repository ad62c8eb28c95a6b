// Feedback as a client may send it: the text the engine produced and the text the user left,
// each built from the input by repetition up to a megabyte, so that long documents are
// reached quickly. Finding the corrections must stay within the run's memory limit.
#include "engine/store/LearningStore.h"

#include <cstdint>
#include <string>

namespace {

std::string repeated(const std::string &piece, std::size_t times)
{
    constexpr std::size_t kMaxBytes = 1024 * 1024;
    std::string out;
    while (!piece.empty() && times-- > 0 && out.size() + piece.size() <= kMaxBytes) {
        out += piece;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    // The first two bytes say how often each half repeats: the produced text up to 256
    // times, the edited one up to 65,536 times.
    const std::size_t formattedTimes = std::size_t {data[0]} + 1;
    const std::size_t editedTimes = (std::size_t {data[1]} + 1) * 256;
    const std::string input(reinterpret_cast<const char *>(data + 2), size - 2);
    const std::size_t split = input.find('|');
    const std::string formatted = repeated(input.substr(0, split), formattedTimes);
    const std::string edited
        = split == std::string::npos ? formatted : repeated(input.substr(split + 1), editedTimes);
    for (const auto &[wrong, right] : sayvo::LearningStore::corrections(formatted, edited)) {
        if (wrong.empty() || right.empty() || wrong == right) {
            __builtin_trap();
        }
    }
    return 0;
}
