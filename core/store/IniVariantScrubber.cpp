#include "store/IniVariantScrubber.h"

#include <QList>

#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace sayvo {

namespace {

// One character of the decoded text and the raw bytes it came from.
struct DecodedChar
{
    char16_t ch;
    qsizetype rawBegin;
    qsizetype rawEnd;
};

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

int octalValue(char c)
{
    return c >= '0' && c <= '7' ? c - '0' : -1;
}

std::optional<char> simpleEscape(char c)
{
    static constexpr std::array<std::pair<char, char>, 11> kEscapes {
        {{'a', '\a'}, {'b', '\b'}, {'f', '\f'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'v', '\v'},
            {'"', '"'}, {'?', '?'}, {'\'', '\''}, {'\\', '\\'}}};
    for (const auto &[code, value] : kEscapes) {
        if (c == code) {
            return value;
        }
    }
    return std::nullopt;
}

// Reads the digits of a \x or octal escape the way Qt does: as many as there are, accumulated
// in 16 bits, so "\x10040" is '@' as well.
qsizetype readNumericEscape(QByteArrayView text, qsizetype pos, int base, char16_t &value)
{
    for (; pos < text.size(); ++pos) {
        const int digit = base == 16 ? hexValue(text[pos]) : octalValue(text[pos]);
        if (digit < 0) {
            break;
        }
        value = static_cast<char16_t>(value * base + digit);
    }
    return pos;
}

bool isLineEnd(char c)
{
    return c == '\n' || c == '\r';
}

QList<DecodedChar> decode(QByteArrayView text)
{
    QList<DecodedChar> decoded;
    decoded.reserve(text.size());
    qsizetype pos = 0;
    while (pos < text.size()) {
        const qsizetype begin = pos;
        const char c = text[pos++];
        if (c == '"') {
            continue;
        }
        if (c != '\\') {
            decoded.append({static_cast<char16_t>(static_cast<unsigned char>(c)), begin, pos});
            continue;
        }
        if (pos == text.size()) {
            break;
        }
        const char code = text[pos++];
        if (const std::optional<char> value = simpleEscape(code)) {
            decoded.append({static_cast<char16_t>(*value), begin, pos});
        } else if (code == 'x') {
            char16_t value = 0;
            const qsizetype end = readNumericEscape(text, pos, 16, value);
            if (end > pos) {
                decoded.append({value, begin, end});
            }
            pos = end;
        } else if (octalValue(code) >= 0) {
            char16_t value = static_cast<char16_t>(octalValue(code));
            pos = readNumericEscape(text, pos, 8, value);
            decoded.append({value, begin, pos});
        } else if (isLineEnd(code) && pos < text.size() && isLineEnd(text[pos])
            && text[pos] != code) {
            // A continued line ending in "\r\n" or "\n\r" drops both bytes.
            ++pos;
        }
        // Any other escaped character is dropped together with its backslash, as Qt does.
    }
    return decoded;
}

bool startsVariantAt(const QList<DecodedChar> &decoded, qsizetype index)
{
    static constexpr std::u16string_view kPrefix = u"@Variant(";
    if (index + static_cast<qsizetype>(kPrefix.size()) > decoded.size()) {
        return false;
    }
    for (std::size_t offset = 0; offset < kPrefix.size(); ++offset) {
        if (decoded[index + static_cast<qsizetype>(offset)].ch != kPrefix[offset]) {
            return false;
        }
    }
    if (index == 0) {
        return true;
    }
    // Qt reads binary data only when "@Variant(" opens a value or list item, so a character
    // that Qt certainly keeps in the same item right before it makes it text: "@@Variant(" is
    // the escaped text "@Variant(", "@String(@Variant(" is how Qt writes text holding a NUL.
    // Spaces and tabs may be trimmed, ',' and '=' may end what came before, a line end starts a
    // new line, and a non-ASCII byte may belong to an unfinished UTF-8 sequence that Qt emits
    // only later; none of those counts.
    const char16_t before = decoded[index - 1].ch;
    const bool keptByQt = before > u' ' && before < 0x7f && before != u',' && before != u'=';
    return !keptByQt;
}

} // namespace

QByteArray IniVariantScrubber::scrubbed(QByteArrayView iniText)
{
    const QList<DecodedChar> decoded = decode(iniText);
    QByteArray result;
    qsizetype copiedUpTo = 0;
    for (qsizetype index = 0; index < decoded.size(); ++index) {
        if (!startsVariantAt(decoded, index)) {
            continue;
        }
        // The '@' may itself have been an escape such as "\x40"; the whole escape is replaced.
        result.append(iniText.sliced(copiedUpTo, decoded[index].rawBegin - copiedUpTo));
        result.append("@@");
        copiedUpTo = decoded[index].rawEnd;
    }
    result.append(iniText.sliced(copiedUpTo));
    return result;
}

} // namespace sayvo
