#include "ui/MenuBarController.h"
#include "runtime/EngineSupervisor.h"
#include "support/runtime/FakeChildProcess.h"
#include "support/runtime/RuntimeSandbox.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/SymbolIcon.h"
#include "ui/WindowStyle.h"
#include "ui/linux/LoginItemXdg.h"

#include <QAction>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using sayvo::test::CoordinatorHarness;

namespace {

using Health = EngineConnectionHealth;
namespace es = engine_state;

class MenuBarTest : public ::testing::Test
{
protected:
    void makeController(const QString &uninstallScript = QString(),
        HotkeyTrigger trigger = HotkeyTrigger::f5, std::unique_ptr<LoginItem> login = nullptr)
    {
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"),
            QStringLiteral("bootstrap_success.sh"), uninstallScript);
        EngineSupervisor::Options options;
        auto launcher = std::make_unique<sayvo::test::FakeChildProcessLauncher>();
        launches = launcher->log;
        options.launcher = std::move(launcher);
        options.portProbe = [this](const QString &, int) { return portOpen; };
        supervisor = std::make_unique<EngineSupervisor>(sandbox.locator(), std::move(options));
        controller = std::make_unique<MenuBarController>(
            *h.coordinator, *supervisor, trigger, [this] { ++settingsOpened; },
            [this] { ++setupOpened; }, [this] { ++calibrationOpened; }, std::move(login));
    }

    // Answers the alerts as they come, one button title each, in order; `look` sees each alert
    // before it is answered.
    void answerAlerts(QStringList buttons, std::function<void(QMessageBox *)> look = {})
    {
        QObject::connect(
            controller.get(), &MenuBarController::alertShown, controller.get(),
            [this, buttons, look](QMessageBox *alert) mutable {
                alertTitles.append(alert->text());
                if (look) {
                    look(alert);
                }
                const QString wanted = buttons.isEmpty() ? QString() : buttons.takeFirst();
                for (QAbstractButton *button : alert->buttons()) {
                    if (button->text().remove(QLatin1Char('&')) == wanted) {
                        button->click();
                        return;
                    }
                }
                alert->reject();
            },
            Qt::QueuedConnection);
    }

    QStringList menuTitles(QMenu *menu) const
    {
        QStringList titles;
        for (QAction *action : menu->actions()) {
            titles << (action->isSeparator() ? QStringLiteral("---") : action->text());
        }
        return titles;
    }

    QAction *item(const QString &title, QMenu *menu = nullptr) const
    {
        for (QAction *action : (menu != nullptr ? menu : controller->menu())->actions()) {
            if (action->text() == title) {
                return action;
            }
        }
        return nullptr;
    }

    CoordinatorHarness h;
    sayvo::test::RuntimeSandbox sandbox;
    std::shared_ptr<sayvo::test::FakeChildProcessLauncher::Log> launches;
    bool portOpen = false;
    std::unique_ptr<EngineSupervisor> supervisor;
    std::unique_ptr<MenuBarController> controller;
    int settingsOpened = 0;
    int setupOpened = 0;
    int calibrationOpened = 0;
    QStringList alertTitles;
};

} // namespace

TEST(MenuBarIconTest, TheIconFollowsTheStateFirstThenHealthAndEngine)
{
    const EngineState running = es::Running {};
    EXPECT_EQ(MenuBarController::iconSymbol(AppState::listening("x"), Health::offline(), running),
        "mic.fill");
    EXPECT_EQ(
        MenuBarController::iconSymbol(AppState::error("x"), Health::connected(false), running),
        "exclamationmark.triangle");
    EXPECT_EQ(
        MenuBarController::iconSymbol(AppState::processing(), Health::connected(false), running),
        "waveform");
    EXPECT_EQ(MenuBarController::iconSymbol(
                  AppState::emptyTranscript(), Health::connected(false), running),
        "mic.slash");
    for (const AppState &quiet : {AppState::idle(), AppState::success("t", false)}) {
        EXPECT_EQ(MenuBarController::iconSymbol(quiet, Health::connected(true), running),
            "exclamationmark.triangle.fill");
        EXPECT_EQ(MenuBarController::iconSymbol(quiet, Health::connected(false), running), "mic");
        EXPECT_EQ(MenuBarController::iconSymbol(quiet, Health::idle(), es::Failed {"x"}), "mic");
        EXPECT_EQ(
            MenuBarController::iconSymbol(quiet, Health::connecting(), es::NeedsSetup {}), "mic");
        EXPECT_EQ(
            MenuBarController::iconSymbol(quiet, Health::offline(), es::Provisioning {40, "m"}),
            "waveform.circle");
        EXPECT_EQ(
            MenuBarController::iconSymbol(quiet, Health::offline(), running), "waveform.circle");
        for (const EngineState &other :
            {EngineState {es::NeedsPrerequisite {"t", "m"}}, EngineState {es::Failed {"m"}},
                EngineState {es::Idle {}}, EngineState {es::RemoteEndpoint {}},
                EngineState {es::MissingPayload {}}, EngineState {es::NeedsSetup {}}}) {
            EXPECT_EQ(MenuBarController::iconSymbol(quiet, Health::offline(), other), "mic.slash")
                << describe(other).toStdString();
        }
    }
}

TEST(MenuBarIconTest, EveryIconHasItsSymbol)
{
    for (const char *name :
        {"mic", "mic.fill", "mic.slash", "waveform", "waveform.circle", "exclamationmark.triangle",
            "exclamationmark.triangle.fill", "checkmark.circle.fill"}) {
        EXPECT_TRUE(SymbolIcon::exists(QString::fromLatin1(name))) << name;
        EXPECT_FALSE(SymbolIcon::icon(QString::fromLatin1(name), Qt::white).isNull()) << name;
    }
}

TEST(MenuBarInkTest, TheInkContrastsWithThePanel)
{
    for (const QColor &panel : {QColor(0x20, 0x21, 0x24), QColor(0x30, 0x30, 0x60),
             QColor(0xf0, 0xf0, 0xf0), QColor(0xdd, 0xdd, 0xaa)}) {
        EXPECT_GE(WindowStyle::contrastRatio(MenuBarController::inkFor(panel), panel), 7.0)
            << panel.name().toStdString();
    }
    EXPECT_GT(MenuBarController::inkFor(std::nullopt).lightnessF(), 0.9)
        << "unknown panels are taken to be dark, as most are";
}

TEST(MenuBarInkTest, ThePanelColourComesFromTheCornersTheIconLeavesFree)
{
    QImage area(QSize(22, 22), QImage::Format_RGB32);
    area.fill(QColor(0x20, 0x21, 0x24));
    QPainter painter(&area);
    painter.fillRect(QRect(8, 3, 6, 16), Qt::white); // the glyph
    painter.fillRect(QRect(18, 18, 4, 4), Qt::white); // and one corner it reaches
    painter.end();
    EXPECT_EQ(MenuBarController::panelColourAround(area), QColor(0x20, 0x21, 0x24));
    EXPECT_FALSE(MenuBarController::panelColourAround(QImage()).has_value());
}

TEST(MenuBarStatusTest, TheStatusLineForEveryCase)
{
    const Health offline = Health::offline();
    EXPECT_EQ(MenuBarController::statusTitle(Health::connected(true), es::Running {}),
        QString::fromUtf8("Engine: mock mode (no transcription) — restart"));
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::Provisioning {40, "Downloading"}),
        "Engine: setting up (40%)");
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::NeedsPrerequisite {"model", "m"}),
        "Engine: action needed");
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::Failed {"m"}), "Engine: stopped");
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::Idle {}),
        QString::fromUtf8("Engine: starting…"));
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::RemoteEndpoint {}), "Engine: remote");
    EXPECT_EQ(
        MenuBarController::statusTitle(offline, es::MissingPayload {}), "Engine: start manually");
    EXPECT_EQ(MenuBarController::statusTitle(offline, es::NeedsSetup {}), "Engine: setup required");
    EXPECT_EQ(MenuBarController::statusTitle(Health::connected(false), es::Running {}), "Sayvo");
}

TEST_F(MenuBarTest, TheMenuHasEveryItemInOrder)
{
    makeController();
    EXPECT_EQ(menuTitles(controller->menu()),
        (QStringList {QString::fromUtf8("Engine: starting…"), "---",
            QString::fromUtf8("Calibrate Accuracy…"), "Domain", "---",
            QString::fromUtf8("Engine Setup…"), "Restart Engine", "---",
            QString::fromUtf8("Settings…"), "---", "Quit"}));
    EXPECT_FALSE(controller->statusMenuItem()->isEnabled());
    QMenu *domains = item("Domain")->menu();
    ASSERT_NE(domains, nullptr);
    EXPECT_EQ(menuTitles(domains),
        (QStringList {"Auto (unpinned)", "Legal", "Email", "Casual", "Default"}));
    EXPECT_EQ(item("Legal", domains)->data().toString(), "legal");
    EXPECT_FALSE(item("Legal", domains)->isCheckable());
    EXPECT_EQ(
        item(QString::fromUtf8("Settings…"))->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    EXPECT_EQ(item("Quit")->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    EXPECT_EQ(controller->currentIconSymbol(), "mic");
    EXPECT_EQ(controller->trayIcon()->toolTip(), "Sayvo");
    EXPECT_EQ(controller->currentInk(), MenuBarController::inkFor(std::nullopt))
        << "the windows' palette does not decide the tray's ink";
}

TEST_F(MenuBarTest, WithTheUninstallScriptTheMenuOffersUninstall)
{
    makeController(QStringLiteral("run_engine_stays.sh"));
    EXPECT_NE(item(QString::fromUtf8("Uninstall…")), nullptr);
}

TEST_F(MenuBarTest, ItemsCallTheirActions)
{
    makeController();
    item(QString::fromUtf8("Calibrate Accuracy…"))->trigger();
    item(QString::fromUtf8("Engine Setup…"))->trigger();
    item(QString::fromUtf8("Settings…"))->trigger();
    EXPECT_EQ(calibrationOpened, 1);
    EXPECT_EQ(setupOpened, 1);
    EXPECT_EQ(settingsOpened, 1);

    QMenu *domains = item("Domain")->menu();
    item("Email", domains)->trigger();
    EXPECT_EQ(h.coordinator->pinnedDomain(), QStringLiteral("email"));
    item("Auto (unpinned)", domains)->trigger();
    EXPECT_FALSE(h.coordinator->pinnedDomain());
    QAction stray(QStringLiteral("stray"));
    stray.setData(42);
    controller->pinDomain(&stray); // not a string: ignored
    EXPECT_FALSE(h.coordinator->pinnedDomain());
}

TEST_F(MenuBarTest, ProvisioningAtFortyPercentWhileOfflineShowsTheSpinnerIcon)
{
    sandbox.writePayload(
        QStringLiteral("run_engine_stays.sh"), QStringLiteral("bootstrap_slow.sh"));
    makeController();
    h.engine.stopListening();
    h.client->updateEndpoint(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(h.engine.port())));
    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth() == Health::offline(); }, 5000));
    supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    supervisor->beginProvisioning();
    ASSERT_FALSE(launches->started.isEmpty());
    launches->started.back()->write("PROGRESS 40 Downloading the speech model\n");
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return std::holds_alternative<es::Provisioning>(supervisor->state())
                && std::get<es::Provisioning>(supervisor->state()).percent == 40;
        },
        5000));
    EXPECT_EQ(controller->currentIconSymbol(), "waveform.circle");
    EXPECT_EQ(controller->statusMenuItem()->text(), "Engine: setting up (40%)");
}

TEST_F(MenuBarTest, AMockEngineShowsTheWarningEvenWhileRunning)
{
    h.engine.setHelloAckBackends(Backends {"mock", std::nullopt, std::nullopt});
    portOpen = true; // an engine already listens: the supervisor reports running
    makeController();
    supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    ASSERT_TRUE(std::holds_alternative<es::Running>(supervisor->state()));
    ASSERT_TRUE(h.startAndConnect());
    EXPECT_EQ(controller->currentIconSymbol(), "exclamationmark.triangle.fill");
    EXPECT_EQ(controller->statusMenuItem()->text(),
        QString::fromUtf8("Engine: mock mode (no transcription) — restart"));
}

TEST_F(MenuBarTest, AfterASuccessWithAHealthyEngineTheIconIsTheMicAgain)
{
    makeController();
    ASSERT_TRUE(h.startAndConnect());
    h.answerWith(CoordinatorHarness::finalWithText("Done."));
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(controller->currentIconSymbol(), "mic.fill");
    h.speak(CoordinatorHarness::tone(3200));
    h.coordinator->handleTriggerUp();
    EXPECT_EQ(controller->currentIconSymbol(), "waveform");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Success>(); }, 5000));
    EXPECT_EQ(controller->currentIconSymbol(), "mic");
}

TEST_F(MenuBarTest, RestartEngineRestartsTheSupervisorForItsEndpoint)
{
    makeController();
    supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    sandbox.provision(QStringLiteral("1.0.0"));
    supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    const int before = static_cast<int>(launches->started.size());
    item("Restart Engine")->trigger();
    EXPECT_GT(static_cast<int>(launches->started.size()), before);
    EXPECT_TRUE(std::holds_alternative<es::Running>(supervisor->state()));
}

TEST_F(MenuBarTest, TheUninstallAlertSaysWhatGoesAndCancelChangesNothing)
{
    makeController(QStringLiteral("run_engine_stays.sh"));
    QString shownText;
    bool hasCheckBox = true;
    answerAlerts({QStringLiteral("Cancel")}, [&](QMessageBox *alert) {
        shownText = alert->informativeText();
        hasCheckBox = alert->checkBox() != nullptr;
    });
    controller->handleUninstall();
    EXPECT_EQ(alertTitles, QStringList {"Uninstall Sayvo?"});
    EXPECT_EQ(shownText,
        QStringLiteral("This removes the app, its engine runtime (%1), the autostart entry, and "
                       "your saved preferences. The speech model belongs to the pocketsphinx-en-us "
                       "package and stays installed.")
            .arg(sandbox.installRoot()));
    EXPECT_FALSE(hasCheckBox) << "set-up downloaded no models, so none are offered for removal";
    EXPECT_TRUE(launches->detached.isEmpty());
}

TEST_F(MenuBarTest, UninstallStartsTheUninstallerAndRemovesTheAutostartEntry)
{
    QTemporaryDir config;
    LoginItemXdg login(config.path(), QStringLiteral("/usr/bin/sayvo"));
    ASSERT_TRUE(login.setEnabled(true));
    makeController(QStringLiteral("run_engine_stays.sh"), HotkeyTrigger::f5,
        std::make_unique<LoginItemXdg>(config.path(), QStringLiteral("/usr/bin/sayvo")));
    answerAlerts({QStringLiteral("Uninstall")});
    controller->handleUninstall();
    ASSERT_EQ(launches->detached.size(), 1);
    EXPECT_FALSE(launches->detached[0].launch.arguments.contains(QStringLiteral("--purge-shared")))
        << launches->detached[0].launch.arguments.join(' ').toStdString();
    EXPECT_FALSE(login.isEnabled()) << "the entry would start a program that is gone";
    EXPECT_EQ(alertTitles.size(), 1);
}

TEST_F(MenuBarTest, UninstallWithoutAnAutostartEntryStillStarts)
{
    QTemporaryDir config;
    makeController(QStringLiteral("run_engine_stays.sh"), HotkeyTrigger::f5,
        std::make_unique<LoginItemXdg>(config.path(), QStringLiteral("/usr/bin/sayvo")));
    answerAlerts({QStringLiteral("Uninstall")});
    controller->handleUninstall();
    EXPECT_EQ(launches->detached.size(), 1);
    EXPECT_FALSE(QFile::exists(config.path() + QStringLiteral("/autostart")));
}

TEST_F(MenuBarTest, AnUninstallerThatCannotStartSaysHowToRunItByHand)
{
    QTemporaryDir config;
    LoginItemXdg login(config.path(), QStringLiteral("/usr/bin/sayvo"));
    ASSERT_TRUE(login.setEnabled(true));
    makeController(QStringLiteral("run_engine_stays.sh"), HotkeyTrigger::f5,
        std::make_unique<LoginItemXdg>(config.path(), QStringLiteral("/usr/bin/sayvo")));
    launches->failDetachedWith = QStringLiteral("no shell");
    QString failureText;
    answerAlerts({QStringLiteral("Uninstall"), QStringLiteral("OK")},
        [&](QMessageBox *alert) { failureText = alert->informativeText(); });
    controller->handleUninstall();
    EXPECT_EQ(alertTitles,
        (QStringList {"Uninstall Sayvo?", QString::fromUtf8("Couldn't start the uninstaller")}));
    EXPECT_EQ(failureText,
        QStringLiteral("Nothing was removed. To uninstall by hand, quit Sayvo and run in a "
                       "terminal:\n\nbash '%1/scripts/uninstall.sh' --yes --install-root '%2' "
                       "--app '%3'")
            .arg(sandbox.payloadDir(), sandbox.installRoot(), supervisor->applicationPath()));
    EXPECT_TRUE(login.isEnabled()) << "Sayvo is still installed, so it still starts at login";
}

TEST_F(MenuBarTest, AnUninstallerRemovedAfterTheMenuWasBuiltIsReportedNotRun)
{
    makeController(QStringLiteral("run_engine_stays.sh"));
    ASSERT_TRUE(QFile::remove(sandbox.payloadDir() + QStringLiteral("/scripts/uninstall.sh")));
    answerAlerts({QStringLiteral("Uninstall"), QStringLiteral("OK")});
    controller->handleUninstall();
    EXPECT_EQ(alertTitles.size(), 2);
    EXPECT_TRUE(launches->detached.isEmpty());
}

TEST_F(MenuBarTest, AnUnwritableTemporaryFolderIsReportedNotRun)
{
    makeController(QStringLiteral("run_engine_stays.sh"));
    // A temporary "folder" that is a file: nothing can be copied into it, even as root.
    QTemporaryDir scratch;
    const QString notAFolder = scratch.filePath(QStringLiteral("file"));
    QFile file(notAFolder);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    const QByteArray previous = qgetenv("TMPDIR");
    qputenv("TMPDIR", notAFolder.toUtf8());
    answerAlerts({QStringLiteral("Uninstall"), QStringLiteral("OK")});
    controller->handleUninstall();
    qputenv("TMPDIR", previous);
    EXPECT_EQ(alertTitles.size(), 2);
    EXPECT_TRUE(launches->detached.isEmpty());
}

TEST_F(MenuBarTest, WithTheTrayAsTriggerAClickTogglesDictation)
{
    makeController(QString(), HotkeyTrigger::menuBarToggle);
    ASSERT_TRUE(h.startAndConnect());
    h.answerNothing();
    EXPECT_EQ(controller->trayIcon()->contextMenu(), controller->menu());
    controller->handleActivation();
    EXPECT_TRUE(h.coordinator->state().is<AppState::Listening>());
    controller->handleActivation();
    EXPECT_TRUE(h.coordinator->state().is<AppState::Processing>());
}

TEST_F(MenuBarTest, WithAKeyAsTriggerAClickOpensTheMenu)
{
    makeController();
    EXPECT_EQ(controller->trayIcon()->contextMenu(), controller->menu())
        << "the secondary click opens the menu too";
    controller->handleActivation();
    EXPECT_TRUE(controller->menu()->isVisible());
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    controller->menu()->hide();
}

TEST_F(MenuBarTest, ScreenshotOfTheMenu)
{
    makeController(QStringLiteral("run_engine_stays.sh"));
    ASSERT_TRUE(h.startAndConnect());
    portOpen = true;
    supervisor->start(QUrl(QStringLiteral("ws://127.0.0.1:8765")));
    controller->menu()->popup(QPoint(10, 10));
    QTest::qWait(50);
    const QString dir = QStringLiteral(SAYVO_SCREENSHOT_DIR);
    QDir().mkpath(dir);
    EXPECT_TRUE(controller->menu()->grab().save(dir + QStringLiteral("/tray-menu.png")));
    QMenu *domains = item("Domain")->menu();
    domains->popup(QPoint(10, 10));
    QTest::qWait(50);
    EXPECT_TRUE(domains->grab().save(dir + QStringLiteral("/tray-menu-domain.png")));
    domains->hide();
    controller->menu()->hide();
    // The icon in each state, side by side.
    const QStringList symbols {"mic", "mic.fill", "waveform", "waveform.circle", "mic.slash",
        "exclamationmark.triangle", "exclamationmark.triangle.fill"};
    for (const QColor &panel : {QColor(40, 40, 40), QColor(240, 240, 240)}) {
        QImage strip(QSize(24 * symbols.size() + 8 * (symbols.size() + 1), 40),
            QImage::Format_ARGB32_Premultiplied);
        strip.fill(panel);
        QPainter painter(&strip);
        const QColor ink = panel.lightness() < 128 ? QColor(235, 235, 235) : QColor(30, 30, 30);
        for (int i = 0; i < symbols.size(); ++i) {
            painter.drawPixmap(8 + i * 32, 8, SymbolIcon::icon(symbols[i], ink).pixmap(24, 24));
        }
        painter.end();
        EXPECT_TRUE(strip.save(dir
            + (panel.lightness() < 128 ? QStringLiteral("/tray-icons-dark.png")
                                       : QStringLiteral("/tray-icons-light.png"))));
    }
}
