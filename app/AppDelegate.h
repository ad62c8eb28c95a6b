#pragma once

#include "app/Permissions.h"
#include "audio/AudioHardware.h"
#include "audio/AudioInputEngine.h"
#include "desktop/DesktopServices.h"
#include "runtime/EngineSupervisor.h"
#include "runtime/RuntimeLocator.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class QMenuBar;
class QWidget;

namespace sayvo {

class AudioCapture;
class ContextHarvester;
class EngineClient;
class HotkeyManager;
class HUDController;
class MenuBarController;
class PreferenceStore;
class SayvoCoordinator;
class SettingsStore;
class TextInserter;
class TrayAvailability;
class UsageStatsStore;

// The platform pieces the application is assembled from. The defaults are this platform's
// real services; tests replace them with fakes.
struct AppPlatform
{
    std::function<std::unique_ptr<AudioHardware>()> audioHardware;
    std::function<std::unique_ptr<AudioInputEngine>()> audioInputEngine;
    std::function<DesktopServices()> desktopServices;
    std::function<std::unique_ptr<Permissions>(AudioHardware &, const HotkeyManager &)> permissions;
    std::function<RuntimeLocator()> runtimeLocator;
    std::function<EngineSupervisor::Options()> supervisorOptions;
    // Whether the desktop shows tray icons now, and a hook told when that may have changed.
    std::function<bool()> trayAvailable;
    std::function<void(QObject *context, std::function<void()> changed)> watchTrayHost;

    static AppPlatform native();
};

// Creates every long-lived object of the application in a fixed order, wires their state
// together, starts dictation and the engine, retries the microphone and key set-up until both
// are ready, opens the windows on request, and shuts the engine down on quit. Main thread.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    static constexpr const char *kClientVersion = "0.1.0";
    static constexpr int kInputSetupPollIntervalMs = 1500;

    AppDelegate(PreferenceStore &preferences, AppPlatform platform, QObject *parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    // The quit steps for an end that bypasses the event loop: returns once the engine has
    // stopped. Nothing but the process's end may follow.
    void terminateNow();

    void showSettings();
    void showSetup();
    void showCalibration();
    void startInputSetupPollIfNeeded();
    void installMainMenu();

    SettingsStore &settings() const { return *m_settings; }
    UsageStatsStore &usageStats() const { return *m_usageStats; }
    EngineClient *engineClient() const { return m_engineClient.get(); }
    EngineSupervisor *engineSupervisor() const { return m_engineSupervisor.get(); }
    SayvoCoordinator *coordinator() const { return m_coordinator.get(); }
    HUDController *hudController() const { return m_hudController.get(); }
    MenuBarController *menuBarController() const { return m_menuBarController.get(); }
    TrayAvailability *trayAvailability() const { return m_trayAvailability.get(); }
    AudioCapture *audioCapture() const { return m_audioCapture.get(); }
    HotkeyManager *hotkeyManager() const { return m_hotkeyManager.get(); }
    Permissions *permissions() const { return m_permissions.get(); }
    QWidget *settingsWindow() const { return m_settingsWindow.get(); }
    QWidget *setupWindow() const { return m_setupWindow.get(); }
    QWidget *calibrationWindow() const { return m_calibrationWindow.get(); }
    bool isInputSetupPollRunning() const { return m_inputSetupPoll != nullptr; }
    QMenuBar *mainMenu() const { return m_mainMenu.get(); }

signals:
    // Each window the first time it is created (tests look at them).
    void windowCreated(QWidget *window);

private:
    void updateCapability(const DesktopCapabilityStatus &status);
    void bringToFront(QWidget *window);
    void prepareWindow(QWidget *window, const QString &title, bool centred);
    void quit();

    AppPlatform m_platform;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<UsageStatsStore> m_usageStats;

    // The platform services, created at launch, outliving everything that uses them.
    std::unique_ptr<AudioHardware> m_audioHardware;
    DesktopServices m_desktop;

    std::unique_ptr<EngineClient> m_engineClient;
    std::unique_ptr<EngineSupervisor> m_engineSupervisor;
    std::unique_ptr<AudioCapture> m_audioCapture;
    std::unique_ptr<HotkeyManager> m_hotkeyManager;
    std::unique_ptr<ContextHarvester> m_contextHarvester;
    std::unique_ptr<TextInserter> m_textInserter;
    std::unique_ptr<SayvoCoordinator> m_coordinator;
    std::unique_ptr<HUDController> m_hudController;
    std::unique_ptr<MenuBarController> m_menuBarController;
    std::unique_ptr<TrayAvailability> m_trayAvailability;
    std::unique_ptr<Permissions> m_permissions;

    std::unique_ptr<QWidget> m_settingsWindow;
    std::unique_ptr<QWidget> m_calibrationWindow;
    std::unique_ptr<QWidget> m_setupWindow;
    std::unique_ptr<QTimer> m_inputSetupPoll;
    std::unique_ptr<QMenuBar> m_mainMenu;
    bool m_terminated = false;
};

} // namespace sayvo
