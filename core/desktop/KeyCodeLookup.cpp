#include "desktop/KeyCodeLookup.h"

namespace sayvo {

int KeyCodeLookup::keyCodeTyping(
    QChar character, int keyCodeCount, int fallbackKeyCode, const KeyOutput &outputOf)
{
    const QString wanted(character);
    for (int keyCode = 0; keyCode < keyCodeCount; ++keyCode) {
        if (outputOf(keyCode).compare(wanted, Qt::CaseInsensitive) == 0) {
            return keyCode;
        }
    }
    return fallbackKeyCode;
}

} // namespace sayvo
