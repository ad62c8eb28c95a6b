#pragma once

#include "app/AppDelegate.h"
#include "support/audio/FakeAudioInputEngine.h"
#include "support/desktop/FakeDesktopShortcut.h"
#include "support/desktop/FakeKeyboardEventSource.h"
#include "support/desktop/FakeWorkspace.h"
#include "support/runtime/FakeChildProcess.h"

#include <QStringList>

#include <functional>
#include <memory>

namespace sayvo::test {

// Permissions whose answers the test sets and whose requests it reads back.
class FakePermissions : public Permissions
{
public:
    MicrophoneStatus microphone = MicrophoneStatus::authorized;
    bool accessibility = true;
    bool inputMonitoring = true;
    QStringList calls;

    MicrophoneStatus microphoneStatus() override { return microphone; }
    void requestMicrophoneAccess() override { calls << "requestMicrophoneAccess"; }
    bool isAccessibilityTrusted() override { return accessibility; }
    void promptAccessibility() override { calls << "promptAccessibility"; }
    bool isInputMonitoringGranted() override { return inputMonitoring; }
    void requestInputMonitoringAccess() override { calls << "requestInputMonitoringAccess"; }
    void openSettings(Permission) override { calls << "openSettings"; }
};

// Fakes of every platform service the application is assembled from: one microphone that
// plays what the test gives it, a keyboard the test presses, a clipboard, accessibility and
// window list that answer nothing, and engine children that run nothing. The handles stay
// valid while the application built from platform() lives.
struct FakeAppPlatform
{
    FakePermissions permissionsTemplate;
    bool microphoneMissing = false;
    bool keyTapRefused = false;
    // Whether an engine already listens where the supervisor looks; false by default.
    std::function<bool(const QString &host, int port)> portProbe;
    // What the desktop session offers, as the platform's factory would have chosen it.
    DesktopPlan desktopPlan;
    // The desktop's shortcut and keystroke permission of the latest launch.
    std::shared_ptr<sayvo::testing::FakeDesktopShortcut> shortcut;
    std::shared_ptr<sayvo::testing::FakeKeystrokeConsent> keystrokeConsent;

    FakePermissions *permissions = nullptr;
    FakeAudioInputEngine *audioEngine = nullptr;
    sayvo::testing::FakeKeyboardEventSource *keys = nullptr;
    sayvo::testing::FakeWorkspace *workspace = nullptr;
    std::shared_ptr<FakeChildProcessLauncher::Log> launches;

    AppPlatform platform(std::function<RuntimeLocator()> runtimeLocator);
};

} // namespace sayvo::test
