#include "desktop/KeySynthesizer.h"

namespace sayvo {

namespace {

constexpr quint32 kKeysymControlL = 0xffe3;
constexpr quint32 kKeysymShiftL = 0xffe1;
constexpr quint32 kKeysymAltL = 0xffe9;
constexpr quint32 kKeysymInsert = 0xff63;
constexpr quint32 kKeysymV = 0x0076;

} // namespace

std::vector<quint32> pasteChordKeysyms(PasteShortcut shortcut)
{
    switch (shortcut) {
    case PasteShortcut::standard:
        return {kKeysymControlL, kKeysymV};
    case PasteShortcut::controlShiftV:
        return {kKeysymControlL, kKeysymShiftL, kKeysymV};
    case PasteShortcut::controlAltV:
        return {kKeysymControlL, kKeysymAltL, kKeysymV};
    case PasteShortcut::shiftInsert:
        return {kKeysymShiftL, kKeysymInsert};
    }
    return {};
}

} // namespace sayvo
