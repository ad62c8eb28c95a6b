#include "desktop/TextInserter.h"

#include "base/Logging.h"
#include "desktop/AXHelpers.h"

#include <QHash>

#include <algorithm>
#include <utility>

namespace sayvo {

PasteShortcut pasteShortcutFor(const QString &bundleId)
{
    // The chord each terminal emulator in Debian pastes the clipboard with out of the box,
    // by the class its windows carry (lower case; the app id under Wayland).
    static const QHash<QString, PasteShortcut> kTerminals {
        // xterm pastes only the primary selection (or cut buffer 0) from the keyboard.
        {QStringLiteral("xterm"), PasteShortcut::shiftInsert},
        {QStringLiteral("uxterm"), PasteShortcut::shiftInsert},
        // rxvt-unicode: Control-Meta-V; its Shift-Insert reads the primary selection.
        {QStringLiteral("urxvt"), PasteShortcut::controlAltV},
        {QStringLiteral("rxvt"), PasteShortcut::controlAltV},
        {QStringLiteral("rxvt-unicode"), PasteShortcut::controlAltV},
        // The rest take Control-Shift-V.
        {QStringLiteral("gnome-terminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("gnome-terminal-server"), PasteShortcut::controlShiftV},
        {QStringLiteral("org.gnome.terminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("kgx"), PasteShortcut::controlShiftV},
        {QStringLiteral("org.gnome.console"), PasteShortcut::controlShiftV},
        {QStringLiteral("org.gnome.ptyxis"), PasteShortcut::controlShiftV},
        {QStringLiteral("ptyxis"), PasteShortcut::controlShiftV},
        {QStringLiteral("konsole"), PasteShortcut::controlShiftV},
        {QStringLiteral("org.kde.konsole"), PasteShortcut::controlShiftV},
        {QStringLiteral("yakuake"), PasteShortcut::controlShiftV},
        {QStringLiteral("xfce4-terminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("mate-terminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("lxterminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("qterminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("terminator"), PasteShortcut::controlShiftV},
        {QStringLiteral("tilix"), PasteShortcut::controlShiftV},
        {QStringLiteral("com.gexperts.tilix"), PasteShortcut::controlShiftV},
        {QStringLiteral("sakura"), PasteShortcut::controlShiftV},
        {QStringLiteral("guake"), PasteShortcut::controlShiftV},
        {QStringLiteral("tilda"), PasteShortcut::controlShiftV},
        {QStringLiteral("terminology"), PasteShortcut::controlShiftV},
        {QStringLiteral("st"), PasteShortcut::controlShiftV},
        {QStringLiteral("st-256color"), PasteShortcut::controlShiftV},
        {QStringLiteral("stterm"), PasteShortcut::controlShiftV},
        {QStringLiteral("kitty"), PasteShortcut::controlShiftV},
        {QStringLiteral("alacritty"), PasteShortcut::controlShiftV},
        {QStringLiteral("foot"), PasteShortcut::controlShiftV},
        {QStringLiteral("footclient"), PasteShortcut::controlShiftV},
        {QStringLiteral("wezterm"), PasteShortcut::controlShiftV},
        {QStringLiteral("org.wezfurlong.wezterm"), PasteShortcut::controlShiftV},
        {QStringLiteral("cool-retro-term"), PasteShortcut::controlShiftV},
        {QStringLiteral("deepin-terminal"), PasteShortcut::controlShiftV},
        {QStringLiteral("zutty"), PasteShortcut::controlShiftV},
    };
    return kTerminals.value(bundleId.toLower(), PasteShortcut::standard);
}

TextInserter::TextInserter(std::shared_ptr<Pasteboard> pasteboard,
    std::shared_ptr<KeySynthesizer> keySynthesizer,
    std::shared_ptr<AccessibilityProvider> accessibility, std::shared_ptr<Workspace> workspace,
    std::shared_ptr<Pasteboard> primarySelection, QObject *parent)
    : QObject(parent),
      m_pasteboard(std::move(pasteboard)),
      m_keySynthesizer(std::move(keySynthesizer)),
      m_accessibility(std::move(accessibility)),
      m_workspace(std::move(workspace)),
      m_primarySelection(std::move(primarySelection))
{
    m_keyPoll.setSingleShot(true);
    connect(&m_keyPoll, &QTimer::timeout, this, &TextInserter::pollKeys);
    m_restoreCheck.setSingleShot(true);
    m_restoreCheck.setTimerType(Qt::PreciseTimer);
    connect(&m_restoreCheck, &QTimer::timeout, this, &TextInserter::considerRestore);
    for (const auto &board : {m_pasteboard, m_primarySelection}) {
        if (!board) {
            continue;
        }
        Pasteboard *served = board.get();
        board->setOnServed([this, served] {
            if (m_current && m_current->pasteboard.get() == served) {
                const qint64 nowMs = m_current->sinceChord.elapsed();
                if (!m_current->served) {
                    m_current->firstServedAtMs = nowMs;
                }
                m_current->lastServedAtMs = nowMs;
                m_current->served = true;
                considerRestore();
            }
        });
    }
}

TextInserter::~TextInserter()
{
    for (const auto &board : {m_pasteboard, m_primarySelection}) {
        if (board) {
            board->setOnServed({});
        }
    }
    // Quitting must not leave a transcript where the user's clipboard was.
    if (m_current) {
        release(true);
    }
}

void TextInserter::insert(const QString &text, InsertionMethod method, Completion done)
{
    if (text.isEmpty()) {
        done(false);
        return;
    }
    // Where the session keeps the clipboard from Sayvo (GNOME), nothing can be pasted: the
    // text goes in through accessibility or is typed key by key, and the clipboard is never
    // touched.
    if (!m_pasteboard->isAvailable()) {
        if (wentIn(insertViaAX(text))) {
            done(true);
            return;
        }
        if (!m_keySynthesizer->isAvailable()) {
            done(false);
            return;
        }
        m_waiting.push_back(Paste {text, std::move(done), PasteShortcut::standard, nullptr, true});
        startNextPaste();
        return;
    }
    // Where the session lets no application post keys, accessibility is the only way in.
    if (!m_keySynthesizer->isAvailable()) {
        done(wentIn(insertViaAX(text)));
        return;
    }
    if (method == InsertionMethod::axDirect && wentIn(insertViaAX(text))) {
        done(true);
        return;
    }
    insertViaPaste(text, std::move(done));
}

bool TextInserter::wentIn(AccessibilityWrite write)
{
    if (write != AccessibilityWrite::unanswered) {
        return write == AccessibilityWrite::written;
    }
    // The application is busy and may still take the text: pasting or typing it as well
    // could put it there twice. The HUD shows the transcript as inserted, so when the
    // application never takes it, the user still sees what was said and can say it again.
    Logging::shared().info(QStringLiteral(
        "text insertion: the application did not answer the accessibility write in time; "
        "not pasting as well, so the text cannot arrive twice"));
    return true;
}

void TextInserter::insertViaPaste(const QString &text, Completion done)
{
    m_waiting.push_back(Paste {text, std::move(done), PasteShortcut::standard, nullptr});
    startNextPaste();
}

void TextInserter::startNextPaste()
{
    // One paste at a time: the next text goes on the clipboard only once the previous one
    // was read.
    if (m_sending || m_waiting.empty() || (m_current && !m_current->readyToRelease)) {
        return;
    }
    m_sending = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_keyWait.start();
    pollKeys();
}

void TextInserter::pollKeys()
{
    if (m_keySynthesizer->isAnyKeyHeld() && m_keyWait.elapsed() < kLongestKeyWaitMs) {
        m_keyPoll.start(kKeyPollMs);
        return;
    }
    sendPaste();
}

PasteShortcut TextInserter::shortcutForFront() const
{
    const auto front = m_workspace->frontmostApplication();
    if (!front || !front->bundleId) {
        return PasteShortcut::standard;
    }
    return pasteShortcutFor(*front->bundleId);
}

void TextInserter::sendPaste()
{
    Paste paste = std::move(*m_sending);
    m_sending.reset();
    if (paste.typed) {
        typeText(paste);
        return;
    }
    paste.shortcut = shortcutForFront();
    paste.pasteboard = m_pasteboard;
    if (paste.shortcut == PasteShortcut::shiftInsert) {
        if (m_primarySelection) {
            paste.pasteboard = m_primarySelection;
        } else {
            paste.shortcut = PasteShortcut::controlShiftV;
        }
    }
    Pasteboard &board = *paste.pasteboard;

    // Without leave to post keys the chord would vanish and the transcript would sit on the
    // clipboard for nothing: fail before touching it.
    if (!m_keySynthesizer->mayPostEvents()) {
        paste.done(false);
        startNextPaste();
        return;
    }

    // The previous paste's text still on this clipboard means the user's own content is the
    // snapshot it saved; anything else written since is the user's now.
    PasteboardSnapshot snapshot;
    bool inherited = false;
    if (m_current) {
        if (m_current->pasteboard == paste.pasteboard
            && board.changeCount() == m_current->changeCountAfterWrite) {
            snapshot = std::move(m_current->snapshot);
            inherited = true;
            m_current.reset();
            m_restoreCheck.stop();
        } else {
            const Holding previous = std::move(*m_current);
            m_current.reset();
            m_restoreCheck.stop();
            if (previous.pasteboard->changeCount() == previous.changeCountAfterWrite) {
                previous.snapshot.restore(*previous.pasteboard);
            }
        }
    }
    if (!inherited) {
        snapshot = snapshotOf(board);
    }

    // A clipboard that cannot be written would paste whatever it holds: fail, and leave it
    // as it is (it still holds the user's content, or the previous transcript that the
    // inherited snapshot replaces).
    if (!board.setConcealedString(paste.text)) {
        if (inherited) {
            snapshot.restore(board);
        }
        paste.done(false);
        startNextPaste();
        return;
    }
    const qint64 countAfterWrite = board.changeCount();
    if (!m_keySynthesizer->postPaste(paste.shortcut)) {
        snapshot.restore(board);
        paste.done(false);
        startNextPaste();
        return;
    }
    m_current
        = Holding {paste.pasteboard, std::move(snapshot), countAfterWrite, {}, 0, 0, false, false};
    m_current->sinceChord.start();
    considerRestore();
    paste.done(true);
}

void TextInserter::prepare()
{
    m_prepared.reset();
    // While a paste is under way the clipboard holds a transcript, not the user's content.
    if (!m_pasteboard->isAvailable() || isRestorePending()) {
        return;
    }
    const qint64 changeCount = m_pasteboard->changeCount();
    m_prepared = Prepared {PasteboardSnapshot::capture(*m_pasteboard), changeCount};
}

void TextInserter::forgetPrepared()
{
    m_prepared.reset();
}

PasteboardSnapshot TextInserter::snapshotOf(Pasteboard &board)
{
    std::optional<Prepared> prepared = std::exchange(m_prepared, std::nullopt);
    if (prepared && &board == m_pasteboard.get() && board.changeCount() == prepared->changeCount) {
        return std::move(prepared->snapshot);
    }
    return PasteboardSnapshot::capture(board);
}

void TextInserter::typeText(const Paste &typing)
{
    // Without leave to post keys the typed characters would vanish.
    const bool typed = m_keySynthesizer->mayPostEvents() && m_keySynthesizer->typeText(typing.text);
    typing.done(typed);
    startNextPaste();
}

void TextInserter::considerRestore()
{
    if (!m_current || m_current->readyToRelease) {
        return;
    }
    Holding &holding = *m_current;
    // Someone else wrote the clipboard since the paste: their content wins.
    if (holding.pasteboard->changeCount() != holding.changeCountAfterWrite) {
        release(false);
        return;
    }
    const qint64 elapsedMs = holding.sinceChord.elapsed();
    // When, counted from the chord, the clipboard may change again.
    qint64 readyAtMs = kLongestHoldMs;
    if (!holding.pasteboard->reportsServed()) {
        readyAtMs = kRestoreDelayMs;
    } else if (holding.served) {
        const qint64 latestMs
            = std::max<qint64>(kLongestHoldMs, holding.firstServedAtMs + kReadSettleMs);
        readyAtMs
            = std::clamp<qint64>(holding.lastServedAtMs + kReadSettleMs, kRestoreDelayMs, latestMs);
    }
    if (elapsedMs < readyAtMs) {
        m_restoreCheck.start(int(readyAtMs - elapsedMs));
        return;
    }
    m_restoreCheck.stop();
    if (!m_waiting.empty()) {
        holding.readyToRelease = true;
        startNextPaste();
        return;
    }
    release(true);
}

void TextInserter::release(bool restore)
{
    const Holding holding = std::move(*m_current);
    m_current.reset();
    m_restoreCheck.stop();
    if (restore && holding.pasteboard->changeCount() == holding.changeCountAfterWrite) {
        holding.snapshot.restore(*holding.pasteboard);
    }
    startNextPaste();
}

AccessibilityWrite TextInserter::insertViaAX(const QString &text)
{
    const AccessibleElementPtr element = AXHelpers::focusedElement(*m_accessibility);
    if (!element) {
        return AccessibilityWrite::refused;
    }
    const AccessibilityWrite selection
        = AXHelpers::setValue(*m_accessibility, text, AXHelpers::kSelectedText, element);
    if (selection != AccessibilityWrite::refused) {
        return selection;
    }
    // Elements without a writable selection take the text as their whole new value.
    return AXHelpers::setValue(*m_accessibility, text, AXHelpers::kValue, element);
}

} // namespace sayvo
