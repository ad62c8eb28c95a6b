// The launch sequence and wiring of the application, over fakes of every platform service,
// the real engine client against the scripted test engine, and a supervisor whose children
// are fakes.
#include "app/AppDelegate.h"
#include "audio/AudioCapture.h"
#include "desktop/HotkeyManager.h"
#include "engineclient/EngineClient.h"
#include "protocol/WireCodec.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"
#include "support/LogCapture.h"
#include "support/app/FakeAppPlatform.h"
#include "support/engine/TestEngine.h"
#include "support/runtime/RuntimeSandbox.h"
#include "support/store/FakePreferenceStore.h"
#include "ui/DesktopCapabilityList.h"
#include "ui/MenuBarController.h"
#include "ui/NoTrayNotice.h"
#include "ui/SettingsWindow.h"
#include "ui/TrayAvailability.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

using namespace sayvo;
namespace es = engine_state;

namespace {

class AppDelegateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(engine.listen());
        preferences.setValue(SettingsStore::kEndpointURLKey, engine.url().toString());
        preferences.setValue(SettingsStore::kHotkeyTriggerKey, QStringLiteral("f5"));
        sandbox.writePayload(QStringLiteral("run_engine_stays.sh"));
        sandbox.provision(QStringLiteral("1.0.0"));
    }

    AppPlatform platform()
    {
        fakes.portProbe = [this](const QString &, int port) {
            probedWhileClientAt << (delegate ? delegate->engineClient()->endpoint() : QUrl());
            probedPorts << port;
            return portOpen;
        };
        return fakes.platform([this] { return sandbox.locator(QStringLiteral("1.0.0")); });
    }

    void launch()
    {
        delegate = std::make_unique<AppDelegate>(preferences, platform());
        delegate->applicationDidFinishLaunching();
    }

    bool waitConnected()
    {
        return QTest::qWaitFor(
            [&] {
                return delegate->coordinator()
                    ->connectionHealth()
                    .is<EngineConnectionHealth::Connected>();
            },
            5000);
    }

    sayvo::test::TestEngine engine;
    FakePreferenceStore preferences;
    sayvo::test::RuntimeSandbox sandbox;
    sayvo::test::FakeAppPlatform fakes;
    bool portOpen = false;
    QList<QUrl> probedWhileClientAt;
    QList<int> probedPorts;
    std::unique_ptr<AppDelegate> delegate;
};

// The "language" of every hello the engine received, in order; nullopt where it had none.
std::vector<std::optional<QString>> helloLanguages(const sayvo::test::TestEngine &engine)
{
    std::vector<std::optional<QString>> languages;
    for (const QByteArray &text : engine.textFrames()) {
        const QJsonObject message = QJsonDocument::fromJson(text).object();
        if (message.value("type") != "hello") {
            continue;
        }
        if (message.contains("language")) {
            languages.emplace_back(message.value("language").toString());
        } else {
            languages.emplace_back(std::nullopt);
        }
    }
    return languages;
}

} // namespace

TEST_F(AppDelegateTest, LaunchCreatesEverythingAndConnects)
{
    launch();
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
    ASSERT_NE(delegate->coordinator(), nullptr);
    ASSERT_NE(delegate->menuBarController(), nullptr);
    ASSERT_NE(delegate->hudController(), nullptr);
    EXPECT_EQ(delegate->engineClient()->clientVersion(), "0.1.0");
    EXPECT_FALSE(delegate->engineClient()->language().has_value());
    EXPECT_EQ(delegate->engineClient()->endpoint(), engine.url());
    ASSERT_TRUE(waitConnected());
    // The endpoint subscription starts the supervisor at once and launch starts it again:
    // the second start finds the engine it launched and leaves it alone.
    EXPECT_EQ(probedPorts.size(), 1);
    EXPECT_EQ(fakes.launches->started.size(), 1);
    EXPECT_TRUE(std::holds_alternative<es::Running>(delegate->engineSupervisor()->state()));
    EXPECT_TRUE(delegate->coordinator()->inputReady());
    EXPECT_FALSE(delegate->isInputSetupPollRunning());
    EXPECT_EQ(delegate->setupWindow(), nullptr);
}

TEST_F(AppDelegateTest, ARuntimeThatNeedsSetupOpensTheSetupWindowByItself)
{
    sayvo::test::RuntimeSandbox fresh;
    fresh.writePayload(QStringLiteral("run_engine_stays.sh"));
    AppPlatform p = platform();
    p.runtimeLocator = [&] { return fresh.locator(QStringLiteral("1.0.0")); };
    delegate = std::make_unique<AppDelegate>(preferences, std::move(p));
    delegate->applicationDidFinishLaunching();
    EXPECT_TRUE(std::holds_alternative<es::NeedsSetup>(delegate->engineSupervisor()->state()));
    EXPECT_EQ(delegate->setupWindow(), nullptr); // posted to the event loop, not opened inline
    ASSERT_TRUE(QTest::qWaitFor([&] { return delegate->setupWindow() != nullptr; }, 2000));
    EXPECT_TRUE(delegate->setupWindow()->isVisible());
    EXPECT_EQ(delegate->setupWindow()->windowTitle(), "Sayvo Engine");
}

TEST_F(AppDelegateTest, ARunningEngineOpensNoWindow)
{
    portOpen = true;
    launch();
    QTest::qWait(200);
    EXPECT_TRUE(std::holds_alternative<es::Running>(delegate->engineSupervisor()->state()));
    EXPECT_EQ(delegate->setupWindow(), nullptr);
    EXPECT_EQ(delegate->settingsWindow(), nullptr);
}

TEST_F(AppDelegateTest, AnEndpointChangeMovesTheClientBeforeTheSupervisor)
{
    portOpen = true;
    launch();
    sayvo::test::TestEngine other;
    ASSERT_TRUE(other.listen());
    probedWhileClientAt.clear();
    delegate->settings().setEndpointURL(other.url());
    ASSERT_EQ(probedWhileClientAt.size(), 1);
    EXPECT_EQ(
        probedWhileClientAt[0], other.url()); // the client had moved when the supervisor probed
    EXPECT_EQ(delegate->engineSupervisor()->lastEndpoint(), other.url());
    ASSERT_TRUE(QTest::qWaitFor([&] { return other.connectionCount() == 1; }, 5000));
}

TEST_F(AppDelegateTest, HealthyBackendsAfterMockOnesResetTheSupervisor)
{
    engine.setHelloAckBackends(Backends {"mock", "mock", "mock"});
    launch();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return delegate->engineSupervisor()->mockRelaunchCount() == 1; }, 5000));
    EXPECT_TRUE(delegate->engineSupervisor()->hasPendingRestart());
    // The engine comes back real.
    engine.setHelloAckBackends(Backends {"pocketsphinx", "pocketsphinx", "rules"});
    engine.dropConnection();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return delegate->coordinator()->connectionHealth()
                == EngineConnectionHealth::connected(false);
        },
        10000));
    EXPECT_EQ(delegate->engineSupervisor()->mockRelaunchCount(), 0);
    EXPECT_EQ(delegate->engineSupervisor()->crashCount(), 0);
}

TEST_F(AppDelegateTest, ConnectionStatesOtherThanConnectedTouchNeitherOperation)
{
    engine.stopListening();
    launch();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return delegate->coordinator()->connectionHealth() == EngineConnectionHealth::offline();
        },
        5000));
    EXPECT_EQ(delegate->engineSupervisor()->mockRelaunchCount(), 0);
    EXPECT_FALSE(delegate->engineSupervisor()->hasPendingRestart());
    EXPECT_TRUE(std::holds_alternative<es::Running>(delegate->engineSupervisor()->state()));
}

TEST_F(AppDelegateTest, PermissionsAreAskedForOnlyWhenMissing)
{
    launch();
    EXPECT_TRUE(fakes.permissions->calls.isEmpty());
}

TEST_F(AppDelegateTest, MissingPermissionsArePromptedAtLaunch)
{
    fakes.permissionsTemplate.microphone = Permissions::MicrophoneStatus::notDetermined;
    fakes.permissionsTemplate.accessibility = false;
    fakes.permissionsTemplate.inputMonitoring = false;
    launch();
    EXPECT_EQ(fakes.permissions->calls,
        (QStringList {
            "requestMicrophoneAccess", "promptAccessibility", "requestInputMonitoringAccess"}));
}

// Permissions are asked for before dictation starts, and dictation starts before the engine
// supervisor's own start (the endpoint subscription has started it once already).
TEST_F(AppDelegateTest, PermissionsComeFirstThenTheCoordinatorThenTheSupervisor)
{
    portOpen = true; // an engine is there: each supervisor start looks for it
    fakes.permissionsTemplate.microphone = Permissions::MicrophoneStatus::notDetermined;
    fakes.permissionsTemplate.accessibility = false;
    fakes.permissionsTemplate.inputMonitoring = false;
    struct Moment
    {
        QString what;
        bool clientConnecting;
        bool tapInstalled;
        qsizetype probes;
    };
    std::vector<Moment> moments;
    auto note = [&](const QString &what) {
        moments.push_back(
            {what, delegate->engineClient()->connectionState().is<ConnectionState::Connecting>(),
                fakes.keys->isInstalled(), probedPorts.size()});
    };
    AppPlatform p = platform();
    auto makePermissions = p.permissions;
    p.permissions = [&](AudioHardware &hardware, const HotkeyManager &hotkeys) {
        auto permissions = makePermissions(hardware, hotkeys);
        fakes.permissions->onCall = note;
        return permissions;
    };
    auto probe = fakes.portProbe;
    fakes.portProbe = [&](const QString &host, int port) {
        const bool open = probe(host, port);
        note(QStringLiteral("probe"));
        return open;
    };
    delegate = std::make_unique<AppDelegate>(preferences, std::move(p));
    delegate->applicationDidFinishLaunching();

    QStringList order;
    for (const Moment &m : moments) {
        order << m.what;
    }
    EXPECT_EQ(order,
        (QStringList {"probe", "requestMicrophoneAccess", "promptAccessibility",
            "requestInputMonitoringAccess", "probe"}));
    ASSERT_EQ(moments.size(), 5u);
    for (size_t i = 1; i <= 3; ++i) {
        EXPECT_FALSE(moments[i].clientConnecting) << moments[i].what.toStdString();
        EXPECT_FALSE(moments[i].tapInstalled) << moments[i].what.toStdString();
    }
    EXPECT_TRUE(moments[4].clientConnecting);
    EXPECT_TRUE(moments[4].tapInstalled);
}

TEST_F(AppDelegateTest, TheInputPollRetriesUntilMicrophoneAndKeysWorkThenStops)
{
    fakes.microphoneMissing = true;
    fakes.keyTapRefused = true;
    launch();
    EXPECT_FALSE(delegate->coordinator()->inputReady());
    ASSERT_TRUE(delegate->isInputSetupPollRunning());
    QTest::qWait(1700);
    EXPECT_TRUE(delegate->isInputSetupPollRunning());
    fakes.audioEngine->setUnavailable(std::nullopt);
    fakes.keys->failInstall = false;
    ASSERT_TRUE(QTest::qWaitFor([&] { return !delegate->isInputSetupPollRunning(); }, 4000));
    EXPECT_TRUE(delegate->coordinator()->inputReady());
}

TEST_F(AppDelegateTest, TheLanguageChosenInSettingsTravelsInTheHello)
{
    const std::optional<QString> chosen = languageChoices().back().value;
    ASSERT_TRUE(chosen.has_value());
    portOpen = true;
    launch();
    ASSERT_TRUE(QTest::qWaitFor([&] { return helloLanguages(engine).size() == 1; }, 5000));
    EXPECT_EQ(helloLanguages(engine)[0], std::nullopt);

    // Chosen while running: the client reconnects and its hello names the language.
    delegate->showSettings();
    auto *language = delegate->settingsWindow()->findChild<QComboBox *>("languageChoice");
    ASSERT_NE(language, nullptr);
    language->setFocus();
    QTest::keyClick(language, Qt::Key_End);
    ASSERT_EQ(delegate->settings().language(), chosen);
    ASSERT_TRUE(QTest::qWaitFor([&] { return helloLanguages(engine).size() == 2; }, 5000));
    EXPECT_EQ(helloLanguages(engine)[1], chosen);

    // Back to the engine's default.
    QTest::keyClick(language, Qt::Key_Home);
    ASSERT_TRUE(QTest::qWaitFor([&] { return helloLanguages(engine).size() == 3; }, 5000));
    EXPECT_EQ(helloLanguages(engine)[2], std::nullopt);
}

TEST_F(AppDelegateTest, ALanguageChosenInAnEarlierRunTravelsInTheFirstHello)
{
    const std::optional<QString> chosen = languageChoices().back().value;
    ASSERT_TRUE(chosen.has_value());
    preferences.setValue(SettingsStore::kLanguageKey, *chosen);
    portOpen = true;
    launch();
    EXPECT_EQ(delegate->engineClient()->language(), chosen);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !helloLanguages(engine).empty(); }, 5000));
    EXPECT_EQ(helloLanguages(engine)[0], chosen);
}

TEST_F(AppDelegateTest, WindowsAreCreatedOnceAndReused)
{
    portOpen = true;
    launch();
    delegate->showSettings();
    QWidget *settings = delegate->settingsWindow();
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(settings->windowTitle(), "Settings");
    EXPECT_TRUE(settings->isVisible());
    settings->close();
    EXPECT_FALSE(settings->isVisible());
    delegate->showSettings();
    EXPECT_EQ(delegate->settingsWindow(), settings);
    EXPECT_TRUE(settings->isVisible());

    delegate->showCalibration();
    ASSERT_NE(delegate->calibrationWindow(), nullptr);
    EXPECT_EQ(delegate->calibrationWindow()->windowTitle(), "Accuracy Calibration");
    delegate->showSetup();
    ASSERT_NE(delegate->setupWindow(), nullptr);
    EXPECT_EQ(delegate->setupWindow()->windowTitle(), "Sayvo Engine");
    // Closing a window never quits the app.
    delegate->setupWindow()->close();
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
}

TEST_F(AppDelegateTest, TheCalibrationWindowKeepsTheHeightItAsksForAndMayGrow)
{
    portOpen = true;
    launch();
    delegate->showCalibration();
    QWidget *calibration = delegate->calibrationWindow();
    ASSERT_NE(calibration, nullptr);
    const int available = QGuiApplication::primaryScreen()->availableGeometry().height();
    EXPECT_EQ(calibration->height(), std::clamp(available - 80, 560, 700));
    EXPECT_LT(calibration->minimumHeight(), calibration->maximumHeight())
        << "the results list may be given more room";
}

TEST_F(AppDelegateTest, OpeningAVisibleSetupWindowAgainLeavesItAlone)
{
    portOpen = true;
    launch();
    delegate->showSetup();
    QWidget *setup = delegate->setupWindow();
    setup->move(33, 44);
    QWidget other;
    other.show();
    other.raise();
    // Raising a window always tells it at once, whatever the window system does with it (the
    // offscreen one used here does nothing).
    struct Watcher : QObject
    {
        int raised = 0;
        bool eventFilter(QObject *, QEvent *event) override
        {
            raised += event->type() == QEvent::ZOrderChange ? 1 : 0;
            return false;
        }
    } watcher;
    setup->installEventFilter(&watcher);
    delegate->showSetup();
    setup->removeEventFilter(&watcher);
    EXPECT_EQ(watcher.raised, 0);
    EXPECT_EQ(setup->pos(), QPoint(33, 44));
    EXPECT_EQ(QApplication::topLevelAt(other.geometry().center()), &other);

    // The settings window, by contrast, comes forward every time.
    delegate->showSettings();
    QWidget *settings = delegate->settingsWindow();
    settings->installEventFilter(&watcher);
    delegate->showSettings();
    settings->removeEventFilter(&watcher);
    EXPECT_EQ(watcher.raised, 1);
}

TEST_F(AppDelegateTest, TheMainMenuHasQuitAndTheEditCommands)
{
    launch();
    QMenuBar *menu = delegate->mainMenu();
    ASSERT_NE(menu, nullptr);
    ASSERT_EQ(menu->actions().size(), 2);
    QMenu *application = menu->actions()[0]->menu();
    ASSERT_EQ(application->actions().size(), 1);
    EXPECT_TRUE(application->actions()[0]->text().startsWith("Quit "));
    EXPECT_EQ(application->actions()[0]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    QMenu *edit = menu->actions()[1]->menu();
    EXPECT_EQ(menu->actions()[1]->text(), "Edit");
    QStringList titles;
    QList<QKeySequence> keys;
    for (QAction *action : edit->actions()) {
        titles << (action->isSeparator() ? QStringLiteral("---") : action->text());
        keys << action->shortcut();
    }
    EXPECT_EQ(titles, (QStringList {"Undo", "Redo", "---", "Cut", "Copy", "Paste", "Select All"}));
    EXPECT_EQ(keys[1], QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    EXPECT_EQ(keys[6], QKeySequence(Qt::CTRL | Qt::Key_A));
    // Quit answers in every window of the app.
    delegate->showSettings();
    EXPECT_TRUE(delegate->settingsWindow()->actions().contains(application->actions()[0]));
}

TEST_F(AppDelegateTest, TerminationStopsTheCoordinatorThenTheSupervisor)
{
    launch();
    ASSERT_TRUE(waitConnected());
    ASSERT_EQ(fakes.launches->started.size(), 1);
    // When the engine is told to go, dictation has already stopped.
    std::optional<bool> stoppedFirst;
    fakes.launches->started[0]->onTerminate = [&] {
        stoppedFirst
            = delegate->engineClient()->connectionState().is<ConnectionState::Disconnected>()
            && !fakes.keys->isInstalled();
    };
    delegate->applicationWillTerminate();
    EXPECT_EQ(stoppedFirst, true);
    EXPECT_TRUE(delegate->engineClient()->connectionState().is<ConnectionState::Disconnected>());
    EXPECT_FALSE(fakes.keys->isInstalled());
    EXPECT_TRUE(fakes.launches->started[0]->terminated);
    ASSERT_TRUE(QTest::qWaitFor([&] { return engine.closeCode(0).has_value(); }, 5000));
    EXPECT_EQ(engine.closeCode(0), 1001);
}

TEST_F(AppDelegateTest, OnceReadyAndIdleNothingOfSayvosWakesTheMainThread)
{
    portOpen = true;
    launch();
    ASSERT_TRUE(waitConnected());
    ASSERT_FALSE(delegate->isInputSetupPollRunning());
    // Deferred clean-ups of earlier tests in this process (a socket's 2 s farewell) run out first.
    QTest::qWait(2500);

    // Every timer event on the main thread, but for Qt's own pixmap-cache housekeeping.
    struct Counter : QObject
    {
        QStringList seen;
        bool eventFilter(QObject *watched, QEvent *event) override
        {
            if (event->type() == QEvent::Timer
                && QByteArrayView(watched->metaObject()->className())
                    != QByteArrayView("QPMCache")) {
                seen << QString::fromLatin1(watched->metaObject()->className());
            }
            return false;
        }
    } counter;
    qApp->installEventFilter(&counter);
    QTest::qWait(3000);
    qApp->removeEventFilter(&counter);
    EXPECT_TRUE(counter.seen.isEmpty()) << counter.seen.join(' ').toStdString();
}

TEST_F(AppDelegateTest, ADictationLeavesNoWordOfWhatWasSaidCopiedOrOnScreenInTheLog)
{
    test::LogCapture log;
    // The engine hears something, says so in a partial and answers the end with a final.
    engine.setOnText([&](const QByteArray &text, int) {
        const auto decoded = decodeOutbound(text.toStdString());
        if (!decoded) {
            return;
        }
        if (const auto *start = std::get_if<UtteranceStartMessage>(&decoded.value())) {
            engine.sendText(QByteArray::fromStdString(
                encode(PartialMessage {start->utteranceId, "partial secret words"})));
        }
        if (const auto *end = std::get_if<UtteranceEndMessage>(&decoded.value())) {
            FinalMessage final;
            final.utteranceId = end->utteranceId;
            final.rawText = "raw secret words";
            final.formattedText = "Final secret words.";
            final.domain = "default";
            final.domainSource = "context";
            final.guardrail.applied = true;
            engine.sendText(QByteArray::fromStdString(encode(final)));
        }
    });
    launch();
    fakes.workspace->front
        = FrontApplication {QStringLiteral("org.example.Mail"), QStringLiteral("Mail"), 77};
    fakes.accessibility->addApplication(
        77, QStringLiteral("Draft"), QStringLiteral("Dear Sam, the screen secret"));
    fakes.pasteboard->preload(
        {{{sayvo::testing::FakePasteboard::kPlainTextType, QByteArray("the clipboard secret")}}});
    ASSERT_TRUE(waitConnected());

    fakes.keys->keyDown(fakes.keys->codes.f5);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return delegate->coordinator()->state().is<AppState::Listening>(); }, 2000));
    QByteArray pcm(9600, '\0');
    for (qsizetype i = 0; i < pcm.size(); i += 2) {
        pcm[i] = static_cast<char>(i * 7);
    }
    fakes.audioEngine->playS16(pcm, 1600);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            return delegate->coordinator()->state()
                == AppState::listening(QStringLiteral("partial secret words"));
        },
        5000));
    fakes.keys->keyUp(fakes.keys->codes.f5);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return delegate->coordinator()->state().is<AppState::Success>(); }, 5000));
    EXPECT_TRUE(engine.textFrames()[1].contains("the clipboard secret"));

    // Every line written at the levels on by default: the states are there, by length.
    const QStringList lines = log.messages();
    EXPECT_TRUE(lines.contains("state: listening(chars=20)")) << lines.join('\n').toStdString();
    EXPECT_TRUE(lines.contains("state: success(chars=19, raw=no)"));
    for (const QString &line : lines) {
        EXPECT_FALSE(line.contains(QStringLiteral("secret"), Qt::CaseInsensitive))
            << line.toStdString();
    }
}

TEST_F(AppDelegateTest, TheEditShortcutsWorkInTheAppsWindows)
{
    launch();
    delegate->showSettings();
    QWidget *settings = delegate->settingsWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(settings));
    QAction *selectAll = nullptr;
    QAction *cut = nullptr;
    for (QAction *action : delegate->mainMenu()->actions()[1]->menu()->actions()) {
        selectAll = action->text() == "Select All" ? action : selectAll;
        cut = action->text() == "Cut" ? action : cut;
    }
    ASSERT_TRUE(selectAll && cut);
    QSignalSpy selected(selectAll, &QAction::triggered);

    // A widget that does not take the keys itself: the shortcut reaches the menu's command.
    auto *button = new QPushButton(QStringLiteral("x"), settings);
    button->show();
    button->setFocus();
    QTest::keyClick(button, Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(selected.count(), 1);

    // The command acts on the field that has the focus.
    auto *field = new QLineEdit(QStringLiteral("dictated words"), settings);
    field->show();
    field->setFocus();
    field->selectAll();
    cut->trigger();
    EXPECT_EQ(field->text(), QString());
}

TEST_F(AppDelegateTest, WithoutATrayTheSettingsWindowOpensAtLaunchSaysWhyAndOffersQuit)
{
    fakes.trayAvailable = false;
    launch();
    QWidget *settings = delegate->settingsWindow();
    ASSERT_NE(settings, nullptr);
    EXPECT_TRUE(settings->isVisible());
    auto *notice = settings->findChild<NoTrayNotice *>();
    ASSERT_NE(notice, nullptr);
    EXPECT_TRUE(notice->isVisible());
    EXPECT_TRUE(notice->label()->text().contains(QStringLiteral("no system tray")));
    QAction *quit = delegate->mainMenu()->actions()[0]->menu()->actions()[0];
    QSignalSpy quits(quit, &QAction::triggered);
    QTest::mouseClick(notice->quitButton(), Qt::LeftButton);
    EXPECT_EQ(quits.count(), 1);

    // A panel that starts later brings the tray; the window says nothing more.
    fakes.trayAvailable = true;
    ASSERT_TRUE(fakes.trayHostChanged);
    fakes.trayHostChanged();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !notice->isVisible(); }, 5000));
    EXPECT_TRUE(settings->isVisible());
}

TEST_F(AppDelegateTest, WhenTheTrayGoesAwayTheSettingsWindowTakesItsPlace)
{
    launch();
    EXPECT_EQ(delegate->settingsWindow(), nullptr);
    ASSERT_TRUE(fakes.trayHostChanged);
    fakes.trayHostChanged(); // nothing changed
    EXPECT_EQ(delegate->settingsWindow(), nullptr);
    fakes.trayAvailable = false;
    fakes.trayHostChanged();
    ASSERT_NE(delegate->settingsWindow(), nullptr);
    EXPECT_TRUE(delegate->settingsWindow()->isVisible());
    EXPECT_TRUE(delegate->settingsWindow()->findChild<NoTrayNotice *>()->isVisible());
}

TEST_F(AppDelegateTest, AWindowComingToTheFrontSendsTheEngineItsContext)
{
    launch();
    ASSERT_TRUE(waitConnected());
    const auto contexts = [&] {
        const std::vector<QString> types = engine.textTypes();
        return std::count(types.begin(), types.end(), QStringLiteral("context.update"));
    };
    const auto before = contexts();
    fakes.workspace->activate(FrontApplication {QStringLiteral("org.gnome.TextEditor"),
        QStringLiteral("org.gnome.TextEditor"), 0, QStringLiteral("Letter")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return contexts() > before; }, 5000));
    EXPECT_TRUE(engine.textFrames().back().contains("Letter"));
}

TEST_F(AppDelegateTest, NoHeadsUpDisplayWhereItWouldTakeTheFocus)
{
    fakes.desktopPlan.canShowPanelWithoutFocus = false;
    launch();
    EXPECT_EQ(delegate->hudController(), nullptr);
    ASSERT_TRUE(waitConnected());
    // Dictation goes on without it, levels and all.
    delegate->coordinator()->handleTriggerDown();
    fakes.audioEngine->playS16(QByteArray(3200, '\x10'), 1600);
    delegate->coordinator()->handleTriggerUp();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return delegate->coordinator()->state().is<AppState::Processing>(); }, 5000));
}

TEST_F(AppDelegateTest, TheSettingsWindowSaysWhatEachDesktopCapabilityCanDo)
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("sway");
    facts.dataControl = true;
    facts.virtualKeyboard = true;
    fakes.desktopPlan = DesktopPlan::choose(facts);
    launch();
    delegate->showSettings();
    auto *settings = qobject_cast<SettingsWindow *>(delegate->settingsWindow());
    ASSERT_TRUE(settings);
    const QStringList lines = settings->desktopCapabilities()->lines();
    ASSERT_EQ(lines.size(), 5) << lines.join('\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Trigger key: ")));
    EXPECT_TRUE(lines[0].contains(
        QStringLiteral("bindsym --release Control_R exec sayvo trigger release")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Pasting: Pastes with Control-V")));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("Clipboard: Puts the transcript")));
    EXPECT_TRUE(lines[3].contains(QStringLiteral("through accessibility")));
    settings->selectTab(SettingsTab::permissions);
    EXPECT_TRUE(settings->desktopCapabilities()->isVisibleTo(settings));
}

DesktopPlan kdePlan()
{
    DesktopSessionFacts facts;
    facts.kind = SessionKind::wayland;
    facts.desktopName = QStringLiteral("KDE");
    facts.dataControl = true;
    return DesktopPlan::choose(facts);
}

TEST_F(AppDelegateTest, TheDesktopsShortcutIsAskedForWithTheTriggerKeyAndIsTheTriggerKey)
{
    fakes.desktopPlan = kdePlan();
    launch();
    ASSERT_TRUE(fakes.shortcut);
    EXPECT_EQ(fakes.shortcut->requested, QStringList {QStringLiteral("F5")});
    fakes.shortcut->handlers.onPress();
    EXPECT_TRUE(delegate->hotkeyManager()->isKeyDown());
    fakes.shortcut->handlers.onRelease();
    EXPECT_FALSE(delegate->hotkeyManager()->isKeyDown());
}

TEST_F(AppDelegateTest, TheDesktopsAnswersReplaceTheCapabilityLinesInSettings)
{
    fakes.desktopPlan = kdePlan();
    launch();
    delegate->showSettings();
    auto *settings = qobject_cast<SettingsWindow *>(delegate->settingsWindow());
    ASSERT_TRUE(settings);
    QStringList lines = settings->desktopCapabilities()->lines();
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Trigger key: Asking the desktop")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Pasting: Asking the desktop")));
    EXPECT_TRUE(lines[3].startsWith(QStringLiteral("Focused window: Knows the application")));

    fakes.shortcut->handlers.onStatus(
        portalShortcutStatus(PortalState::granted, QStringLiteral("Meta+D"), {}, {}));
    fakes.keystrokeConsent->handlers.onStatus(portalKeystrokeStatus(
        PortalState::refused, QStringLiteral("declined"), KeystrokeUse::pasting));
    lines = settings->desktopCapabilities()->lines();
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("(Meta+D) starts dictation")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Pasting: unavailable.")));
    EXPECT_TRUE(lines[1].contains(QStringLiteral("Ask again")));

    // The permissions area asks the desktop again from its button.
    const auto buttons
        = settings->desktopCapabilities()->findChildren<QPushButton *>(QStringLiteral("askAgain"));
    ASSERT_EQ(buttons.size(), 1);
    EXPECT_EQ(fakes.keystrokeConsent->askedAgain, 0);
    buttons.first()->click();
    EXPECT_TRUE(QTest::qWaitFor([this] { return fakes.keystrokeConsent->askedAgain == 1; }, 5000));
    fakes.keystrokeConsent->handlers.onStatus(
        portalKeystrokeStatus(PortalState::granted, {}, KeystrokeUse::pasting));
    EXPECT_TRUE(settings->desktopCapabilities()
                    ->findChildren<QPushButton *>(QStringLiteral("askAgain"))
                    .isEmpty());
}

TEST_F(AppDelegateTest, TheKeystrokeTokenIsKeptForTheNextLaunchAndDroppedWhenItNoLongerHolds)
{
    fakes.desktopPlan = kdePlan();
    launch();
    EXPECT_EQ(fakes.keystrokeConsent->tokens, QStringList {QString()});
    fakes.keystrokeConsent->handlers.onRestoreToken(QStringLiteral("granted-token"));
    delegate.reset();

    launch();
    EXPECT_EQ(fakes.keystrokeConsent->tokens, QStringList {QStringLiteral("granted-token")});
    fakes.keystrokeConsent->handlers.onRestoreToken(QString());
    delegate.reset();

    launch();
    EXPECT_EQ(fakes.keystrokeConsent->tokens, QStringList {QString()});
}
