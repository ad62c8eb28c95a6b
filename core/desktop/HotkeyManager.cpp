#include "desktop/HotkeyManager.h"

#include <QMetaObject>
#include <QPointer>

namespace sayvo {

QString describe(HotkeyError error)
{
    switch (error) {
    case HotkeyError::tapCreationFailed:
        return QStringLiteral("the keyboard tap could not be created");
    case HotkeyError::permissionMissing:
        return QStringLiteral("Sayvo may not watch the keyboard yet");
    }
    return {};
}

HotkeyManager::HotkeyManager(
    HotkeyTrigger trigger, std::unique_ptr<KeyboardEventSource> source, QObject *parent)
    : QObject(parent), m_trigger(trigger), m_source(std::move(source))
{ }

HotkeyManager::~HotkeyManager()
{
    stop();
}

Status<HotkeyError> HotkeyManager::start()
{
    if (m_installed) {
        return {};
    }
    if (!m_source->isPermitted()) {
        return HotkeyError::permissionMissing;
    }
    std::vector<int> swallowed;
    if (m_trigger == HotkeyTrigger::f5) {
        swallowed.push_back(m_source->keyCodes().f5);
    }
    QPointer<HotkeyManager> self(this);
    const bool installed = m_source->install(swallowed, [self](const KeyEvent &event) {
        // A source that outlives its manager passes everything through.
        return self ? self->handleEvent(event) : KeyEventDisposition::pass;
    });
    if (!installed) {
        return HotkeyError::tapCreationFailed;
    }
    m_installed = true;
    return {};
}

void HotkeyManager::stop()
{
    if (m_installed) {
        m_source->uninstall();
        m_installed = false;
    }
    m_isKeyDown = false;
}

void HotkeyManager::press()
{
    emitIfChanged(true);
}

void HotkeyManager::release()
{
    emitIfChanged(false);
}

void HotkeyManager::pressAndRelease()
{
    press();
    release();
}

KeyEventDisposition HotkeyManager::handleEvent(const KeyEvent &event)
{
    if (event.type == KeyEventType::tapDisabledByTimeout
        || event.type == KeyEventType::tapDisabledByUserInput) {
        m_source->reenable();
        return KeyEventDisposition::pass;
    }
    const TriggerKeyCodes codes = m_source->keyCodes();
    switch (m_trigger) {
    case HotkeyTrigger::fnGlobe:
        if (event.type == KeyEventType::flagsChanged) {
            emitIfChanged((event.flags & KeyFlags::kSecondaryFunction) != 0);
        }
        return KeyEventDisposition::pass;
    case HotkeyTrigger::rightOption:
        if (event.type == KeyEventType::flagsChanged && event.keyCode == codes.rightOption) {
            emitIfChanged((event.flags & KeyFlags::kOption) != 0);
        }
        return KeyEventDisposition::pass;
    case HotkeyTrigger::f5:
        if ((event.type == KeyEventType::keyDown || event.type == KeyEventType::keyUp)
            && event.keyCode == codes.f5) {
            // A held key repeats its key-down; only the first press starts an utterance.
            if (event.type == KeyEventType::keyDown && event.isAutoRepeat) {
                return KeyEventDisposition::swallow;
            }
            emitIfChanged(event.type == KeyEventType::keyDown);
            return KeyEventDisposition::swallow;
        }
        return KeyEventDisposition::pass;
    case HotkeyTrigger::menuBarToggle:
        return KeyEventDisposition::pass;
    }
    return KeyEventDisposition::pass;
}

void HotkeyManager::emitIfChanged(bool down)
{
    if (down == m_isKeyDown) {
        return;
    }
    m_isKeyDown = down;
    // The callback as it is now is what runs, even if the coordinator replaces it before the
    // queued call is delivered.
    std::function<void()> callback = down ? m_onStart : m_onEnd;
    if (!callback) {
        return;
    }
    QMetaObject::invokeMethod(
        this, [callback = std::move(callback)] { callback(); }, Qt::QueuedConnection);
}

} // namespace sayvo
