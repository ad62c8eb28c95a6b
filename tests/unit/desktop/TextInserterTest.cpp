#include "desktop/TextInserter.h"
#include "desktop/AXHelpers.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakeKeySynthesizer.h"
#include "support/desktop/FakePasteboard.h"
#include "support/desktop/FakeWorkspace.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

PasteboardItem item(std::initializer_list<std::pair<const char *, const char *>> types)
{
    PasteboardItem result;
    for (const auto &[type, data] : types) {
        result.emplace_back(QString::fromLatin1(type), QByteArray(data));
    }
    return result;
}

class TextInserterTest : public ::testing::Test
{
protected:
    TextInserterTest()
        : m_pasteboard(std::make_shared<FakePasteboard>()),
          m_keys(std::make_shared<FakeKeySynthesizer>()),
          m_accessibility(std::make_shared<FakeAccessibilityProvider>()),
          m_workspace(std::make_shared<FakeWorkspace>()),
          m_inserter(m_pasteboard, m_keys, m_accessibility, m_workspace)
    { }

    bool waitForRestore()
    {
        return QTest::qWaitFor([this] { return !m_inserter.isRestorePending(); }, 5000);
    }

    // Inserts and returns what the completion said; nullopt while it has not run yet.
    std::shared_ptr<std::optional<bool>> insert(const QString &text, InsertionMethod method)
    {
        auto result = std::make_shared<std::optional<bool>>();
        m_inserter.insert(text, method, [result](bool inserted) { *result = inserted; });
        return result;
    }
    bool paste(const QString &text)
    {
        const auto result = insert(text, InsertionMethod::paste);
        return result->value_or(false);
    }

    std::shared_ptr<FakePasteboard> m_pasteboard;
    std::shared_ptr<FakeKeySynthesizer> m_keys;
    std::shared_ptr<FakeAccessibilityProvider> m_accessibility;
    std::shared_ptr<FakeWorkspace> m_workspace;
    TextInserter m_inserter;
};

TEST_F(TextInserterTest, EmptyTextIsNotInserted)
{
    EXPECT_EQ(*insert(QString(), InsertionMethod::paste), false);
    EXPECT_EQ(*insert(QString(), InsertionMethod::axDirect), false);
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_accessibility->log.isEmpty());
}

TEST_F(TextInserterTest, PastePutsTheConcealedTextOnTheClipboardForTheTarget)
{
    std::optional<QString> seenByTarget;
    std::vector<PasteboardItem> itemsSeenByTarget;
    m_keys->onPaste = [&] {
        seenByTarget = m_pasteboard->string();
        itemsSeenByTarget = m_pasteboard->contents;
    };
    EXPECT_TRUE(paste(QStringLiteral("hello there")));
    EXPECT_EQ(seenByTarget, QStringLiteral("hello there"));
    ASSERT_EQ(itemsSeenByTarget.size(), 1u);
    EXPECT_EQ(itemsSeenByTarget[0].back(),
        std::make_pair(FakePasteboard::kConcealedType, QByteArray("secret")));
    EXPECT_EQ(m_keys->posted, std::vector<PasteShortcut> {PasteShortcut::standard});
}

TEST_F(TextInserterTest, AfterThePasteEveryItemAndTypeOfTheClipboardIsBack)
{
    const std::vector<PasteboardItem> before {
        item({{"text/html", "<b>rich</b>"}, {"text/plain", "rich"}}),
        item({{"image/png", "\x89PNG"}, {"text/uri-list", "file:///a.png"}})};
    m_pasteboard->preload(before);

    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    EXPECT_TRUE(m_inserter.isRestorePending());
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("dictated"));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, TheClipboardIsNeverEmptyOrOwnerlessOnTheWay)
{
    m_pasteboard->preload({item({{"text/plain", "mine"}})});
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    // A clear between the writes is a moment a clipboard manager would fill.
    EXPECT_FALSE(m_pasteboard->log.contains(QStringLiteral("clear")))
        << m_pasteboard->log.join(' ').toStdString();
    EXPECT_EQ(m_pasteboard->log.filter(QStringLiteral("write")).size()
            + m_pasteboard->log.filter(QStringLiteral("setConcealedString")).size(),
        2);
}

TEST_F(TextInserterTest, AnEmptyClipboardIsEmptyAgainAfterThePaste)
{
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_TRUE(m_pasteboard->contents.empty());
    EXPECT_EQ(m_pasteboard->log.last(), QStringLiteral("clear"));
}

// Saved while the engine finishes: the paste itself asks the clipboard's owner for nothing.
TEST_F(TextInserterTest, AClipboardSavedAheadIsNotReadAgainByThePaste)
{
    const std::vector<PasteboardItem> before {
        item({{"text/html", "<b>rich</b>"}, {"text/plain", "rich"}})};
    m_pasteboard->preload(before);
    m_inserter.prepare();
    EXPECT_EQ(m_pasteboard->log, QStringList {"items"});
    m_pasteboard->log.clear();

    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    EXPECT_FALSE(m_pasteboard->log.contains(QStringLiteral("items")))
        << m_pasteboard->log.join(' ').toStdString();
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, AClipboardChangedAfterItWasSavedAheadIsSavedAgain)
{
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    m_inserter.prepare();
    const std::vector<PasteboardItem> newer {item({{"text/plain", "copied meanwhile"}})};
    m_pasteboard->writeFromElsewhere(newer);
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, newer);
}

TEST_F(TextInserterTest, AForgottenSaveIsNotUsed)
{
    m_pasteboard->preload({item({{"text/plain", "mine"}})});
    m_inserter.prepare();
    m_inserter.forgetPrepared();
    m_pasteboard->log.clear();
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    EXPECT_TRUE(m_pasteboard->log.contains(QStringLiteral("items")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "mine"}})}));
}

// While a transcript is on the clipboard, there is nothing of the user's to save ahead.
TEST_F(TextInserterTest, NothingIsSavedAheadWhileAPasteIsUnderWay)
{
    m_pasteboard->preload({item({{"text/plain", "mine"}})});
    EXPECT_TRUE(paste(QStringLiteral("first")));
    m_pasteboard->log.clear();
    m_inserter.prepare();
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "mine"}})}));
}

TEST_F(TextInserterTest, AClipboardWrittenByAnotherProgramDuringTheDelayIsKept)
{
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    const std::vector<PasteboardItem> newer {item({{"text/plain", "copied meanwhile"}})};
    m_pasteboard->writeFromElsewhere(newer);
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, newer);
}

TEST_F(TextInserterTest, RestoreComesNoSoonerThanTheDelayEvenAfterAnEarlyRead)
{
    m_pasteboard->servedReports = true;
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    const qint64 pastedAtMs = m_pasteboard->clock.elapsed();
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    m_pasteboard->serveToTarget();
    ASSERT_TRUE(waitForRestore());
    // Timers fire late on a busy machine, never early: this holds however loaded it is.
    EXPECT_GE(m_pasteboard->lastTimeMs(QStringLiteral("writeItems")) - pastedAtMs,
        TextInserter::kRestoreDelayMs);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, WithoutReadReportsTheRestoreComesAfterTheDelay)
{
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    const qint64 pastedAtMs = m_pasteboard->clock.elapsed();
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    const qint64 restoredAfterMs
        = m_pasteboard->lastTimeMs(QStringLiteral("writeItems")) - pastedAtMs;
    EXPECT_GE(restoredAfterMs, TextInserter::kRestoreDelayMs);
    EXPECT_LT(restoredAfterMs, TextInserter::kLongestHoldMs);
}

TEST_F(TextInserterTest, TheTranscriptStaysUntilTheTargetHasReadIt)
{
    m_pasteboard->servedReports = true;
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    // A busy target has not asked yet, well past the usual delay.
    QTest::qWait(TextInserter::kRestoreDelayMs + 200);
    EXPECT_TRUE(m_inserter.isRestorePending());
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("dictated"));

    const qint64 readAtMs = m_pasteboard->clock.elapsed();
    m_pasteboard->serveToTarget();
    ASSERT_TRUE(waitForRestore());
    // The target gets time to take the text in after its read.
    EXPECT_GE(m_pasteboard->lastTimeMs(QStringLiteral("writeItems")),
        readAtMs + TextInserter::kReadSettleMs);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, EveryReadGetsItsTimeBeforeTheClipboardChanges)
{
    m_pasteboard->servedReports = true;
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    // Sleeping without the event loop keeps every timer from firing, however late this
    // thread gets the processor back.
    std::this_thread::sleep_for(std::chrono::milliseconds(TextInserter::kRestoreDelayMs));
    m_pasteboard->serveToTarget();
    // A second reader (or the target asking for another type) comes before the first read's
    // time is up.
    std::this_thread::sleep_for(std::chrono::milliseconds(TextInserter::kReadSettleMs / 2));
    ASSERT_TRUE(m_inserter.isRestorePending());
    const qint64 secondReadAtMs = m_pasteboard->clock.elapsed();
    m_pasteboard->serveToTarget();
    ASSERT_TRUE(waitForRestore());
    EXPECT_GE(m_pasteboard->lastTimeMs(QStringLiteral("writeItems")),
        secondReadAtMs + TextInserter::kReadSettleMs);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, ReadsThatKeepComingHoldTheTextNoLongerThanTheLongestHold)
{
    m_pasteboard->servedReports = true;
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    const qint64 pastedAtMs = m_pasteboard->clock.elapsed();
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    // A clipboard manager that reads every 50 ms.
    QTimer reader;
    QObject::connect(&reader, &QTimer::timeout, [this] { m_pasteboard->serveToTarget(); });
    reader.start(50);
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return !m_inserter.isRestorePending(); }, 5 * TextInserter::kLongestHoldMs));
    reader.stop();
    EXPECT_GE(m_pasteboard->lastTimeMs(QStringLiteral("writeItems")) - pastedAtMs,
        TextInserter::kLongestHoldMs);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, ATargetThatNeverReadsGetsTheLongestHoldAndNoMore)
{
    m_pasteboard->servedReports = true;
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    const qint64 pastedAtMs = m_pasteboard->clock.elapsed();
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_GE(m_pasteboard->lastTimeMs(QStringLiteral("writeItems")) - pastedAtMs,
        TextInserter::kLongestHoldMs);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, AFailedClipboardWriteFailsAndLeavesTheClipboardAlone)
{
    const std::vector<PasteboardItem> before {item({{"text/plain", "mine"}})};
    m_pasteboard->preload(before);
    m_pasteboard->failSetString = true;
    EXPECT_EQ(*insert(QStringLiteral("dictated"), InsertionMethod::paste), false);
    EXPECT_TRUE(m_keys->posted.empty()) << "Control-V would paste the old clipboard";
    EXPECT_FALSE(m_inserter.isRestorePending());
    EXPECT_TRUE(m_pasteboard->log.filter(QStringLiteral("writeItems")).isEmpty());
    EXPECT_FALSE(m_pasteboard->log.contains(QStringLiteral("clear")));
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, AFailedSynthesisRestoresAtOnceAndFails)
{
    const std::vector<PasteboardItem> before {item({{"text/plain", "old"}})};
    m_pasteboard->preload(before);
    m_keys->succeeds = false;
    EXPECT_EQ(*insert(QStringLiteral("dictated"), InsertionMethod::paste), false);
    EXPECT_FALSE(m_inserter.isRestorePending());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, WithoutLeaveToPostKeysThePasteFailsBeforeTheClipboardIsTouched)
{
    const std::vector<PasteboardItem> before {item({{"text/plain", "mine"}})};
    m_pasteboard->preload(before);
    m_keys->mayPost = false;

    EXPECT_EQ(*insert(QStringLiteral("dictated"), InsertionMethod::paste), false);

    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_FALSE(m_inserter.isRestorePending());
    EXPECT_TRUE(m_pasteboard->log.filter(QStringLiteral("writeItems")).isEmpty());
    EXPECT_TRUE(m_pasteboard->log.filter(QStringLiteral("setConcealedString")).isEmpty());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, ASecondPasteWaitsForTheFirstToBeReadAndTheUsersClipboardComesBack)
{
    m_pasteboard->servedReports = true;
    const std::vector<PasteboardItem> before {item({{"text/plain", "mine"}})};
    m_pasteboard->preload(before);
    QStringList readByTarget;
    m_keys->onPaste = [&] { readByTarget << m_pasteboard->string().value_or(QString()); };
    EXPECT_TRUE(paste(QStringLiteral("first")));
    const auto second = insert(QStringLiteral("second"), InsertionMethod::paste);
    // The first text is not replaced before its target read it.
    EXPECT_FALSE(second->has_value());
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("first"));

    m_pasteboard->serveToTarget();
    ASSERT_TRUE(QTest::qWaitFor([&] { return second->has_value(); }, 5000));
    EXPECT_EQ(**second, true);
    EXPECT_EQ(readByTarget, (QStringList {QStringLiteral("first"), QStringLiteral("second")}));
    m_pasteboard->serveToTarget();
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, HeldKeysDelayTheChordWithoutBlocking)
{
    m_keys->keyHeld = true;
    const auto result = insert(QStringLiteral("dictated"), InsertionMethod::paste);
    // Back at once, the chord not sent yet.
    EXPECT_FALSE(result->has_value());
    EXPECT_TRUE(m_keys->posted.empty());
    bool eventLoopRan = false;
    QTimer::singleShot(30, [&] { eventLoopRan = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return eventLoopRan; }, 5000));
    EXPECT_TRUE(m_keys->posted.empty());

    m_keys->keyHeld = false;
    ASSERT_TRUE(QTest::qWaitFor([&] { return result->has_value(); }, 5000));
    EXPECT_EQ(**result, true);
    EXPECT_EQ(m_keys->posted.size(), 1u);
}

TEST_F(TextInserterTest, AKeyHeldForeverDelaysThePasteOnlySoLong)
{
    m_keys->keyHeld = true;
    QElapsedTimer timer;
    timer.start();
    const auto result = insert(QStringLiteral("dictated"), InsertionMethod::paste);
    ASSERT_TRUE(QTest::qWaitFor([&] { return result->has_value(); }, 10000));
    EXPECT_GE(timer.elapsed(), TextInserter::kLongestKeyWaitMs);
    EXPECT_EQ(**result, true);
}

TEST_F(TextInserterTest, EachKindOfTerminalGetsItsOwnPasteChord)
{
    for (const char *terminal :
        {"Gnome-terminal", "gnome-terminal-server", "konsole", "Xfce4-terminal", "Mate-terminal",
            "Lxterminal", "qterminal", "Terminator", "Tilix", "kgx", "org.gnome.Console",
            "org.gnome.Ptyxis", "st-256color", "Sakura", "Guake", "Tilda", "terminology", "kitty",
            "Alacritty", "foot", "footclient", "org.wezfurlong.wezterm", "cool-retro-term"}) {
        EXPECT_EQ(pasteShortcutFor(QString::fromLatin1(terminal)), PasteShortcut::controlShiftV)
            << terminal;
    }
    EXPECT_EQ(pasteShortcutFor(QStringLiteral("XTerm")), PasteShortcut::shiftInsert);
    EXPECT_EQ(pasteShortcutFor(QStringLiteral("URxvt")), PasteShortcut::controlAltV);
    EXPECT_EQ(pasteShortcutFor(QStringLiteral("firefox")), PasteShortcut::standard);
    EXPECT_EQ(pasteShortcutFor(QStringLiteral("Gedit")), PasteShortcut::standard);

    // foot runs only under Wayland, where its app id is what the workspace reports.
    m_workspace->front = FrontApplication {QStringLiteral("foot"), QStringLiteral("foot"), 7};
    EXPECT_TRUE(paste(QStringLiteral("one")));
    ASSERT_TRUE(waitForRestore());
    m_workspace->front = FrontApplication {QStringLiteral("Gedit"), QStringLiteral("gedit"), 8};
    EXPECT_TRUE(paste(QStringLiteral("two")));
    ASSERT_TRUE(waitForRestore());
    m_workspace->front.reset();
    EXPECT_TRUE(paste(QStringLiteral("three")));
    EXPECT_EQ(m_keys->posted,
        (std::vector {
            PasteShortcut::controlShiftV, PasteShortcut::standard, PasteShortcut::standard}));
}

TEST_F(TextInserterTest, XtermIsPastedThroughThePrimarySelection)
{
    auto primary = std::make_shared<FakePasteboard>();
    primary->preload({item({{"text/plain;charset=utf-8", "selected words"}})});
    TextInserter inserter(m_pasteboard, m_keys, m_accessibility, m_workspace, primary);
    m_pasteboard->preload({item({{"text/plain", "clipboard"}})});
    m_workspace->front = FrontApplication {QStringLiteral("XTerm"), QStringLiteral("xterm"), 9};
    std::optional<QString> seenByTarget;
    m_keys->onPaste = [&] { seenByTarget = primary->string(); };
    bool inserted = false;
    inserter.insert(QStringLiteral("dictated"), InsertionMethod::paste,
        [&](bool result) { inserted = result; });
    EXPECT_TRUE(inserted);
    EXPECT_EQ(m_keys->posted, std::vector<PasteShortcut> {PasteShortcut::shiftInsert});
    EXPECT_EQ(seenByTarget, QStringLiteral("dictated"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !inserter.isRestorePending(); }, 5000));
    EXPECT_EQ(primary->string(), QStringLiteral("selected words"));
    EXPECT_TRUE(m_pasteboard->log.filter(QStringLiteral("setConcealedString")).isEmpty())
        << "the clipboard is not touched";
}

TEST_F(TextInserterTest, WithoutAPrimarySelectionXtermGetsControlShiftV)
{
    m_workspace->front = FrontApplication {QStringLiteral("XTerm"), QStringLiteral("xterm"), 9};
    EXPECT_TRUE(paste(QStringLiteral("dictated")));
    EXPECT_EQ(m_keys->posted, std::vector<PasteShortcut> {PasteShortcut::controlShiftV});
}

TEST_F(TextInserterTest, DirectInsertionReplacesTheSelectionAndKeepsTheRest)
{
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QStringLiteral("keep THIS text");
    field->selectionStart = 5;
    field->selectionEnd = 9;
    field->writable = {QStringLiteral("AXSelectedText"), QStringLiteral("AXValue")};
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(*insert(QStringLiteral("that"), InsertionMethod::axDirect), true);
    EXPECT_EQ(field->text, QStringLiteral("keep that text"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
}

TEST_F(TextInserterTest, DirectInsertionFallsBackToReplacingTheWholeValue)
{
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QStringLiteral("old content");
    field->writable = {QStringLiteral("AXValue")};
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(m_inserter.insertViaAX(QStringLiteral("new")), AccessibilityWrite::written);
    EXPECT_EQ(field->text, QStringLiteral("new"));
    EXPECT_EQ(m_accessibility->log.filter(QStringLiteral("set:")),
        (QStringList {QStringLiteral("set:field:AXSelectedText=new"),
            QStringLiteral("set:field:AXValue=new")}));
}

TEST_F(TextInserterTest, WithoutAnAccessibleFocusDirectInsertionFailsAndPasteIsUsed)
{
    EXPECT_EQ(m_inserter.insertViaAX(QStringLiteral("text")), AccessibilityWrite::refused);
    EXPECT_TRUE(m_keys->posted.empty());

    EXPECT_EQ(*insert(QStringLiteral("text"), InsertionMethod::axDirect), true);
    EXPECT_EQ(m_keys->posted.size(), 1u);
}

TEST_F(TextInserterTest, AReadOnlyFocusFallsBackToPaste)
{
    auto label = std::make_shared<FakeAccessibleElement>(QStringLiteral("label"));
    label->text = QStringLiteral("read only");
    m_accessibility->focusSystemWide(label);
    EXPECT_EQ(*insert(QStringLiteral("text"), InsertionMethod::axDirect), true);
    EXPECT_EQ(label->text, QStringLiteral("read only"));
    EXPECT_EQ(m_keys->posted.size(), 1u);
}

TEST_F(TextInserterTest, ASlowApplicationStillGetsItsTextDirectly)
{
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QStringLiteral("Dear ");
    field->selectionStart = field->selectionEnd = 5;
    field->writable = {QStringLiteral("AXSelectedText")};
    field->answerAfter = AXHelpers::kReadTimeout * 2;
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(*insert(QStringLiteral("Anna"), InsertionMethod::axDirect), true);
    EXPECT_EQ(field->text, QStringLiteral("Dear Anna"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
}

TEST_F(TextInserterTest, AnUnansweredDirectWriteIsNeverFollowedByAPaste)
{
    m_pasteboard->preload({item({{"text/plain", "the user's"}})});
    const auto before = m_pasteboard->contents;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QStringLiteral("Dear ");
    field->selectionStart = field->selectionEnd = 5;
    field->writable = {QStringLiteral("AXSelectedText"), QStringLiteral("AXValue")};
    field->answerAfter = AXHelpers::kWriteTimeout * 2;
    m_accessibility->focusSystemWide(field);

    // Shown as inserted: the busy application takes the text when it gets to it, once.
    EXPECT_EQ(*insert(QStringLiteral("Anna"), InsertionMethod::axDirect), true);
    EXPECT_EQ(field->text, QStringLiteral("Dear Anna"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_EQ(m_pasteboard->contents, before);
    EXPECT_FALSE(m_inserter.isRestorePending());
    // Nor is the whole value written over it.
    EXPECT_EQ(m_accessibility->log.filter(QStringLiteral("set:")),
        QStringList {QStringLiteral("set:field:AXSelectedText=Anna")});
}

TEST_F(TextInserterTest, WithoutAClipboardAnUnansweredDirectWriteIsNotTypedAsWell)
{
    m_pasteboard->available = false;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QString();
    field->writable = {QStringLiteral("AXSelectedText")};
    field->answerAfter = AXHelpers::kWriteTimeout * 2;
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(*insert(QStringLiteral("once"), InsertionMethod::paste), true);
    EXPECT_EQ(field->text, QStringLiteral("once"));
    EXPECT_TRUE(m_keys->typed.isEmpty());
    EXPECT_FALSE(m_inserter.isRestorePending());
}

TEST_F(TextInserterTest, WithoutKeystrokesEvenPasteInsertionWritesThroughAccessibility)
{
    m_keys->available = false;
    m_pasteboard->preload({item({{"text/plain", "the user's"}})});
    const auto before = m_pasteboard->contents;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QString();
    field->writable = {QStringLiteral("AXSelectedText")};
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(*insert(QStringLiteral("typed in"), InsertionMethod::paste), true);
    EXPECT_EQ(field->text, QStringLiteral("typed in"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_EQ(m_pasteboard->contents, before);
    EXPECT_FALSE(m_inserter.isRestorePending());

    m_accessibility->focusSystemWide(std::make_shared<FakeAccessibleElement>());
    EXPECT_EQ(*insert(QStringLiteral("nowhere"), InsertionMethod::paste), false);
    EXPECT_TRUE(m_keys->posted.empty());
}

TEST_F(TextInserterTest, WithoutAClipboardTheTextGoesInThroughAccessibilityAndIsNeverPasted)
{
    m_pasteboard->available = false;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QString();
    field->writable = {QStringLiteral("AXSelectedText")};
    m_accessibility->focusSystemWide(field);

    EXPECT_EQ(*insert(QStringLiteral("straight in"), InsertionMethod::paste), true);
    EXPECT_EQ(field->text, QStringLiteral("straight in"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_keys->typed.isEmpty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
}

TEST_F(TextInserterTest, WithoutAClipboardARefusedAccessibilityWriteIsTyped)
{
    m_pasteboard->available = false;
    m_accessibility->focusSystemWide(std::make_shared<FakeAccessibleElement>());

    EXPECT_EQ(*insert(QStringLiteral("typed über"), InsertionMethod::axDirect), true);
    EXPECT_EQ(m_keys->typed, QStringList {QStringLiteral("typed über")});
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
    EXPECT_FALSE(m_inserter.isRestorePending());

    m_keys->available = false;
    EXPECT_EQ(*insert(QStringLiteral("nowhere"), InsertionMethod::paste), false);
    EXPECT_EQ(m_keys->typed.size(), 1);
}

TEST_F(TextInserterTest, WithoutAClipboardTypingWaitsForHeldKeysWithoutBlocking)
{
    m_pasteboard->available = false;
    m_keys->keyHeld = true;
    const auto result = insert(QStringLiteral("after the trigger"), InsertionMethod::paste);
    // Back at once, nothing typed while a modifier could turn the characters into shortcuts.
    EXPECT_FALSE(result->has_value());
    bool eventLoopRan = false;
    QTimer::singleShot(30, [&] { eventLoopRan = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return eventLoopRan; }, 5000));
    EXPECT_TRUE(m_keys->typed.isEmpty());

    m_keys->keyHeld = false;
    ASSERT_TRUE(QTest::qWaitFor([&] { return result->has_value(); }, 5000));
    EXPECT_EQ(**result, true);
    EXPECT_EQ(m_keys->typed, QStringList {QStringLiteral("after the trigger")});
}

TEST_F(TextInserterTest, WithoutAClipboardTextsAreTypedInTheOrderTheyCame)
{
    m_pasteboard->available = false;
    m_keys->keyHeld = true;
    const auto first = insert(QStringLiteral("first"), InsertionMethod::paste);
    const auto second = insert(QStringLiteral("second"), InsertionMethod::paste);
    m_keys->keyHeld = false;
    ASSERT_TRUE(QTest::qWaitFor([&] { return second->has_value(); }, 5000));
    EXPECT_EQ(*first, true);
    EXPECT_EQ(*second, true);
    EXPECT_EQ(m_keys->typed, (QStringList {QStringLiteral("first"), QStringLiteral("second")}));
}

TEST_F(TextInserterTest, WithoutAClipboardOrLeaveToPostKeysNothingIsTyped)
{
    m_pasteboard->available = false;
    m_keys->mayPost = false;
    EXPECT_EQ(*insert(QStringLiteral("dictated"), InsertionMethod::paste), false);
    EXPECT_TRUE(m_keys->typed.isEmpty());
    EXPECT_FALSE(m_inserter.isRestorePending());
}

TEST_F(TextInserterTest, WithoutAClipboardAFailedTypingIsAFailure)
{
    m_pasteboard->available = false;
    m_keys->succeeds = false;
    EXPECT_EQ(*insert(QStringLiteral("too long to type"), InsertionMethod::paste), false);
    EXPECT_FALSE(m_inserter.isRestorePending());
}

TEST_F(TextInserterTest, WhenBothWaysFailInsertionFails)
{
    m_keys->succeeds = false;
    m_accessibility->available = false;
    EXPECT_EQ(*insert(QStringLiteral("text"), InsertionMethod::axDirect), false);
    EXPECT_EQ(*insert(QStringLiteral("text"), InsertionMethod::paste), false);
}

TEST(PasteboardSnapshotTest, CaptureKeepsEveryItemAndTypeInOrder)
{
    FakePasteboard pasteboard;
    const std::vector<PasteboardItem> items {
        item({{"text/rtf", "{\\rtf1 a}"}, {"text/plain", "a"}}), item({{"text/plain", "b"}})};
    pasteboard.preload(items);
    const PasteboardSnapshot snapshot = PasteboardSnapshot::capture(pasteboard);
    EXPECT_EQ(snapshot.items, items);

    pasteboard.writeFromElsewhere({item({{"text/plain", "other"}})});
    snapshot.restore(pasteboard);
    EXPECT_EQ(pasteboard.contents, items);
    EXPECT_EQ(pasteboard.log.last(), QStringLiteral("writeItems:2"));
    EXPECT_FALSE(pasteboard.log.contains(QStringLiteral("clear")));
}

TEST(PasteboardSnapshotTest, ItemsWithoutAReadableTypeAreLeftOut)
{
    FakePasteboard pasteboard;
    pasteboard.preload({PasteboardItem {}, item({{"text/plain", "kept"}}), PasteboardItem {}});
    const PasteboardSnapshot snapshot = PasteboardSnapshot::capture(pasteboard);
    EXPECT_EQ(snapshot.items, std::vector<PasteboardItem> {item({{"text/plain", "kept"}})});

    pasteboard.writeFromElsewhere({item({{"text/plain", "other"}})});
    snapshot.restore(pasteboard);
    EXPECT_EQ(pasteboard.log.last(), QStringLiteral("writeItems:1"));
}

TEST(PasteboardSnapshotTest, AClipboardOfUnreadableItemsComesBackEmpty)
{
    FakePasteboard pasteboard;
    pasteboard.preload({PasteboardItem {}});
    const PasteboardSnapshot snapshot = PasteboardSnapshot::capture(pasteboard);
    EXPECT_TRUE(snapshot.items.empty());
    pasteboard.writeFromElsewhere({item({{"text/plain", "transcript"}})});
    snapshot.restore(pasteboard);
    EXPECT_TRUE(pasteboard.contents.empty());
    EXPECT_EQ(pasteboard.log.last(), QStringLiteral("clear"));
}

TEST(PasteboardSnapshotTest, RestoringAnEmptySnapshotOnlyClears)
{
    FakePasteboard pasteboard;
    const PasteboardSnapshot empty = PasteboardSnapshot::capture(pasteboard);
    EXPECT_TRUE(empty.items.empty());
    pasteboard.writeFromElsewhere({item({{"text/plain", "later"}})});
    empty.restore(pasteboard);
    EXPECT_TRUE(pasteboard.contents.empty());
    EXPECT_EQ(pasteboard.log.last(), QStringLiteral("clear"));
    EXPECT_TRUE(pasteboard.log.filter(QStringLiteral("writeItems")).isEmpty());
}

} // namespace
