#include "desktop/TextInserter.h"

#include "desktop/AXHelpers.h"

#include <QStringList>

namespace sayvo {

bool isTerminalEmulator(const QString &bundleId)
{
    // X11 WM_CLASS classes and Wayland app ids.
    static const QStringList kTerminalClasses {QStringLiteral("xterm"), QStringLiteral("urxvt"),
        QStringLiteral("gnome-terminal"), QStringLiteral("gnome-terminal-server"),
        QStringLiteral("org.gnome.Terminal"), QStringLiteral("org.gnome.Console"),
        QStringLiteral("konsole"), QStringLiteral("org.kde.konsole"), QStringLiteral("kitty"),
        QStringLiteral("alacritty"), QStringLiteral("foot"), QStringLiteral("footclient"),
        QStringLiteral("xfce4-terminal"), QStringLiteral("tilix"), QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm")};
    return kTerminalClasses.contains(bundleId, Qt::CaseInsensitive);
}

TextInserter::TextInserter(std::shared_ptr<Pasteboard> pasteboard,
    std::shared_ptr<KeySynthesizer> keySynthesizer,
    std::shared_ptr<AccessibilityProvider> accessibility, std::shared_ptr<Workspace> workspace,
    QObject *parent)
    : QObject(parent),
      m_pasteboard(std::move(pasteboard)),
      m_keySynthesizer(std::move(keySynthesizer)),
      m_accessibility(std::move(accessibility)),
      m_workspace(std::move(workspace))
{
    m_restoreTimer.setSingleShot(true);
    m_restoreTimer.setInterval(kRestoreDelayMs);
    connect(&m_restoreTimer, &QTimer::timeout, this, &TextInserter::restoreIfUnchanged);
}

bool TextInserter::insert(const QString &text, InsertionMethod method)
{
    if (text.isEmpty()) {
        return false;
    }
    // Where the session keeps the clipboard from Sayvo (GNOME), nothing can be pasted: the
    // text goes in through accessibility or is typed key by key, and the clipboard is never
    // touched.
    if (!m_pasteboard->isAvailable()) {
        return insertViaAX(text)
            || (m_keySynthesizer->isAvailable() && m_keySynthesizer->typeText(text));
    }
    // Where the session lets no application post keys, accessibility is the only way in.
    if (!m_keySynthesizer->isAvailable()) {
        return insertViaAX(text);
    }
    switch (method) {
    case InsertionMethod::paste:
        return insertViaPaste(text);
    case InsertionMethod::axDirect:
        return insertViaAX(text) || insertViaPaste(text);
    }
    return false;
}

bool TextInserter::insertViaPaste(const QString &text)
{
    // A paste that follows another within the restore delay supersedes its restore. The
    // clipboard then still holds the earlier transcript, so the user's own content is the
    // snapshot still waiting, unless someone else wrote the clipboard in between.
    PasteboardSnapshot snapshot;
    if (m_restoreTimer.isActive() && m_pasteboard->changeCount() == m_changeCountAfterWrite) {
        snapshot = std::move(m_pendingSnapshot);
    } else {
        snapshot = PasteboardSnapshot::capture(*m_pasteboard);
    }
    m_restoreTimer.stop();
    m_pendingSnapshot = {};

    m_pasteboard->clearContents();
    m_pasteboard->setConcealedString(text);
    const qint64 countAfterWrite = m_pasteboard->changeCount();

    if (!synthesizePaste()) {
        snapshot.restore(*m_pasteboard);
        return false;
    }
    m_pendingSnapshot = std::move(snapshot);
    m_changeCountAfterWrite = countAfterWrite;
    m_restoreTimer.start();
    return true;
}

void TextInserter::restoreIfUnchanged()
{
    // Someone else wrote the clipboard since the paste: their content wins.
    if (m_pasteboard->changeCount() == m_changeCountAfterWrite) {
        m_pendingSnapshot.restore(*m_pasteboard);
    }
    m_pendingSnapshot = {};
}

bool TextInserter::synthesizePaste()
{
    PasteShortcut shortcut = PasteShortcut::standard;
    if (const auto front = m_workspace->frontmostApplication();
        front && front->bundleId && isTerminalEmulator(*front->bundleId)) {
        shortcut = PasteShortcut::terminal;
    }
    return m_keySynthesizer->postPaste(shortcut);
}

bool TextInserter::insertViaAX(const QString &text)
{
    const AccessibleElementPtr element = AXHelpers::focusedElement(*m_accessibility);
    if (!element) {
        return false;
    }
    if (AXHelpers::setValue(*m_accessibility, text, AXHelpers::kSelectedText, element)) {
        return true;
    }
    // Elements without a writable selection take the text as their whole new value.
    return AXHelpers::setValue(*m_accessibility, text, AXHelpers::kValue, element);
}

} // namespace sayvo
