#include "app/linux/PermissionsLinux.h"

#include "desktop/HotkeyManager.h"
#include "support/audio/FakeAudioHardware.h"
#include "support/desktop/FakeKeyboardEventSource.h"

#include <QApplication>
#include <QMessageBox>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

QMessageBox *openHelp(Permissions &permissions, Permission permission)
{
    const QList<QWidget *> before = QApplication::topLevelWidgets();
    permissions.openSettings(permission);
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (!before.contains(widget)) {
            if (auto *box = qobject_cast<QMessageBox *>(widget)) {
                return box;
            }
        }
    }
    return nullptr;
}

// The trigger is chosen on the Trigger tab; the help sends Wayland users there.
TEST(PermissionsLinuxTest, TheInputMonitoringHelpPointsAtTheTriggerTab)
{
    FakeAudioHardware hardware;
    HotkeyManager hotkeys(HotkeyTrigger::f5, std::make_unique<testing::FakeKeyboardEventSource>());
    PermissionsLinux permissions(hardware, hotkeys);
    QMessageBox *help = openHelp(permissions, Permission::inputMonitoring);
    ASSERT_NE(help, nullptr);
    EXPECT_TRUE(help->text().contains(QString::fromUtf8("Settings \xE2\x86\x92 Trigger")))
        << help->text().toStdString();
    EXPECT_FALSE(help->text().contains(QStringLiteral("General")));
    help->close();
}

} // namespace
} // namespace sayvo
