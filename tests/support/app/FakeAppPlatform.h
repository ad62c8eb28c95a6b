#pragma once

#include "app/AppDelegate.h"
#include "support/audio/FakeAudioInputEngine.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakeDesktopShortcut.h"
#include "support/desktop/FakeKeyboardEventSource.h"
#include "support/desktop/FakePasteboard.h"
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
    // Runs inside each request, with its name.
    std::function<void(const QString &)> onCall;

    MicrophoneStatus microphoneStatus() override { return microphone; }
    void requestMicrophoneAccess() override { record("requestMicrophoneAccess"); }
    bool isAccessibilityTrusted() override { return accessibility; }
    void promptAccessibility() override { record("promptAccessibility"); }
    bool isInputMonitoringGranted() override { return inputMonitoring; }
    void requestInputMonitoringAccess() override { record("requestInputMonitoringAccess"); }
    void openSettings(Permission) override { record("openSettings"); }

private:
    void record(const QString &call)
    {
        calls << call;
        if (onCall) {
            onCall(call);
        }
    }
};

// Fakes of every platform service the application is assembled from: one microphone that
// plays what the test gives it, a keyboard the test presses, a clipboard, accessibility,
// front application and window list that answer nothing until the test fills them, and
// engine children that run nothing. The handles stay
// valid while the application built from platform() lives.
struct FakeAppPlatform
{
    FakePermissions permissionsTemplate;
    bool microphoneMissing = false;
    bool keyTapRefused = false;
    // Whether an engine already listens where the supervisor looks; false by default.
    std::function<bool(const QString &host, int port)> portProbe;
    // Whether the desktop shows tray icons; calling trayHostChanged tells the app to look again.
    bool trayAvailable = true;
    std::function<void()> trayHostChanged;
    // What the desktop session offers, as the platform's factory would have chosen it.
    DesktopPlan desktopPlan;
    // The desktop's shortcut and keystroke permission of the latest launch.
    std::shared_ptr<sayvo::testing::FakeDesktopShortcut> shortcut;
    std::shared_ptr<sayvo::testing::FakeKeystrokeConsent> keystrokeConsent;

    FakePermissions *permissions = nullptr;
    std::shared_ptr<sayvo::testing::FakePasteboard> pasteboard;
    std::shared_ptr<sayvo::testing::FakeAccessibilityProvider> accessibility;
    FakeAudioInputEngine *audioEngine = nullptr;
    sayvo::testing::FakeKeyboardEventSource *keys = nullptr;
    sayvo::testing::FakeWorkspace *workspace = nullptr;
    std::shared_ptr<FakeChildProcessLauncher::Log> launches;

    AppPlatform platform(std::function<RuntimeLocator()> runtimeLocator);
};

} // namespace sayvo::test
