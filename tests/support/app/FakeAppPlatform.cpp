#include "support/app/FakeAppPlatform.h"

#include "support/audio/FakeAudioHardware.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakeKeySynthesizer.h"
#include "support/desktop/FakePasteboard.h"
#include "support/desktop/FakeWindowList.h"

namespace sayvo::test {

AppPlatform FakeAppPlatform::platform(std::function<RuntimeLocator()> runtimeLocator)
{
    AppPlatform p;
    p.audioHardware = [] {
        auto hardware = std::make_unique<FakeAudioHardware>();
        FakeAudioDevice mic;
        mic.id = 1;
        mic.uid = QStringLiteral("mic");
        mic.name = QStringLiteral("Mic");
        mic.sampleRate = 16000.0;
        hardware->setDevices({mic});
        return hardware;
    };
    p.audioInputEngine = [this] {
        auto audio = std::make_unique<FakeAudioInputEngine>();
        audioEngine = audio.get();
        if (microphoneMissing) {
            audio->setUnavailable(QStringLiteral("no sound server"));
        }
        return audio;
    };
    p.desktopServices = [this] {
        DesktopServices services;
        auto keyboard = std::make_unique<sayvo::testing::FakeKeyboardEventSource>();
        keyboard->failInstall = keyTapRefused;
        keys = keyboard.get();
        services.keyboard = std::move(keyboard);
        pasteboard = std::make_shared<sayvo::testing::FakePasteboard>();
        services.pasteboard = pasteboard;
        services.keySynthesizer = std::make_shared<sayvo::testing::FakeKeySynthesizer>();
        accessibility = std::make_shared<sayvo::testing::FakeAccessibilityProvider>();
        services.accessibility = accessibility;
        auto fakeWorkspace = std::make_shared<sayvo::testing::FakeWorkspace>();
        workspace = fakeWorkspace.get();
        services.workspace = fakeWorkspace;
        services.plan = desktopPlan;
        shortcut = std::make_shared<sayvo::testing::FakeDesktopShortcut>();
        services.shortcut = shortcut;
        keystrokeConsent = std::make_shared<sayvo::testing::FakeKeystrokeConsent>();
        services.keystrokeConsent = keystrokeConsent;
        services.windowList = std::make_shared<sayvo::testing::FakeWindowList>();
        return services;
    };
    p.permissions = [this](AudioHardware &, const HotkeyManager &) {
        auto fake = std::make_unique<FakePermissions>();
        *fake = permissionsTemplate;
        permissions = fake.get();
        return fake;
    };
    p.trayAvailable = [this] { return trayAvailable; };
    p.watchTrayHost = [this](QObject *, std::function<void()> changed) {
        trayHostChanged = std::move(changed);
    };
    p.runtimeLocator = std::move(runtimeLocator);
    p.supervisorOptions = [this] {
        EngineSupervisor::Options options;
        auto launcher = std::make_unique<FakeChildProcessLauncher>();
        launches = launcher->log;
        options.launcher = std::move(launcher);
        options.portProbe
            = [this](const QString &host, int port) { return portProbe && portProbe(host, port); };
        return options;
    };
    return p;
}

} // namespace sayvo::test
