#pragma once

#include "desktop/AccessibilityProvider.h"
#include "desktop/KeySynthesizer.h"
#include "desktop/Pasteboard.h"
#include "desktop/PasteboardSnapshot.h"
#include "desktop/Workspace.h"
#include "store/InsertionMethod.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace sayvo {

// Puts a transcript into the focused field of the application in front, by a synthetic paste
// or by a direct accessibility write; only by the latter where the session lets no
// application post keys. Where it keeps the clipboard from Sayvo, an accessibility write or
// else typing the text. Main thread only; failures are a false result.
//
// A paste waits, without blocking, until no key is held; then it saves the clipboard, puts
// the text on it in one write, sends the paste chord and reports. The saved clipboard comes
// back once the target has read the text (as the clipboard reports it) and had kReadSettleMs to
// take it in, but never before kRestoreDelayMs and, unread, never later than kLongestHoldMs,
// unless someone else wrote the clipboard meanwhile. Pastes run one after another: the next one's
// text goes on the clipboard only after the previous one was read. Typed text waits for the
// keyboard and its turn in the same way, so a held modifier does not turn its characters into
// shortcuts.
class TextInserter : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(bool inserted)>;

    // The target application gets at least this long to read the pasted text before the
    // user's clipboard is put back.
    static constexpr int kRestoreDelayMs = 140;
    // A target that has not read the text by then (a busy machine) is not waited for longer.
    static constexpr int kLongestHoldMs = 1000;
    // A toolkit handles the data it read a few turns of its event loop later, and drops it if
    // the clipboard changes before then (GTK 3 on Wayland does); each read gets this long,
    // though reads that keep coming (a clipboard manager) hold the text no longer than
    // kLongestHoldMs, or the first read's time if that ends later.
    static constexpr int kReadSettleMs = 150;
    // How long a paste waits for held keys to be released, and how often it looks.
    static constexpr int kLongestKeyWaitMs = 1500;
    static constexpr int kKeyPollMs = 10;

    // The primary selection (X11), when there is one, serves the terminals whose only paste
    // chord reads it.
    TextInserter(std::shared_ptr<Pasteboard> pasteboard,
        std::shared_ptr<KeySynthesizer> keySynthesizer,
        std::shared_ptr<AccessibilityProvider> accessibility, std::shared_ptr<Workspace> workspace,
        std::shared_ptr<Pasteboard> primarySelection = nullptr, QObject *parent = nullptr);
    ~TextInserter() override;

    // Direct insertion first when the method asks for it, the paste otherwise or when that
    // was refused. `done` runs on the main thread, possibly before this returns, with whether
    // the text was handed to the target; empty text is never inserted. A direct write the
    // application left unanswered counts as handed over and is never followed by a paste or
    // typing: it may still land, and the text would arrive twice.
    void insert(const QString &text, InsertionMethod method, Completion done);
    void insertViaPaste(const QString &text, Completion done);
    // Writes into the focused element and checks what landed. Synchronous. The whole value
    // is written only when replacing the selection was refused, never after a write that went
    // unanswered.
    AccessibilityWrite insertViaAX(const QString &text);
    // Saves the clipboard now, ahead of a paste that is likely to follow (while the engine
    // finishes), so that the paste does not wait for the clipboard's owner to hand over every
    // type. The paste uses the copy only if nothing changed the clipboard since; the next
    // prepare() or forgetPrepared() drops it.
    void prepare();
    void forgetPrepared();

    // A paste is under way: waiting to send its chord or to put the clipboard back.
    bool isRestorePending() const
    {
        return m_sending.has_value() || m_current.has_value() || !m_waiting.empty();
    }

private:
    struct Paste
    {
        QString text;
        Completion done;
        PasteShortcut shortcut = PasteShortcut::standard;
        std::shared_ptr<Pasteboard> pasteboard;
        // Typed key by key instead: the session keeps the clipboard from Sayvo.
        bool typed = false;
    };
    // The paste whose text is on the clipboard now, until its restore.
    struct Holding
    {
        std::shared_ptr<Pasteboard> pasteboard;
        PasteboardSnapshot snapshot;
        qint64 changeCountAfterWrite = 0;
        QElapsedTimer sinceChord;
        // The first and the latest read, counted from the chord; valid once served.
        qint64 firstServedAtMs = 0;
        qint64 lastServedAtMs = 0;
        bool served = false;
        // Read (or waited for long enough), but kept for the next paste, which takes over the
        // saved clipboard instead of restoring and saving it again.
        bool readyToRelease = false;
    };

    // The clipboard as prepare() saved it, and its change count then.
    struct Prepared
    {
        PasteboardSnapshot snapshot;
        qint64 changeCount = 0;
    };

    // Whether a direct write counts as handed to the target.
    static bool wentIn(AccessibilityWrite write);
    PasteShortcut shortcutForFront() const;
    PasteboardSnapshot snapshotOf(Pasteboard &board);
    void startNextPaste();
    void pollKeys();
    void sendPaste();
    void typeText(const Paste &typing);
    void considerRestore();
    void release(bool restore);

    std::shared_ptr<Pasteboard> m_pasteboard;
    std::shared_ptr<KeySynthesizer> m_keySynthesizer;
    std::shared_ptr<AccessibilityProvider> m_accessibility;
    std::shared_ptr<Workspace> m_workspace;
    std::shared_ptr<Pasteboard> m_primarySelection;

    std::deque<Paste> m_waiting;
    // The paste waiting for the keyboard, between the front of m_waiting and its chord.
    std::optional<Paste> m_sending;
    QElapsedTimer m_keyWait;
    QTimer m_keyPoll;
    std::optional<Holding> m_current;
    QTimer m_restoreCheck;
    std::optional<Prepared> m_prepared;
};

// The chord that pastes the clipboard in an application with this bundle identifier (WM_CLASS
// class on X11, app id on Wayland): the terminal emulators' own, Control-V for the rest.
PasteShortcut pasteShortcutFor(const QString &bundleId);

} // namespace sayvo
