#pragma once

#include <QChar>
#include <QString>

#include <functional>

namespace sayvo {

// Finds the key that types a character in the current keyboard layout. A shortcut follows
// the character, not the key's position: on Dvorak the key that types "v" sits where QWERTY
// has the period.
class KeyCodeLookup
{
public:
    // What a key types in the layout; empty when it types nothing or cannot be read.
    using KeyOutput = std::function<QString(int keyCode)>;

    // The lowest key code below keyCodeCount that types `character` (in either case), or
    // fallbackKeyCode when no key does: layouts for other scripts, where the system matches
    // shortcuts by the key's QWERTY position, and a layout that cannot be read.
    static int keyCodeTyping(
        QChar character, int keyCodeCount, int fallbackKeyCode, const KeyOutput &outputOf);
};

} // namespace sayvo
