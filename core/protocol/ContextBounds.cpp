#include "protocol/ContextBounds.h"

namespace sayvo {

namespace {

// What one byte of UTF-8 text becomes inside a JSON string: the quote and the backslash and
// the usual control characters take a backslash, other control characters a \u00XX escape.
std::size_t escapedSize(unsigned char byte)
{
    switch (byte) {
    case '"':
    case '\\':
    case '\b':
    case '\f':
    case '\n':
    case '\r':
    case '\t':
        return 2;
    default:
        return byte < 0x20 ? 6 : 1;
    }
}

std::size_t escapedFormSize(std::string_view text)
{
    std::size_t size = 0;
    for (const char c : text) {
        size += escapedSize(static_cast<unsigned char>(c));
    }
    return size;
}

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

void boundHead(std::optional<std::string> &text, std::size_t maxBytes)
{
    if (text) {
        *text = headWithin(*text, maxBytes);
    }
}

} // namespace

std::string headWithin(std::string_view utf8, std::size_t maxBytes)
{
    std::size_t used = 0;
    std::size_t end = 0; // the end of the last whole sequence that fits
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        if (!isContinuation(byte)) {
            end = i;
        }
        used += escapedSize(byte);
        if (used > maxBytes) {
            return std::string(utf8.substr(0, end));
        }
    }
    return std::string(utf8);
}

std::string tailWithin(std::string_view utf8, std::size_t maxBytes)
{
    std::size_t used = 0;
    std::size_t start = utf8.size(); // the start of the first whole sequence that fits
    for (std::size_t i = utf8.size(); i-- > 0;) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        used += escapedSize(byte);
        if (used > maxBytes) {
            break;
        }
        if (!isContinuation(byte)) {
            start = i;
        }
    }
    return std::string(utf8.substr(start));
}

ContextPack boundedForWire(ContextPack pack)
{
    boundHead(pack.appBundleId, ContextLimits::kNameBytes);
    boundHead(pack.appName, ContextLimits::kNameBytes);
    boundHead(pack.windowTitle, ContextLimits::kNameBytes);
    boundHead(pack.clipboard, ContextLimits::kClipboardBytes);
    if (pack.screenText) {
        *pack.screenText = tailWithin(*pack.screenText, ContextLimits::kScreenTextBytes);
    }
    if (pack.personalDictionary) {
        std::vector<std::string> kept;
        std::size_t used = 0;
        for (const std::string &entry : *pack.personalDictionary) {
            std::string bounded = headWithin(entry, ContextLimits::kDictionaryEntryBytes);
            // Quotes and the comma between entries.
            const std::size_t size = escapedFormSize(bounded) + 3;
            if (used + size > ContextLimits::kDictionaryBytes) {
                break;
            }
            used += size;
            kept.push_back(std::move(bounded));
        }
        pack.personalDictionary = std::move(kept);
    }
    return pack;
}

} // namespace sayvo
