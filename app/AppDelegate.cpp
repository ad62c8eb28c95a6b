#include "app/AppDelegate.h"

#include "app/ApplicationPlatform.h"
#include "app/PermissionsPlatform.h"
#include "app/WindowFactory.h"
#include "audio/AudioCapture.h"
#include "audio/AudioPlatform.h"
#include "base/Logging.h"
#include "desktop/ContextHarvester.h"
#include "desktop/HotkeyManager.h"
#include "desktop/TextInserter.h"
#include "engineclient/EngineClient.h"
#include "session/SayvoCoordinator.h"
#include "store/PreferenceStore.h"
#include "store/SettingsStore.h"
#include "store/Subscribe.h"
#include "store/UsageStatsStore.h"
#include "ui/DesktopCapabilityList.h"
#include "ui/HUDController.h"
#include "ui/LoginItem.h"
#include "ui/MenuBarController.h"
#include "ui/SettingsWindow.h"
#include "ui/TrayAvailability.h"

#include <QAction>
#include <QApplication>
#include <QGuiApplication>
#include <QMenuBar>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QWidget>

namespace sayvo {

AppPlatform AppPlatform::native()
{
    AppPlatform platform;
    platform.audioHardware = createAudioHardware;
    platform.audioInputEngine = createAudioInputEngine;
    platform.desktopServices = createDesktopServices;
    platform.permissions = createPermissions;
    platform.runtimeLocator = [] { return RuntimeLocator::standard(mainAppBundle()); };
    platform.supervisorOptions = [] { return EngineSupervisor::Options {}; };
    platform.trayAvailable = &QSystemTrayIcon::isSystemTrayAvailable;
    platform.watchTrayHost = &sayvo::watchTrayHost;
    return platform;
}

AppDelegate::AppDelegate(PreferenceStore &preferences, AppPlatform platform, QObject *parent)
    : QObject(parent),
      m_platform(std::move(platform)),
      m_settings(std::make_unique<SettingsStore>(preferences)),
      m_usageStats(std::make_unique<UsageStatsStore>(preferences))
{ }

AppDelegate::~AppDelegate()
{
    applicationWillTerminate();
    // Windows and controllers go before the objects they show.
    m_settingsWindow.reset();
    m_calibrationWindow.reset();
    m_setupWindow.reset();
    m_menuBarController.reset();
    m_trayAvailability.reset();
    m_hudController.reset();
    m_coordinator.reset();
}

void AppDelegate::applicationDidFinishLaunching()
{
    // 1. An accessory: no main window, and closing a window never quits.
    becomeAccessoryApplication();
    QApplication::setQuitOnLastWindowClosed(false);

    // 2. The engine client, whose hello names the language chosen in Settings; the
    // coordinator passes on later changes.
    m_engineClient = std::make_unique<EngineClient>(
        m_settings->endpointURL(), QString::fromLatin1(kClientVersion), m_settings->language());

    // 3. The runtime locator and the engine supervisor.
    m_engineSupervisor = std::make_unique<EngineSupervisor>(
        m_platform.runtimeLocator(), m_platform.supervisorOptions());

    // 4. Capture, trigger keys, context harvesting and text insertion over this platform's
    // services.
    m_audioHardware = m_platform.audioHardware();
    m_audioCapture
        = std::make_unique<AudioCapture>(m_platform.audioInputEngine(), *m_audioHardware);
    m_desktop = m_platform.desktopServices();
    m_hotkeyManager = std::make_unique<HotkeyManager>(
        m_settings->hotkeyTrigger(), std::move(m_desktop.keyboard));
    m_contextHarvester = std::make_unique<ContextHarvester>(
        m_desktop.workspace, m_desktop.accessibility, m_desktop.windowList, m_desktop.pasteboard);
    m_textInserter = std::make_unique<TextInserter>(m_desktop.pasteboard, m_desktop.keySynthesizer,
        m_desktop.accessibility, m_desktop.workspace, m_desktop.primarySelection);

    // 5. The coordinator.
    m_coordinator
        = std::make_unique<SayvoCoordinator>(*m_engineClient, *m_audioCapture, *m_hotkeyManager,
            *m_contextHarvester, *m_textInserter, *m_settings, *m_usageStats, *m_audioHardware);

    // Where the desktop watches the trigger or grants the keystrokes itself (GNOME, KDE), its
    // answers come later and replace the capability's line.
    auto showStatus = [this](const DesktopCapabilityStatus &status) { updateCapability(status); };
    m_desktop.shortcut->start(shortcutNotation(m_settings->hotkeyTrigger()),
        {[this] { m_hotkeyManager->press(); }, [this] { m_hotkeyManager->release(); }, showStatus});
    m_desktop.keystrokeConsent->request(m_settings->keystrokeRestoreToken().value_or(QString()),
        {showStatus, [this](const QString &token) {
             m_settings->setKeystrokeRestoreToken(
                 token.isEmpty() ? std::nullopt : std::optional<QString>(token));
         }});

    // Where the platform announces the window in front (Wayland), the coordinator hears of it
    // as of an application's activation.
    m_desktop.workspace->setOnActivation(
        [] { NotificationCenter::defaultCenter().post(kDidActivateApplicationNotification); });

    // Every dictation state in the log: what the user saw, for bug reports.
    connect(m_coordinator.get(), &SayvoCoordinator::stateChanged, this, [](const AppState &state) {
        Logging::shared().debug(QStringLiteral("state: ") + describe(state));
    });

    // 6. The heads-up display, whose level bars follow the microphone; not where it would take
    // the keyboard focus from the field being dictated into.
    if (m_desktop.plan.canShowPanelWithoutFocus) {
        m_hudController = std::make_unique<HUDController>(*m_coordinator);
    }
    QPointer<HUDController> hud(m_hudController.get());
    m_audioCapture->setOnRMS([hud](float rms) {
        if (hud) {
            hud->postLevel(rms);
        }
    });

    // 7. The tray menu.
    QPointer<AppDelegate> weak(this);
    auto call = [weak](void (AppDelegate::*method)()) {
        return [weak, method] {
            if (weak) {
                (weak->*method)();
            }
        };
    };
    m_menuBarController = std::make_unique<MenuBarController>(*m_coordinator, *m_engineSupervisor,
        m_settings->hotkeyTrigger(), call(&AppDelegate::showSettings),
        call(&AppDelegate::showSetup), call(&AppDelegate::showCalibration),
        makeLoginItem(launchCommandPath()));
    m_trayAvailability = std::make_unique<TrayAvailability>(m_platform.trayAvailable);

    // 8. Endpoint: the client moves first, then the supervisor; the current value comes at once.
    subscribe(m_settings.get(), &SettingsStore::endpointURL, &SettingsStore::endpointURLChanged,
        this, [this](const QUrl &url) {
            m_engineClient->updateEndpoint(url);
            m_engineSupervisor->start(url);
        });

    // 9. States that need the user open the setup window.
    subscribe(m_engineSupervisor.get(), &EngineSupervisor::state, &EngineSupervisor::stateChanged,
        this, [this](const EngineState &state) {
            const bool needsUser = std::holds_alternative<engine_state::Provisioning>(state)
                || std::holds_alternative<engine_state::NeedsPrerequisite>(state)
                || std::holds_alternative<engine_state::Failed>(state)
                || std::holds_alternative<engine_state::NeedsSetup>(state);
            if (needsUser) {
                QMetaObject::invokeMethod(this, &AppDelegate::showSetup, Qt::QueuedConnection);
            }
        });

    // 10. The engine's handshake tells the supervisor whether its backends are real.
    subscribe(m_coordinator.get(), &SayvoCoordinator::connectionHealth,
        &SayvoCoordinator::connectionHealthChanged, this,
        [this](const EngineConnectionHealth &health) {
            if (const auto *connected = health.as<EngineConnectionHealth::Connected>()) {
                if (connected->mockBackends) {
                    m_engineSupervisor->handleMockBackends();
                } else {
                    m_engineSupervisor->handleHealthyBackends();
                }
            }
        });

    // 11. Permission preflight; denials are shown in the settings window, not here.
    m_permissions = m_platform.permissions(*m_audioHardware, *m_hotkeyManager);
    if (m_permissions->microphoneStatus() == Permissions::MicrophoneStatus::notDetermined) {
        m_permissions->requestMicrophoneAccess();
    }
    if (!m_permissions->isAccessibilityTrusted()) {
        m_permissions->promptAccessibility();
    }
    if (!m_permissions->isInputMonitoringGranted()) {
        m_permissions->requestInputMonitoringAccess();
    }

    // 12. Dictation, then the engine (a second start for the same endpoint is harmless).
    m_coordinator->start();
    m_engineSupervisor->start(m_settings->endpointURL());

    // 13. Keep trying the microphone and the key tap until both work.
    startInputSetupPollIfNeeded();

    // 14. Edit and quit shortcuts.
    installMainMenu();

    // Without a tray host (GNOME without an extension, some Wayland compositors) the tray menu
    // cannot be reached, so the settings window, which then offers Quit and says why, opens at
    // launch and whenever the tray goes away.
    connect(m_trayAvailability.get(), &TrayAvailability::availabilityChanged, this,
        [this](bool available) {
            Logging::shared().info(QStringLiteral("system tray: ")
                + (available ? QStringLiteral("available") : QStringLiteral("gone")));
            if (!available) {
                showSettings();
            }
        });
    QPointer<TrayAvailability> tray(m_trayAvailability.get());
    m_platform.watchTrayHost(m_trayAvailability.get(), [tray] {
        if (tray) {
            tray->recheck();
        }
    });
    if (!m_trayAvailability->isAvailable()) {
        Logging::shared().info(
            QStringLiteral("no system tray: the settings window stands in for the tray menu"));
        showSettings();
    }
}

void AppDelegate::applicationWillTerminate()
{
    if (m_terminated) {
        return;
    }
    m_terminated = true;
    m_inputSetupPoll.reset();
    if (m_audioCapture) {
        m_audioCapture->setOnRMS({});
    }
    if (m_coordinator) {
        m_coordinator->stop();
    }
    if (m_engineSupervisor) {
        m_engineSupervisor->shutdown();
    }
}

void AppDelegate::terminateNow()
{
    applicationWillTerminate();
    // The supervisor's launcher stops its children and waits for them when it goes.
    m_engineSupervisor.reset();
}

void AppDelegate::startInputSetupPollIfNeeded()
{
    if (m_coordinator->inputReady()) {
        return;
    }
    m_inputSetupPoll = std::make_unique<QTimer>();
    m_inputSetupPoll->setInterval(kInputSetupPollIntervalMs);
    QPointer<AppDelegate> weak(this);
    connect(m_inputSetupPoll.get(), &QTimer::timeout, this, [weak] {
        QMetaObject::invokeMethod(
            weak.data(),
            [weak] {
                if (weak && weak->m_inputSetupPoll
                    && weak->m_coordinator->retryInputSetupIfNeeded()) {
                    weak->m_inputSetupPoll.reset();
                }
            },
            Qt::QueuedConnection);
    });
    m_inputSetupPoll->start();
}

void AppDelegate::installMainMenu()
{
    // On macOS a menu bar without a parent is the application's main menu; elsewhere it stays
    // hidden and its actions reach the app's own windows as shortcuts.
    m_mainMenu = std::make_unique<QMenuBar>();
    QMenu *application = m_mainMenu->addMenu(QStringLiteral("Sayvo"));
    QAction *quit
        = application->addAction(QStringLiteral("Quit ") + QCoreApplication::applicationName(),
            qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setShortcutContext(Qt::ApplicationShortcut);
    quit->setMenuRole(QAction::QuitRole);

    // Text fields handle these keys themselves; the menu names them for the user and routes
    // them to whichever field has the focus.
    QMenu *edit = m_mainMenu->addMenu(QStringLiteral("Edit"));
    struct EditItem
    {
        const char *title;
        QKeySequence keys;
        const char *slot;
    };
    const EditItem items[] = {{"Undo", QKeySequence(Qt::CTRL | Qt::Key_Z), "undo"},
        {"Redo", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), "redo"}, {nullptr, {}, nullptr},
        {"Cut", QKeySequence(Qt::CTRL | Qt::Key_X), "cut"},
        {"Copy", QKeySequence(Qt::CTRL | Qt::Key_C), "copy"},
        {"Paste", QKeySequence(Qt::CTRL | Qt::Key_V), "paste"},
        {"Select All", QKeySequence(Qt::CTRL | Qt::Key_A), "selectAll"}};
    for (const EditItem &item : items) {
        if (item.title == nullptr) {
            edit->addSeparator();
            continue;
        }
        QAction *action = edit->addAction(QString::fromLatin1(item.title));
        action->setShortcut(item.keys);
        // Each of the app's windows carries these actions (prepareWindow). A text field takes
        // its own keys first (it overrides shortcuts for them), so the shortcut fires for the
        // rest, and the menu entry acts on whatever has the focus when it has the command.
        action->setShortcutContext(Qt::WindowShortcut);
        const QByteArray signature = QByteArray(item.slot) + "()";
        const char *slot = item.slot;
        connect(action, &QAction::triggered, this, [slot, signature] {
            QWidget *focus = QApplication::focusWidget();
            if (focus != nullptr && focus->metaObject()->indexOfMethod(signature) >= 0) {
                QMetaObject::invokeMethod(focus, slot);
            }
        });
    }
}

void AppDelegate::prepareWindow(QWidget *window, const QString &title, bool centred)
{
    window->setWindowTitle(title);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    window->setWindowFlag(Qt::WindowMaximizeButtonHint, false);
    if (m_mainMenu) {
        // Quit and the edit commands work in every window.
        for (QAction *menu : m_mainMenu->actions()) {
            for (QAction *action : menu->menu()->actions()) {
                if (!action->isSeparator()) {
                    window->addAction(action);
                }
            }
        }
    }
    if (centred) {
        if (QScreen *screen = QGuiApplication::primaryScreen()) {
            window->move(screen->availableGeometry().center() - window->rect().center());
        }
    }
    emit windowCreated(window);
}

void AppDelegate::quit()
{
    m_mainMenu->actions().constFirst()->menu()->actions().constFirst()->trigger();
}

void AppDelegate::bringToFront(QWidget *window)
{
    activateIgnoringOtherApps();
    window->show();
    window->raise();
    window->activateWindow();
}

void AppDelegate::updateCapability(const DesktopCapabilityStatus &status)
{
    m_desktop.plan.setStatus(status);
    Logging::shared().info(m_desktop.plan.logLine(status));
    if (auto *settings = qobject_cast<SettingsWindow *>(m_settingsWindow.get())) {
        settings->setDesktopCapabilities(m_desktop.plan.capabilities);
    }
}

void AppDelegate::showSettings()
{
    if (!m_settingsWindow) {
        QPointer<AppDelegate> weak(this);
        m_settingsWindow
            = makeSettingsWindow(*m_settings, *m_usageStats, *m_coordinator, *m_engineSupervisor,
                *m_permissions, *m_trayAvailability, m_desktop.plan.capabilities, [weak] {
                    if (weak) {
                        weak->quit();
                    }
                });
        if (auto *settings = qobject_cast<SettingsWindow *>(m_settingsWindow.get())) {
            settings->desktopCapabilities()->setOnAskAgain([this](DesktopCapability capability) {
                if (capability == DesktopCapability::keystrokes) {
                    m_desktop.keystrokeConsent->askAgain();
                }
            });
        }
        prepareWindow(m_settingsWindow.get(), QStringLiteral("Settings"), true);
    }
    bringToFront(m_settingsWindow.get());
}

void AppDelegate::showSetup()
{
    if (!m_setupWindow) {
        m_setupWindow = makeSetupWindow(*m_engineSupervisor);
        prepareWindow(m_setupWindow.get(), QStringLiteral("Sayvo Engine"), true);
    }
    if (m_setupWindow->isVisible()) {
        return;
    }
    bringToFront(m_setupWindow.get());
}

void AppDelegate::showCalibration()
{
    if (!m_calibrationWindow) {
        m_calibrationWindow = makeCalibrationWindow(*m_coordinator, *m_engineClient, *m_settings);
        prepareWindow(m_calibrationWindow.get(), QStringLiteral("Accuracy Calibration"), false);
    }
    bringToFront(m_calibrationWindow.get());
}

} // namespace sayvo
