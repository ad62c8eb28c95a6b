#pragma once

#include "desktop/KeySynthesizer.h"
#include "desktop/KeystrokeConsent.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace sayvo {

class PasteboardPortal;

// Keystrokes through the desktop's remote-desktop portal (GNOME, KDE), where no virtual
// keyboard is offered: a session with the keyboard alone, persisted (persist_mode 2) so the
// desktop asks once and hands out a token for the next launch. A token the desktop no longer
// honours is dropped and the user asked again, once. Keys go as keysyms, so the desktop maps
// them to its own layout. Text is typed as Unicode keysyms, up to kMaxTypedCharacters (several
// minutes of speech); longer text is refused whole rather than typed in part. Each key waits
// for the portal's answer to the one before: Debian's frontend handles calls on a pool of
// threads, and keys sent without waiting reach the desktop out of order. With a clipboard to
// share, the session also asks for the clipboard before it starts and attaches it when the
// desktop grants it; the keys then paste, and type the text otherwise. Main thread only.
class KeySynthesizerPortal : public QObject, public KeySynthesizer, public KeystrokeConsent
{
    Q_OBJECT

public:
    static constexpr qsizetype kMaxTypedCharacters = 4000;

    // requestTimeoutMs bounds each request, the desktop's dialog included; `use` only words
    // the status line.
    explicit KeySynthesizerPortal(
        KeystrokeUse use = KeystrokeUse::pasting, int requestTimeoutMs = 120000);
    ~KeySynthesizerPortal() override;

    bool postPaste(PasteShortcut shortcut) override;
    bool isAvailable() const override { return m_state == State::started; }
    bool typeText(const QString &text) override;

    // Before request(): the session asks for the clipboard too, and reports its status.
    void shareClipboard(std::shared_ptr<PasteboardPortal> clipboard);

    void request(const QString &restoreToken, Handlers handlers) override;
    void askAgain() override;

    // Presses (true) and releases (false) keysyms in order, after any still queued; false when
    // there is no started session.
    bool postKeysyms(const std::vector<std::pair<quint32, bool>> &keys);

private Q_SLOTS:
    void onSessionClosed();

private:
    enum class State {
        idle,
        asking,
        started,
        refused,
    };

    // One request of the session's setup; a refusal goes to fail(), a grant to onGranted
    // while this object lives.
    void ask(const QString &method, QVariantList arguments,
        std::function<void(const QVariantMap &results)> onGranted);
    void createSession();
    void selectDevices();
    void requestClipboard();
    void startSession();
    void fail(const QString &reason, const QString &detail);
    void closeSession();
    void report(PortalState state, const QString &reason);
    void sendNext();

    KeystrokeUse m_use;
    int m_requestTimeoutMs;
    QDBusConnection m_bus;
    Handlers m_handlers;
    std::shared_ptr<PasteboardPortal> m_clipboard;
    State m_state = State::idle;
    QString m_restoreToken;
    QString m_sessionPath;
    // Set once the kept token was dropped, so a refusal then is final.
    bool m_askedWithoutToken = false;
    std::deque<std::pair<quint32, bool>> m_queue;
    bool m_sending = false;
};

} // namespace sayvo
