#include "ui/EngineSetupWindow.h"
#include "ui/PlatformTexts.h"

#include "runtime/EngineSupervisor.h"
#include "support/runtime/FakeChildProcess.h"
#include "support/runtime/RuntimeSandbox.h"
#include "unit/ui/WindowShots.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextCursor>
#include <QTimer>
#include <QToolButton>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

using test::FakeChildProcessLauncher;
using test::FakeProcessRecord;
using test::RuntimeSandbox;

const QUrl kLocal(QStringLiteral("ws://127.0.0.1:8765"));

// A supervisor over a sandboxed payload whose children are fakes, with the window on top.
class EngineSetupWindowTest : public ::testing::Test
{
protected:
    void make(bool withPayload = true)
    {
        if (withPayload) {
            sandbox.writePayload(QStringLiteral("run_engine_stays.sh"),
                QStringLiteral("bootstrap_success.sh"), QStringLiteral("uninstall_records.sh"));
        }
        auto launcher = std::make_unique<FakeChildProcessLauncher>();
        processes = launcher->log;
        EngineSupervisor::Options options;
        options.launcher = std::move(launcher);
        options.portProbe = [](const QString &, int) { return false; };
        options.applicationPath = QStringLiteral("/opt/Sayvo/bin/sayvo");
        options.applicationPid = 4242;
        options.delayScale = 0.01;
        supervisor = std::make_unique<EngineSupervisor>(
            sandbox.locator(QStringLiteral("1.0.0")), std::move(options));
        window = std::make_unique<EngineSetupWindow>(*supervisor);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    std::shared_ptr<FakeProcessRecord> lastProcess() const
    {
        return processes->started.isEmpty() ? nullptr : processes->started.last();
    }
    // Starts set-up from the window's button, as the user would.
    void setUpFromTheWindow()
    {
        supervisor->start(kLocal);
        ASSERT_EQ(statusText(), QStringLiteral("Setup required"));
        QTest::mouseClick(action(), Qt::LeftButton);
        ASSERT_TRUE(std::holds_alternative<engine_state::Provisioning>(supervisor->state()));
    }
    static void settle() { QTest::qWait(10); }

    QString statusText() const { return label("statusLine")->text(); }
    QLabel *label(const char *name) const
    {
        return window->findChild<QLabel *>(QString::fromLatin1(name));
    }
    QPushButton *action() const { return window->findChild<QPushButton *>("stateAction"); }
    QString visibleMessage() const
    {
        return label("stateMessage")->isVisible() ? label("stateMessage")->text() : QString();
    }
    QStringList stepStatuses() const
    {
        QStringList statuses;
        for (const ProvisioningStep &step : supervisor->steps()) {
            QWidget *row = window->findChild<QWidget *>(QStringLiteral("step-") + step.id);
            QWidget *status = row ? row->findChild<QWidget *>("stepStatus") : nullptr;
            statuses.append(status && status->isVisible() ? status->property("status").toString()
                                                          : QStringLiteral("hidden"));
        }
        return statuses;
    }

    RuntimeSandbox sandbox;
    std::shared_ptr<FakeChildProcessLauncher::Log> processes;
    std::unique_ptr<EngineSupervisor> supervisor;
    std::unique_ptr<EngineSetupWindow> window;
};

TEST(EngineSetupStatusLineTest, EveryStateHasItsStatusLine)
{
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::Provisioning {5, "x"}),
        QStringLiteral("Setting up (first run)"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::NeedsPrerequisite {"t", "m"}),
        QStringLiteral("Action needed"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::Failed {"m"}), QStringLiteral("Problem"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::Idle {}), QStringLiteral("Starting"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::RemoteEndpoint {}),
        QStringLiteral("Remote endpoint"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::MissingPayload {}),
        QStringLiteral("Manual start"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::NeedsSetup {}),
        QStringLiteral("Setup required"));
    EXPECT_EQ(EngineSetupWindow::statusLine(engine_state::Running {}), QStringLiteral("Running"));
}

TEST_F(EngineSetupWindowTest, IdleShowsOnlyTheStatusLine)
{
    make();
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Sayvo Engine"));
    EXPECT_EQ(statusText(), QStringLiteral("Starting"));
    EXPECT_TRUE(visibleMessage().isEmpty());
    EXPECT_FALSE(action()->isVisible());
    EXPECT_FALSE(label("stateSymbol")->isVisible());
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-1-idle")));
}

TEST_F(EngineSetupWindowTest, NeedsSetupOffersSetUpNowWhichStartsProvisioning)
{
    make();
    supervisor->start(kLocal);
    EXPECT_EQ(statusText(), QStringLiteral("Setup required"));
    EXPECT_EQ(visibleMessage(), PlatformTexts::setupNeededMessage());
    EXPECT_EQ(label("stateDetail")->text(), PlatformTexts::setupNeededDetail());
    EXPECT_TRUE(label("stateDetail")->isVisible());
    ASSERT_TRUE(action()->isVisible());
    EXPECT_EQ(action()->text(), QStringLiteral("Set Up Now"));
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-2-needs-setup")));
    QTest::mouseClick(action(), Qt::LeftButton);
    ASSERT_NE(lastProcess(), nullptr);
    EXPECT_TRUE(
        lastProcess()->launch.arguments.first().endsWith(QStringLiteral("bootstrap_runtime.sh")));
    EXPECT_EQ(statusText(), QStringLiteral("Setting up (first run)"));
}

TEST_F(EngineSetupWindowTest, ProvisioningListsTheNineStepsWithTheirStatus)
{
    make();
    setUpFromTheWindow();
    EXPECT_FALSE(action()->isVisible());
    EXPECT_TRUE(label("provisioningNote")->isVisible());
    EXPECT_EQ(label("provisioningNote")->text(), PlatformTexts::provisioningNote());
    EXPECT_EQ(stepStatuses(), QStringList(9, QStringLiteral("pending")));
    lastProcess()->write("STEP mac ok\nSTEP uv ok\nSTEP copy fail\nSTEP venv run\n"
                         "PROGRESS 35 Creating Python environment\n");
    settle();
    EXPECT_EQ(stepStatuses(),
        (QStringList {"done", "done", "failed", "running", "pending", "pending", "pending",
            "pending", "pending"}));
    QStringList labels;
    for (const ProvisioningStep &step : supervisor->steps()) {
        QWidget *row = window->findChild<QWidget *>(QStringLiteral("step-") + step.id);
        for (QLabel *l : row->findChildren<QLabel *>()) {
            if (!l->text().isEmpty()) {
                labels.append(l->text());
            }
        }
    }
    QStringList expected;
    for (const ProvisioningStep &step : ProvisioningStep::initialSteps()) {
        expected.append(step.label);
    }
    EXPECT_EQ(labels, expected);
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-3-provisioning")));
}

TEST_F(EngineSetupWindowTest, AMissingPrerequisiteShowsItsMessageAndRetryRunsSetUpAgain)
{
    make();
    setUpFromTheWindow();
    lastProcess()->write("STEP mac ok\nNEED speech-model Install the PocketSphinx model first.\n");
    lastProcess()->exitWith(3);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return statusText() == QStringLiteral("Action needed"); }, 2000));
    EXPECT_EQ(visibleMessage(), QStringLiteral("Install the PocketSphinx model first."));
    EXPECT_TRUE(label("stateSymbol")->isVisible());
    EXPECT_EQ(action()->text(), QStringLiteral("Retry"));
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-4-needs-prerequisite")));
    const auto before = processes->started.size();
    QTest::mouseClick(action(), Qt::LeftButton);
    EXPECT_EQ(processes->started.size(), before + 1);
    EXPECT_TRUE(
        lastProcess()->launch.arguments.first().endsWith(QStringLiteral("bootstrap_runtime.sh")));
}

TEST_F(EngineSetupWindowTest, AFailedSetUpShowsProblemAndTryAgainStartsAProvisionedEngine)
{
    make();
    setUpFromTheWindow();
    lastProcess()->write("STEP mac ok\nSTEP uv fail\n");
    lastProcess()->exitWith(1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return statusText() == QStringLiteral("Problem"); }, 2000));
    EXPECT_EQ(visibleMessage(), QStringLiteral("Setup failed (exit 1). See the log for details."));
    EXPECT_EQ(stepStatuses().mid(0, 3), (QStringList {"done", "failed", "pending"}))
        << "the checklist shows where set-up stopped";
    EXPECT_TRUE(label("stateSymbol")->isVisible());
    ASSERT_TRUE(action()->isVisible());
    EXPECT_EQ(action()->text(), QStringLiteral("Try Again"));
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-5-failed")));

    // Meanwhile the runtime got provisioned (for example by a set-up run from a terminal).
    sandbox.provision(QStringLiteral("1.0.0"));
    QTest::mouseClick(action(), Qt::LeftButton);
    ASSERT_NE(lastProcess(), nullptr);
    EXPECT_TRUE(lastProcess()->launch.arguments.first().endsWith(QStringLiteral("run_engine.sh")))
        << lastProcess()->launch.arguments.join(' ').toStdString();
    EXPECT_EQ(statusText(), QStringLiteral("Running"));
    EXPECT_EQ(visibleMessage(), QStringLiteral("The engine is running."));
    EXPECT_FALSE(action()->isVisible());
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-6-running")));
}

TEST_F(EngineSetupWindowTest, RemoteAndMissingPayloadExplainThemselves)
{
    make();
    supervisor->start(QUrl(QStringLiteral("wss://192.168.1.5:8765")));
    EXPECT_EQ(statusText(), QStringLiteral("Remote endpoint"));
    EXPECT_EQ(visibleMessage(), PlatformTexts::remoteEndpointMessage());
    EXPECT_FALSE(action()->isVisible());
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-7-remote-endpoint")));
}

TEST_F(EngineSetupWindowTest, AMissingPayloadAsksForAManualStart)
{
    make(false);
    supervisor->start(kLocal);
    EXPECT_EQ(statusText(), QStringLiteral("Manual start"));
    EXPECT_EQ(visibleMessage(), PlatformTexts::missingPayloadMessage());
    EXPECT_FALSE(action()->isVisible());
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-8-missing-payload")));
}

TEST_F(EngineSetupWindowTest, TheSetupLogIsDisclosedOnDemandAndSaysWhenItIsEmpty)
{
    make();
    auto *toggle = window->findChild<QToolButton *>("logToggle");
    auto *log = window->findChild<QPlainTextEdit *>("setupLog");
    EXPECT_EQ(toggle->text(), QStringLiteral("Setup log"));
    EXPECT_FALSE(window->isLogShown());
    EXPECT_FALSE(log->isVisible());
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_TRUE(window->isLogShown());
    EXPECT_TRUE(log->isVisible());
    EXPECT_EQ(log->toPlainText(), QStringLiteral("No output yet."));
    setUpFromTheWindow();
    lastProcess()->write("fetching uv 0.4.1\nSTEP mac ok\n");
    settle();
    EXPECT_EQ(log->toPlainText(), QStringLiteral("fetching uv 0.4.1\nSTEP mac ok\n"));
    EXPECT_TRUE(test::saveShot(*window, QStringLiteral("setup-9-provisioning-with-log")));
    QTest::mouseClick(toggle, Qt::LeftButton);
    EXPECT_FALSE(log->isVisible());
}

TEST_F(EngineSetupWindowTest, TheLogGrowsAtTheEndAndKeepsTheReadersPlaceAndSelection)
{
    make();
    window->setLogShown(true);
    setUpFromTheWindow();
    auto *log = window->findChild<QPlainTextEdit *>("setupLog");
    QString expected;
    for (int i = 0; i < 60; ++i) {
        const QString line = QStringLiteral("installing part %1\n").arg(i);
        lastProcess()->write(line.toUtf8());
        expected += line;
    }
    settle();
    EXPECT_EQ(log->toPlainText(), expected);
    QScrollBar *scroll = log->verticalScrollBar();
    EXPECT_EQ(scroll->value(), scroll->maximum()) << "a reader at the end follows it";
    // The reader scrolls up and selects a line to copy; more output arrives.
    scroll->setValue(3);
    QTextCursor selection(log->document());
    selection.movePosition(QTextCursor::Down, QTextCursor::MoveAnchor, 5);
    selection.select(QTextCursor::LineUnderCursor);
    log->setTextCursor(selection);
    ASSERT_EQ(log->textCursor().selectedText(), QStringLiteral("installing part 5"));
    lastProcess()->write("installing part 60\ninstalling part 61\n");
    settle();
    EXPECT_TRUE(log->toPlainText().endsWith(QStringLiteral("part 60\ninstalling part 61\n")));
    EXPECT_EQ(scroll->value(), 3);
    EXPECT_EQ(log->textCursor().selectedText(), QStringLiteral("installing part 5"));
}

TEST_F(EngineSetupWindowTest, TheSpinnerTurnsOnlyWhileTheWindowIsShown)
{
    make();
    setUpFromTheWindow();
    lastProcess()->write("STEP mac run\n");
    settle();
    QTimer *timer = window->findChild<QTimer *>(QStringLiteral("spinnerTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_TRUE(timer->isActive());
    window->hide();
    EXPECT_FALSE(timer->isActive()) << "nobody sees it turn";
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    EXPECT_TRUE(window->findChild<QTimer *>(QStringLiteral("spinnerTimer"))->isActive());
}

} // namespace
} // namespace sayvo
