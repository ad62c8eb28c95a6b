// Feeds arbitrary output to the set-up line protocol: cut into lines, decoded, parsed.
#include "runtime/BootstrapLine.h"
#include "runtime/OutputLineReader.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray buffer(reinterpret_cast<const char *>(data), qsizetype(size));
    QList<QByteArray> lines = sayvo::takeCompleteLines(buffer);
    lines.append(buffer); // the last line, even without its line feed
    for (const QByteArray &raw : lines) {
        if (const std::optional<QString> line = sayvo::decodeLine(raw)) {
            const sayvo::bootstrap::Line parsed = sayvo::bootstrap::parseLine(*line);
            if (const auto *progress = std::get_if<sayvo::bootstrap::Progress>(&parsed)) {
                if (progress->message.size() > line->size()) {
                    __builtin_trap();
                }
            }
        }
    }
    return 0;
}
