// A whole calibration run through the window, the real coordinator and the reference engine:
// thirteen lines read, one redone, the set submitted, and the engine's learning store checked
// for the thirteen calibration corrections in order.
#include "calibration/CalibrationController.h"
#include "support/engine/EngineProcess.h"
#include "support/session/CoordinatorHarness.h"
#include "ui/CalibrationWindow.h"

#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace sayvo {
namespace {

using Phase = CalibrationController::Phase;

struct StoredFeedback
{
    std::string utteranceId;
    std::string finalText;
    std::string source;
    long long editDelayMs = -1;
};

std::vector<StoredFeedback> storedFeedback(const QString &database)
{
    std::vector<StoredFeedback> rows;
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(database.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr)
        != SQLITE_OK) {
        sqlite3_close(db);
        return rows;
    }
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(db,
            "SELECT utterance_id, final_text, source, edit_delay_ms FROM feedback ORDER BY id", -1,
            &statement, nullptr)
        == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) {
            const auto text = [&](int column) {
                const unsigned char *value = sqlite3_column_text(statement, column);
                return value ? std::string(reinterpret_cast<const char *>(value)) : std::string();
            };
            rows.push_back({text(0), text(1), text(2), sqlite3_column_int64(statement, 3)});
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return rows;
}

TEST(CalibrationEngineTest, ThirteenLinesOneRedoneAreSubmittedToTheEngineInOrder)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // What the replay recogniser "hears", one line per utterance: the thirteen sentences with
    // line 4 misheard, then line 4 again as it should be.
    QStringList heard;
    for (const CalibrationPrompt &prompt : CalibrationPrompt::readSlice()) {
        heard.append(prompt.id == 4 ? QStringLiteral("i cant make it to the call at four thirty")
                                    : prompt.text);
    }
    heard.append(QStringLiteral("i can't make it to the call at 4:30"));
    const QString replay = dir.path() + QStringLiteral("/heard.txt");
    {
        QFile file(replay);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(heard.join(QLatin1Char('\n')).toUtf8() + "\n");
    }
    test::EngineProcess engine;
    ASSERT_TRUE(engine.start({QStringLiteral("--asr"), QStringLiteral("replay:") + replay,
        QStringLiteral("--data-dir"), dir.path()}))
        << engine.log().toStdString();

    test::CoordinatorHarness h;
    h.client->updateEndpoint(QUrl(engine.url()));
    ASSERT_TRUE(h.startAndConnect()) << engine.log().toStdString();
    CalibrationController controller(
        *h.coordinator, *h.client, *h.settings, CalibrationPrompt::readSlice());
    CalibrationWindow window(controller);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

    const auto click = [&](const char *name) {
        auto *button = window.findChild<QPushButton *>(QString::fromLatin1(name));
        ASSERT_NE(button, nullptr) << name;
        ASSERT_TRUE(button->isVisible()) << name;
        QTest::mouseClick(button, Qt::LeftButton);
    };
    const auto readCurrentLine = [&] {
        const auto resultsBefore = controller.results().size();
        click("startReading");
        ASSERT_EQ(controller.phase(), Phase::recording);
        h.speak(test::CoordinatorHarness::tone(16000));
        click("done");
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return controller.results().size() != resultsBefore || controller.lastError(); },
            10000))
            << engine.log().toStdString();
        ASSERT_FALSE(controller.lastError().has_value()) << controller.lastError()->toStdString();
    };

    for (int line = 0; line < 13; ++line) {
        readCurrentLine();
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
    }
    ASSERT_EQ(controller.phase(), Phase::reviewing);
    ASSERT_EQ(controller.results().size(), 13);
    EXPECT_TRUE(h.pastedTexts().empty()) << "calibration lines are never inserted";

    const auto misheard = std::find_if(controller.results().begin(), controller.results().end(),
        [](const auto &r) { return r.promptId == 4; });
    ASSERT_NE(misheard, controller.results().end());
    EXPECT_GT(misheard->wer, 0.0);
    QWidget *row = nullptr;
    for (QWidget *candidate : window.findChildren<QWidget *>("resultRow")) {
        if (candidate->isVisible() && candidate->property("promptId").toInt() == 4) {
            row = candidate;
        }
    }
    ASSERT_NE(row, nullptr);
    QTest::mouseClick(row->findChild<QToolButton *>("redo"), Qt::LeftButton);
    ASSERT_EQ(controller.currentPrompt()->id, 4);
    readCurrentLine();
    ASSERT_EQ(controller.phase(), Phase::reviewing);
    ASSERT_EQ(controller.results().size(), 13);
    EXPECT_EQ(controller.results().back().promptId, 4);
    EXPECT_EQ(controller.results().back().wer, 0.0)
        << controller.results().back().transcript.toStdString();

    const QString database = dir.path() + QStringLiteral("/learning.sqlite3");
    EXPECT_TRUE(storedFeedback(database).empty()) << "nothing is sent before Submit";

    // Sharing is off: Submit explains that and sends nothing until the user turns it on.
    click("submit");
    ASSERT_TRUE(controller.isAwaitingSharing());
    QTest::qWait(200);
    EXPECT_TRUE(storedFeedback(database).empty()) << "nothing is sent with sharing off";
    click("enableSharing");
    EXPECT_TRUE(h.settings->feedbackEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return controller.phase() == Phase::finished; }, 10000));
    std::vector<StoredFeedback> stored;
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return (stored = storedFeedback(database)).size() >= 13; }, 10000))
        << engine.log().toStdString();
    ASSERT_EQ(stored.size(), 13u);
    for (std::size_t i = 0; i < stored.size(); ++i) {
        const auto &result = controller.results()[static_cast<qsizetype>(i)];
        EXPECT_EQ(stored[i].utteranceId, result.utteranceId.toStdString());
        EXPECT_EQ(stored[i].finalText, result.reference.toStdString());
        EXPECT_EQ(stored[i].source, "calibration");
        EXPECT_EQ(stored[i].editDelayMs, 0);
    }
    EXPECT_EQ(stored.back().finalText, "I can't make it to the call at 4:30.");
    EXPECT_EQ(stored.front().finalText, "The meeting is at 3pm in room 204.");
}

} // namespace
} // namespace sayvo
