#pragma once

#include "protocol/ContextPack.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace sayvo {

// How much of each context text goes to the engine. Sizes count the bytes each text takes in
// the JSON frame (UTF-8, with its escapes), so a whole "context.update" stays under
// kMaxFrameBytes, far below the 1 MiB text frame any engine of this protocol accepts, however
// large the clipboard or the selection is. What the engine looks at is near the caret (the
// end of the screen text) and at the start of what was copied (the head of the clipboard).
struct ContextLimits
{
    static constexpr std::size_t kClipboardBytes = 32 * 1024; // its head
    static constexpr std::size_t kScreenTextBytes = 32 * 1024; // its tail
    static constexpr std::size_t kNameBytes = 1024; // bundle id, app name, window title: heads
    static constexpr std::size_t kDictionaryEntryBytes = 1024; // each entry's head
    static constexpr std::size_t kDictionaryBytes = 256 * 1024; // entries in order while they fit
    static constexpr std::size_t kMaxFrameBytes = 400 * 1024;
};

// The longest head (tail) of `utf8` whose JSON-escaped form takes at most `maxBytes` bytes.
// Never cuts a UTF-8 sequence; `utf8` must be valid UTF-8.
std::string headWithin(std::string_view utf8, std::size_t maxBytes);
std::string tailWithin(std::string_view utf8, std::size_t maxBytes);

// The pack with every text cut to ContextLimits.
ContextPack boundedForWire(ContextPack pack);

} // namespace sayvo
