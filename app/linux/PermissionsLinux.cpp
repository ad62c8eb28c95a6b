#include "app/linux/PermissionsLinux.h"

#include "app/PermissionsPlatform.h"
#include "audio/AudioDevices.h"
#include "desktop/HotkeyManager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QMessageBox>
#include <QPushButton>

namespace sayvo {

namespace {
const QString kBusService = QStringLiteral("org.a11y.Bus");
const QString kBusPath = QStringLiteral("/org/a11y/bus");
const QString kStatusInterface = QStringLiteral("org.a11y.Status");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
// A session bus that hangs must not freeze the settings window.
constexpr int kBusTimeoutMs = 500;

const char *kAccessibilityWhy
    = "Sayvo types your dictation into the field you are working in and reads a little of the "
      "text around it so the engine can format it well. Both go through the desktop's "
      "accessibility bus (AT-SPI), which is switched off.";
} // namespace

std::unique_ptr<Permissions> createPermissions(
    AudioHardware &audioHardware, const HotkeyManager &hotkeyManager)
{
    return std::make_unique<PermissionsLinux>(audioHardware, hotkeyManager);
}

PermissionsLinux::PermissionsLinux(AudioHardware &audioHardware, const HotkeyManager &hotkeyManager)
    : m_audioHardware(audioHardware), m_hotkeyManager(hotkeyManager)
{ }

Permissions::MicrophoneStatus PermissionsLinux::microphoneStatus()
{
    return AudioDevices::inputDevices(m_audioHardware).isEmpty() ? MicrophoneStatus::denied
                                                                 : MicrophoneStatus::authorized;
}

void PermissionsLinux::requestMicrophoneAccess()
{
    // Nothing to ask: a sound server that answers lets every desktop program record.
}

bool PermissionsLinux::isAccessibilityTrusted()
{
    // A plain method call: the launcher does not describe itself, so a QDBusInterface, which
    // introspects first, would call it invalid.
    QDBusMessage get
        = QDBusMessage::createMethodCall(kBusService, kBusPath, kProperties, QStringLiteral("Get"));
    get << kStatusInterface << QStringLiteral("IsEnabled");
    const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, kBusTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return false;
    }
    return qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant().toBool();
}

bool PermissionsLinux::enableAccessibilityBus()
{
    QDBusMessage set
        = QDBusMessage::createMethodCall(kBusService, kBusPath, kProperties, QStringLiteral("Set"));
    set << kStatusInterface << QStringLiteral("IsEnabled")
        << QVariant::fromValue(QDBusVariant(true));
    const QDBusMessage reply = QDBusConnection::sessionBus().call(set, QDBus::Block, kBusTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

void PermissionsLinux::promptAccessibility()
{
    // Not modal: start-up goes on while the user reads.
    auto *dialog = new QMessageBox(QMessageBox::Information,
        QStringLiteral("Sayvo needs accessibility"), QString::fromLatin1(kAccessibilityWhy));
    dialog->setInformativeText(
        QStringLiteral("Turn it on now? Applications started from now on will take part."));
    QPushButton *enable
        = dialog->addButton(QStringLiteral("Turn On Accessibility"), QMessageBox::AcceptRole);
    dialog->addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(
        dialog, &QMessageBox::buttonClicked, dialog, [enable](QAbstractButton *button) {
            if (button == enable) {
                enableAccessibilityBus();
            }
        });
    dialog->show();
}

bool PermissionsLinux::isInputMonitoringGranted()
{
    return m_hotkeyManager.isInstalled();
}

void PermissionsLinux::requestInputMonitoringAccess()
{
    // The X server grants the key watch when the tap is installed; there is nothing to ask.
}

void PermissionsLinux::openSettings(Permission permission)
{
    QString title;
    QString text;
    switch (permission) {
    case Permission::microphone:
        title = QStringLiteral("Microphone");
        text = QStringLiteral("Sayvo records from your sound server (PulseAudio or PipeWire). Make "
                              "sure a microphone is connected "
                              "and not muted in your desktop's Sound settings. To see what the "
                              "sound server offers, run:\n\n"
                              "    pactl list short sources");
        break;
    case Permission::accessibility:
        title = QStringLiteral("Accessibility");
        text = QString::fromLatin1(kAccessibilityWhy)
            + QStringLiteral(
                "\n\nTo keep it on for every session, run:\n\n"
                "    gsettings set org.gnome.desktop.interface toolkit-accessibility true\n\n"
                "then log out and back in.");
        break;
    case Permission::inputMonitoring:
        title = QStringLiteral("Input Monitoring");
        text = QStringLiteral(
            "On X11 Sayvo watches its trigger key through the X server. On Wayland no "
            "application may watch keys: bind the key in your compositor instead, for sway\n\n"
            "    bindsym --no-repeat Control_R exec sayvo trigger press\n"
            "    bindsym --release Control_R exec sayvo trigger release\n\n"
            "or add a custom shortcut in the desktop's keyboard settings that runs "
            "\"sayvo trigger toggle\" with Toggle as the trigger mode. Without either, choose "
            "\"Tray icon click (toggle)\" as the trigger in Settings → Trigger.");
        break;
    }
    auto *dialog = new QMessageBox(QMessageBox::Information, title, text);
    if (permission == Permission::accessibility) {
        QPushButton *enable
            = dialog->addButton(QStringLiteral("Turn On Now"), QMessageBox::ActionRole);
        QObject::connect(enable, &QPushButton::clicked, [] { enableAccessibilityBus(); });
    }
    dialog->addButton(QMessageBox::Close);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

} // namespace sayvo
