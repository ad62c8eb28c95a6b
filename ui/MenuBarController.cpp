#include "ui/MenuBarController.h"

#include "base/Logging.h"
#include "runtime/EngineSupervisor.h"
#include "session/SayvoCoordinator.h"
#include "ui/LoginItem.h"
#include "ui/PlatformTexts.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QMenu>
#include <QMessageBox>
#include <QPalette>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>

#include <algorithm>

namespace sayvo {

const QStringList MenuBarController::kDomains = {QStringLiteral("legal"), QStringLiteral("email"),
    QStringLiteral("casual"), QStringLiteral("default")};

MenuBarController::MenuBarController(SayvoCoordinator &coordinator,
    EngineSupervisor &engineSupervisor, HotkeyTrigger trigger, Action openSettings,
    Action openSetup, Action openCalibration, std::unique_ptr<LoginItem> loginItem, QObject *parent)
    : QObject(parent),
      m_coordinator(coordinator),
      m_engineSupervisor(engineSupervisor),
      m_trigger(trigger),
      m_openSettings(std::move(openSettings)),
      m_openSetup(std::move(openSetup)),
      m_openCalibration(std::move(openCalibration)),
      m_loginItem(std::move(loginItem)),
      m_menu(std::make_unique<QMenu>()),
      m_trayIcon(new QSystemTrayIcon(this))
{
    m_trayIcon->setToolTip(QStringLiteral("Sayvo"));
    buildMenu();
    // The secondary click always opens the menu, whatever the primary click does.
    m_trayIcon->setContextMenu(m_menu.get());
    connect(m_trayIcon, &QSystemTrayIcon::activated, this,
        [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger) {
                handleActivation();
            }
        });

    m_connectionHealth = m_coordinator.connectionHealth();
    m_engineState = m_engineSupervisor.state();
    connect(&m_coordinator, &SayvoCoordinator::stateChanged, this, &MenuBarController::refresh);
    connect(&m_coordinator, &SayvoCoordinator::connectionHealthChanged, this,
        [this](const EngineConnectionHealth &health) {
            m_connectionHealth = health;
            refresh();
        });
    connect(&m_engineSupervisor, &EngineSupervisor::stateChanged, this,
        [this](const EngineState &state) {
            m_engineState = state;
            refresh();
        });
    refresh();
    m_trayIcon->show();
    // The tray gives the icon its place a moment after it is shown; the panel is read then.
    m_panelProbe.setInterval(kPanelProbeIntervalMs);
    connect(&m_panelProbe, &QTimer::timeout, this, &MenuBarController::samplePanel);
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_panelProbe.start();
    }
    connect(m_menu.get(), &QMenu::aboutToShow, this,
        [] { Logging::shared().debug(QStringLiteral("tray menu opened")); });
}

QColor MenuBarController::inkFor(const std::optional<QColor> &panel)
{
    const QColor light(0xf2, 0xf2, 0xf2);
    const QColor dark(0x1d, 0x1d, 0x1f);
    if (!panel) {
        return light;
    }
    return WindowStyle::contrastRatio(light, *panel) >= WindowStyle::contrastRatio(dark, *panel)
        ? light
        : dark;
}

std::optional<QColor> MenuBarController::panelColourAround(const QImage &iconArea)
{
    if (iconArea.width() < 2 || iconArea.height() < 2) {
        return std::nullopt;
    }
    const int right = iconArea.width() - 1;
    const int bottom = iconArea.height() - 1;
    QList<QColor> corners {iconArea.pixelColor(0, 0), iconArea.pixelColor(right, 0),
        iconArea.pixelColor(0, bottom), iconArea.pixelColor(right, bottom)};
    // The middle two by lightness: one corner touched by the icon does not decide.
    std::sort(corners.begin(), corners.end(),
        [](const QColor &a, const QColor &b) { return a.lightnessF() < b.lightnessF(); });
    const QColor a = corners[1];
    const QColor b = corners[2];
    return QColor((a.red() + b.red()) / 2, (a.green() + b.green()) / 2, (a.blue() + b.blue()) / 2);
}

void MenuBarController::samplePanel()
{
    const bool lastAttempt = ++m_panelProbes >= kPanelProbeAttempts;
    if (lastAttempt) {
        m_panelProbe.stop();
    }
    const QRect place = m_trayIcon->geometry();
    QScreen *screen = place.isValid() ? QGuiApplication::screenAt(place.center()) : nullptr;
    if (screen == nullptr) {
        return;
    }
    const QRect onScreen = place.translated(-screen->geometry().topLeft());
    const std::optional<QColor> colour = panelColourAround(
        screen->grabWindow(0, onScreen.x(), onScreen.y(), onScreen.width(), onScreen.height())
            .toImage());
    // A panel that has just taken the icon in may still move it or not have painted its
    // background yet (later still on a busy machine): the reading counts once it holds.
    const std::pair<QRect, std::optional<QColor>> reading {place, colour};
    const bool settled = m_lastPanelReading == reading;
    m_lastPanelReading = reading;
    if (!settled && !lastAttempt) {
        return;
    }
    m_panelProbe.stop();
    m_panelColour = colour;
    Logging::shared().debug(
        QStringLiteral("tray panel colour: %1 at %2,%3 %4x%5")
            .arg(m_panelColour ? m_panelColour->name() : QStringLiteral("unknown"))
            .arg(place.x())
            .arg(place.y())
            .arg(place.width())
            .arg(place.height()));
    refresh();
}

MenuBarController::~MenuBarController() = default;

void MenuBarController::buildMenu()
{
    m_statusMenuItem = m_menu->addAction(statusTitle());
    m_statusMenuItem->setEnabled(false);
    m_menu->addSeparator();
    m_menu->addAction(
        QString::fromUtf8("Calibrate Accuracy…"), this, &MenuBarController::openCalibrationWindow);

    QMenu *domains = m_menu->addMenu(QStringLiteral("Domain"));
    domains->addAction(QStringLiteral("Auto (unpinned)"), this, &MenuBarController::unpinDomain);
    for (const QString &domain : kDomains) {
        QAction *item = domains->addAction(domain.left(1).toUpper() + domain.mid(1));
        item->setData(domain);
        connect(item, &QAction::triggered, this, [this, item] { pinDomain(item); });
    }
    m_menu->addSeparator();
    m_menu->addAction(
        QString::fromUtf8("Engine Setup…"), this, &MenuBarController::handleOpenSetup);
    m_menu->addAction(
        QStringLiteral("Restart Engine"), this, &MenuBarController::handleRestartEngine);
    m_menu->addSeparator();
    QAction *settings = m_menu->addAction(
        QString::fromUtf8("Settings…"), this, &MenuBarController::handleOpenSettings);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    if (QFileInfo::exists(
            m_engineSupervisor.locator().payloadDir() + QStringLiteral("/scripts/uninstall.sh"))) {
        m_menu->addAction(
            QString::fromUtf8("Uninstall…"), this, &MenuBarController::handleUninstall);
    }
    m_menu->addSeparator();
    QAction *quit = m_menu->addAction(QStringLiteral("Quit"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

QString MenuBarController::iconSymbol(
    const AppState &state, const EngineConnectionHealth &health, const EngineState &engineState)
{
    if (state.is<AppState::Listening>()) {
        return QStringLiteral("mic.fill");
    }
    if (state.is<AppState::Error>()) {
        return QStringLiteral("exclamationmark.triangle");
    }
    if (state.is<AppState::Processing>()) {
        return QStringLiteral("waveform");
    }
    if (state.is<AppState::EmptyTranscript>()) {
        return QStringLiteral("mic.slash");
    }
    if (const auto *connected = health.as<EngineConnectionHealth::Connected>()) {
        return connected->mockBackends ? QStringLiteral("exclamationmark.triangle.fill")
                                       : QStringLiteral("mic");
    }
    if (health.is<EngineConnectionHealth::Offline>()) {
        const bool starting = std::holds_alternative<engine_state::Provisioning>(engineState)
            || std::holds_alternative<engine_state::Running>(engineState);
        return starting ? QStringLiteral("waveform.circle") : QStringLiteral("mic.slash");
    }
    return QStringLiteral("mic");
}

QString MenuBarController::statusTitle() const
{
    return statusTitle(m_connectionHealth, m_engineState);
}

QString MenuBarController::statusTitle(
    const EngineConnectionHealth &health, const EngineState &engineState)
{
    if (const auto *connected = health.as<EngineConnectionHealth::Connected>();
        connected != nullptr && connected->mockBackends) {
        return QString::fromUtf8("Engine: mock mode (no transcription) — restart");
    }
    return std::visit(
        [](const auto &s) -> QString {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, engine_state::Provisioning>) {
                return QStringLiteral("Engine: setting up (%1%)").arg(s.percent);
            } else if constexpr (std::is_same_v<T, engine_state::NeedsPrerequisite>) {
                return QStringLiteral("Engine: action needed");
            } else if constexpr (std::is_same_v<T, engine_state::Failed>) {
                return QStringLiteral("Engine: stopped");
            } else if constexpr (std::is_same_v<T, engine_state::Idle>) {
                return QString::fromUtf8("Engine: starting…");
            } else if constexpr (std::is_same_v<T, engine_state::RemoteEndpoint>) {
                return QStringLiteral("Engine: remote");
            } else if constexpr (std::is_same_v<T, engine_state::MissingPayload>) {
                return QStringLiteral("Engine: start manually");
            } else if constexpr (std::is_same_v<T, engine_state::NeedsSetup>) {
                return QStringLiteral("Engine: setup required");
            } else {
                return QStringLiteral("Sayvo");
            }
        },
        engineState);
}

void MenuBarController::refresh()
{
    m_iconSymbol = iconSymbol(m_coordinator.state(), m_connectionHealth, m_engineState);
    // The panel, not the windows' palette, decides: a dark panel under a light window theme
    // is the common case.
    m_ink = inkFor(m_panelColour);
    m_trayIcon->setIcon(m_icons.icon(m_iconSymbol, m_ink));
    m_statusMenuItem->setText(statusTitle());
}

void MenuBarController::handleActivation()
{
    if (m_trigger == HotkeyTrigger::menuBarToggle) {
        m_coordinator.toggleDictation();
        return;
    }
    const QRect geometry = m_trayIcon->geometry();
    m_menu->popup(geometry.isValid() ? geometry.bottomLeft() : QCursor::pos());
}

void MenuBarController::openCalibrationWindow()
{
    if (m_openCalibration) {
        m_openCalibration();
    }
}

void MenuBarController::unpinDomain()
{
    m_coordinator.unpinDomain();
}

void MenuBarController::pinDomain(QAction *item)
{
    const QVariant domain = item != nullptr ? item->data() : QVariant();
    if (domain.typeId() != QMetaType::QString) {
        return;
    }
    m_coordinator.pin(domain.toString());
}

void MenuBarController::handleOpenSetup()
{
    if (m_openSetup) {
        m_openSetup();
    }
}

void MenuBarController::handleRestartEngine()
{
    m_engineSupervisor.restartEngine();
}

void MenuBarController::handleOpenSettings()
{
    if (m_openSettings) {
        m_openSettings();
    }
}

void MenuBarController::handleUninstall()
{
    QMessageBox alert;
    alert.setIcon(QMessageBox::Warning);
    alert.setText(QStringLiteral("Uninstall Sayvo?"));
    QString informative
        = PlatformTexts::uninstallSummary(m_engineSupervisor.locator().installRoot());
    if (m_engineSupervisor.isDevRuntime()) {
        informative += PlatformTexts::uninstallDevelopmentNote();
    }
    alert.setInformativeText(informative);
    QCheckBox *removeModels = nullptr;
    if (const std::optional<QString> option = PlatformTexts::uninstallSharedModelsOption()) {
        removeModels = new QCheckBox(*option);
        alert.setCheckBox(removeModels);
    }
    QPushButton *uninstall = alert.addButton(QStringLiteral("Uninstall"), QMessageBox::AcceptRole);
    alert.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    alert.setDefaultButton(uninstall);
    alert.activateWindow();
    alert.raise();
    emit alertShown(&alert);
    alert.exec();
    if (alert.clickedButton() != uninstall) {
        return;
    }
    if (m_engineSupervisor.performUninstall(removeModels != nullptr && removeModels->isChecked())) {
        // The entry Sayvo wrote would start a program that is about to be gone.
        if (m_loginItem) {
            m_loginItem->setEnabled(false);
        }
        QCoreApplication::quit();
        return;
    }
    QMessageBox failure;
    failure.setIcon(QMessageBox::Warning);
    failure.setText(QStringLiteral("Couldn't start the uninstaller"));
    failure.setInformativeText(
        PlatformTexts::uninstallFailure({m_engineSupervisor.locator().uninstallScript(),
            m_engineSupervisor.locator().installRoot(), m_engineSupervisor.applicationPath()}));
    failure.setTextInteractionFlags(Qt::TextSelectableByMouse);
    emit alertShown(&failure);
    failure.exec();
}

} // namespace sayvo
