#pragma once

#include "desktop/AccessibilityProvider.h"
#include "desktop/KeySynthesizer.h"
#include "desktop/Pasteboard.h"
#include "desktop/PasteboardSnapshot.h"
#include "desktop/Workspace.h"
#include "store/InsertionMethod.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

namespace sayvo {

// Puts a transcript into the focused field of the application in front, by a synthetic paste
// or by a direct accessibility write; only by the latter where the session lets no
// application post keys. Where it keeps the clipboard from Sayvo, an accessibility write or
// else typing the text. Main thread only; failures are a false result.
class TextInserter : public QObject
{
    Q_OBJECT

public:
    // The target application gets this long to read the pasted text before the user's
    // clipboard is put back.
    static constexpr int kRestoreDelayMs = 140;

    TextInserter(std::shared_ptr<Pasteboard> pasteboard,
        std::shared_ptr<KeySynthesizer> keySynthesizer,
        std::shared_ptr<AccessibilityProvider> accessibility, std::shared_ptr<Workspace> workspace,
        QObject *parent = nullptr);

    bool insert(const QString &text, InsertionMethod method);
    bool insertViaPaste(const QString &text);
    bool insertViaAX(const QString &text);
    bool synthesizePaste();

    bool isRestorePending() const { return m_restoreTimer.isActive(); }

private:
    void restoreIfUnchanged();

    std::shared_ptr<Pasteboard> m_pasteboard;
    std::shared_ptr<KeySynthesizer> m_keySynthesizer;
    std::shared_ptr<AccessibilityProvider> m_accessibility;
    std::shared_ptr<Workspace> m_workspace;
    QTimer m_restoreTimer;
    PasteboardSnapshot m_pendingSnapshot;
    qint64 m_changeCountAfterWrite = 0;
};

// Whether an application with this bundle identifier (WM_CLASS on X11, the app id on Wayland)
// is a terminal emulator.
bool isTerminalEmulator(const QString &bundleId);

} // namespace sayvo
