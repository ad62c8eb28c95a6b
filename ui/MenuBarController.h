#pragma once

#include "runtime/EngineState.h"
#include "session/AppState.h"
#include "session/EngineConnectionHealth.h"
#include "store/HotkeyTrigger.h"
#include "ui/SymbolIconSet.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <optional>
#include <utility>

#include <functional>
#include <memory>

class QAction;
class QImage;
class QMenu;
class QMessageBox;
class QSystemTrayIcon;

namespace sayvo {

class EngineSupervisor;
class LoginItem;
class SayvoCoordinator;

// The tray icon and its menu: an icon that says at a glance whether Sayvo is listening,
// processing, in trouble or without an engine, and the engine status line with the engine,
// domain, calibration, settings, uninstall and quit commands. Main thread only.
class MenuBarController : public QObject
{
    Q_OBJECT

public:
    using Action = std::function<void()>;

    // The pinnable domains, in menu order.
    static const QStringList kDomains;
    static constexpr int kPanelProbeIntervalMs = 500;
    static constexpr int kPanelProbeAttempts = 20;

    // With the trigger `menuBarToggle`, a primary click on the icon starts and ends dictation
    // and the menu opens on the secondary click; otherwise any click opens the menu. The
    // login item, when given, is removed once the uninstaller has started.
    MenuBarController(SayvoCoordinator &coordinator, EngineSupervisor &engineSupervisor,
        HotkeyTrigger trigger, Action openSettings, Action openSetup, Action openCalibration,
        std::unique_ptr<LoginItem> loginItem = nullptr, QObject *parent = nullptr);
    ~MenuBarController() override;

    QString statusTitle() const;
    // The engine status line for a connection health and engine state.
    static QString statusTitle(
        const EngineConnectionHealth &health, const EngineState &engineState);
    // The symbol the icon shows for a dictation state, connection health and engine state.
    static QString iconSymbol(const AppState &state, const EngineConnectionHealth &health,
        const EngineState &engineState);
    QString currentIconSymbol() const { return m_iconSymbol; }
    // The colour the icon is drawn in: light on a dark panel, dark on a light one.
    QColor currentInk() const { return m_ink; }
    // The ink for a panel of this colour; without one known, the light ink of the dark panels
    // most desktops have (GNOME's top bar, KDE's default panel, tiling bars).
    static QColor inkFor(const std::optional<QColor> &panel);
    // The panel's colour around an icon, from the pixels at the corners of its place on
    // screen, where the icon itself does not draw.
    static std::optional<QColor> panelColourAround(const QImage &iconArea);

    QMenu *menu() const { return m_menu.get(); }
    QSystemTrayIcon *trayIcon() const { return m_trayIcon; }
    QAction *statusMenuItem() const { return m_statusMenuItem; }

    // Menu actions.
    void openCalibrationWindow();
    void unpinDomain();
    void pinDomain(QAction *item);
    void handleOpenSetup();
    void handleRestartEngine();
    void handleOpenSettings();
    void handleUninstall();
    // What a primary click on the icon does.
    void handleActivation();

signals:
    // An alert (the uninstall question, or why it failed) is about to run modally; tests
    // answer it from here.
    void alertShown(QMessageBox *alert);

private:
    void buildMenu();
    void refresh();
    // Reads the panel's colour once the tray has given the icon its place.
    void samplePanel();

    SayvoCoordinator &m_coordinator;
    EngineSupervisor &m_engineSupervisor;
    HotkeyTrigger m_trigger;
    Action m_openSettings;
    Action m_openSetup;
    Action m_openCalibration;
    std::unique_ptr<LoginItem> m_loginItem;

    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_trayIcon = nullptr; // child
    QAction *m_statusMenuItem = nullptr;
    EngineState m_engineState = engine_state::Idle {};
    EngineConnectionHealth m_connectionHealth;
    QString m_iconSymbol;
    QColor m_ink;
    SymbolIconSet m_icons;
    std::optional<QColor> m_panelColour;
    QTimer m_panelProbe;
    int m_panelProbes = 0;
    // The previous probe's place and colour: a reading counts once the next one agrees.
    std::optional<std::pair<QRect, std::optional<QColor>>> m_lastPanelReading;
};

} // namespace sayvo
