#pragma once

#include "base/Expected.h"
#include "desktop/KeyboardEventSource.h"
#include "store/HotkeyTrigger.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace sayvo {

enum class HotkeyError {
    tapCreationFailed,
    // The user has not (yet) let Sayvo watch the keyboard.
    permissionMissing,
};

QString describe(HotkeyError error);

// Turns presses and releases of the one trigger key into onStart / onEnd. Main thread only;
// the callbacks are always posted to the main thread's event queue, never run inside the
// keyboard callback. Owns its event source.
class HotkeyManager : public QObject
{
    Q_OBJECT

public:
    HotkeyManager(HotkeyTrigger trigger, std::unique_ptr<KeyboardEventSource> source,
        QObject *parent = nullptr);
    ~HotkeyManager() override;

    HotkeyTrigger trigger() const { return m_trigger; }

    void setOnStart(std::function<void()> callback) { m_onStart = std::move(callback); }
    void setOnEnd(std::function<void()> callback) { m_onEnd = std::move(callback); }

    // Installs the keyboard tap; does nothing when it is already installed. Without the
    // user's leave to watch the keyboard nothing is installed, since such a tap would never
    // fire. On failure the manager stays uninstalled and may be started again later, until
    // the leave is given.
    Status<HotkeyError> start();
    // Removes the tap. A key still held gets no onEnd.
    void stop();
    bool isInstalled() const { return m_installed; }

    // The trigger key going down and up as a compositor's key binding reports them (`sayvo
    // trigger press` and `release`), under the same rules as the watched key: a press while
    // the key is down already is ignored like auto-repeat. Works with or without the tap.
    void press();
    void release();
    // One whole press and release (`sayvo trigger toggle`).
    void pressAndRelease();
    bool isKeyDown() const { return m_isKeyDown; }

private:
    KeyEventDisposition handleEvent(const KeyEvent &event);
    void emitIfChanged(bool down);

    HotkeyTrigger m_trigger;
    std::unique_ptr<KeyboardEventSource> m_source;
    std::function<void()> m_onStart;
    std::function<void()> m_onEnd;
    bool m_installed = false;
    bool m_isKeyDown = false;
};

} // namespace sayvo
