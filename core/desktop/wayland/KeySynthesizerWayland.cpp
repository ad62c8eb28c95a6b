#include "desktop/wayland/KeySynthesizerWayland.h"

#include "desktop/wayland/WaylandConnection.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace sayvo {

namespace {

// Linux input codes are X keycodes less eight.
constexpr uint32_t kEvdevOffset = 8;

uint32_t timestampMs()
{
    return uint32_t(std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}

// The first key of the keymap that yields this keysym without modifiers.
uint32_t keyFor(xkb_keymap *keymap, xkb_keysym_t wanted)
{
    struct Search
    {
        xkb_keysym_t wanted;
        xkb_keycode_t found;
    } search {wanted, XKB_KEYCODE_INVALID};
    xkb_keymap_key_for_each(
        keymap,
        [](xkb_keymap *map, xkb_keycode_t key, void *data) {
            auto *state = static_cast<Search *>(data);
            const xkb_keysym_t *symbols = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(map, key, 0, 0, &symbols);
            if (state->found == XKB_KEYCODE_INVALID && count > 0 && symbols[0] == state->wanted) {
                state->found = key;
            }
        },
        &search);
    return search.found == XKB_KEYCODE_INVALID ? 0 : search.found - kEvdevOffset;
}

struct XkbDeleter
{
    void operator()(xkb_context *context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap *keymap) const { xkb_keymap_unref(keymap); }
};

} // namespace

KeySynthesizerWayland::KeySynthesizerWayland()
{
    m_connection = WaylandConnection::open(QStringLiteral("virtual keyboard"));
    if (m_connection && !createKeyboard()) {
        m_connection.reset();
    }
}

KeySynthesizerWayland::~KeySynthesizerWayland()
{
    if (m_keyboard) {
        zwp_virtual_keyboard_v1_destroy(m_keyboard);
        m_connection->flush();
    }
}

bool KeySynthesizerWayland::createKeyboard()
{
    auto *manager = static_cast<zwp_virtual_keyboard_manager_v1 *>(
        m_connection->bind(&zwp_virtual_keyboard_manager_v1_interface, 1));
    if (!manager || !m_connection->seat()) {
        return false;
    }
    std::unique_ptr<xkb_context, XkbDeleter> context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (!context) {
        return false;
    }
    const xkb_rule_names names {"evdev", "pc105", "us", "", ""};
    std::unique_ptr<xkb_keymap, XkbDeleter> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return false;
    }
    const auto modifier = [&keymap](xkb_keysym_t key, const char *name) {
        return Modifier {
            keyFor(keymap.get(), key), 1U << xkb_keymap_mod_get_index(keymap.get(), name)};
    };
    m_control = modifier(XKB_KEY_Control_L, XKB_MOD_NAME_CTRL);
    m_shift = modifier(XKB_KEY_Shift_L, XKB_MOD_NAME_SHIFT);
    m_alt = modifier(XKB_KEY_Alt_L, XKB_MOD_NAME_ALT);
    m_vKey = keyFor(keymap.get(), XKB_KEY_v);
    m_insertKey = keyFor(keymap.get(), XKB_KEY_Insert);
    if (m_control.key == 0 || m_shift.key == 0 || m_alt.key == 0 || m_vKey == 0
        || m_insertKey == 0) {
        return false;
    }
    char *text = xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
    if (!text) {
        return false;
    }
    // The compositor maps the keymap from a file; the terminating NUL is part of its size.
    const size_t size = std::strlen(text) + 1;
    const int fd = ::memfd_create("sayvo-keymap", MFD_CLOEXEC);
    const bool written = fd >= 0 && ::write(fd, text, size) == ssize_t(size);
    std::free(text);
    if (!written) {
        if (fd >= 0) {
            ::close(fd);
        }
        return false;
    }
    m_keyboard
        = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, m_connection->seat());
    zwp_virtual_keyboard_manager_v1_destroy(manager);
    // libwayland sends a duplicate of the descriptor.
    zwp_virtual_keyboard_v1_keymap(
        m_keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, uint32_t(size));
    ::close(fd);
    return m_connection->roundtrip();
}

bool KeySynthesizerWayland::isAvailable() const
{
    return m_keyboard && !m_connection->isLost();
}

void KeySynthesizerWayland::sendKey(uint32_t key, bool pressed)
{
    zwp_virtual_keyboard_v1_key(m_keyboard, timestampMs(), key,
        pressed ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
}

void KeySynthesizerWayland::sendModifiers(uint32_t depressed)
{
    zwp_virtual_keyboard_v1_modifiers(m_keyboard, depressed, 0, 0, 0);
}

bool KeySynthesizerWayland::postPaste(PasteShortcut shortcut)
{
    if (!isAvailable()) {
        return false;
    }
    std::vector<const Modifier *> modifiers;
    uint32_t key = m_vKey;
    switch (shortcut) {
    case PasteShortcut::standard:
        modifiers = {&m_control};
        break;
    case PasteShortcut::controlShiftV:
        modifiers = {&m_control, &m_shift};
        break;
    case PasteShortcut::controlAltV:
        modifiers = {&m_control, &m_alt};
        break;
    case PasteShortcut::shiftInsert:
        modifiers = {&m_shift};
        key = m_insertKey;
        break;
    }
    // A virtual keyboard's keys do not move the modifier state by themselves: it is sent
    // alongside, as a physical keyboard's compositor would compute it.
    uint32_t held = 0;
    for (const Modifier *modifier : modifiers) {
        held |= modifier->mask;
        sendKey(modifier->key, true);
        sendModifiers(held);
    }
    sendKey(key, true);
    sendKey(key, false);
    for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it) {
        held &= ~(*it)->mask;
        sendKey((*it)->key, false);
        sendModifiers(held);
    }
    m_connection->flush();
    return !m_connection->isLost();
}

} // namespace sayvo
