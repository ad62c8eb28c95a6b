#pragma once

#include "desktop/KeySynthesizer.h"
#include "desktop/KeystrokeConsent.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>

#include <deque>

#include <utility>
#include <vector>

namespace sayvo {

// Keystrokes through the desktop's remote-desktop portal (GNOME, KDE), where no virtual
// keyboard is offered: a session with the keyboard alone, persisted (persist_mode 2) so the
// desktop asks once and hands out a token for the next launch. A token the desktop no longer
// honours is dropped and the user asked again, once. Keys go as keysyms, so the desktop maps
// them to its own layout. Text is typed as Unicode keysyms, kChunkKeys events per turn of the
// event loop so a long transcript does not hold the application up, up to kMaxTypedCharacters
// (about two spoken minutes); longer text is refused whole rather than typed in part. Main
// thread only.
class KeySynthesizerPortal : public QObject, public KeySynthesizer, public KeystrokeConsent
{
    Q_OBJECT

public:
    static constexpr int kChunkKeys = 128;
    static constexpr qsizetype kMaxTypedCharacters = 4000;

    // requestTimeoutMs bounds each request, the desktop's dialog included.
    explicit KeySynthesizerPortal(int requestTimeoutMs = 120000);
    ~KeySynthesizerPortal() override;

    bool postPaste(PasteShortcut shortcut) override;
    bool isAvailable() const override { return m_state == State::started; }
    bool typeText(const QString &text) override;

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

    void createSession();
    void selectDevices();
    void startSession();
    void fail(const QString &reason, const QString &detail);
    void closeSession();
    void report(PortalState state, const QString &reason);
    void sendChunk();

    int m_requestTimeoutMs;
    QDBusConnection m_bus;
    Handlers m_handlers;
    State m_state = State::idle;
    QString m_restoreToken;
    QString m_sessionPath;
    // Set once the kept token was dropped, so a refusal then is final.
    bool m_askedWithoutToken = false;
    std::deque<std::pair<quint32, bool>> m_queue;
    QTimer m_sendTimer;
};

} // namespace sayvo
