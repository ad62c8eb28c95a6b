// Scores arbitrary bytes (split at the first NUL into reference and transcript) and checks what
// must hold for any pair of texts.
#include "calibration/WordErrorRate.h"

#include <QString>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto *bytes = reinterpret_cast<const char *>(data);
    const auto *split = static_cast<const char *>(std::memchr(bytes, 0, size));
    const std::size_t referenceSize = split ? static_cast<std::size_t>(split - bytes) : size;
    const QString reference = QString::fromUtf8(bytes, static_cast<qsizetype>(referenceSize));
    const QString transcript = split
        ? QString::fromUtf8(split + 1, static_cast<qsizetype>(size - referenceSize - 1))
        : QString();

    const QStringList referenceWords = sayvo::normalizedWords(reference);
    const QStringList transcriptWords = sayvo::normalizedWords(transcript);
    for (const QString &word : referenceWords) {
        if (word.isEmpty()) {
            std::abort();
        }
    }
    const double rate = sayvo::wordErrorRate(reference, transcript);
    if (!std::isfinite(rate) || rate < 0.0) {
        std::abort();
    }
    // A text always matches itself, and the distance never exceeds the longer word count.
    if (sayvo::wordErrorRate(reference, reference) != 0.0) {
        std::abort();
    }
    if (!referenceWords.isEmpty()) {
        const auto longest = std::max(referenceWords.size(), transcriptWords.size());
        if (rate * static_cast<double>(referenceWords.size())
            > static_cast<double>(longest) + 1e-9) {
            std::abort();
        }
    }
    return 0;
}
