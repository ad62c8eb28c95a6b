#include "desktop/TextInserter.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakeKeySynthesizer.h"
#include "support/desktop/FakePasteboard.h"
#include "support/desktop/FakeWorkspace.h"

#include <QTest>

#include <gtest/gtest.h>

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
        return QTest::qWaitFor([this] { return !m_inserter.isRestorePending(); }, 2000);
    }

    std::shared_ptr<FakePasteboard> m_pasteboard;
    std::shared_ptr<FakeKeySynthesizer> m_keys;
    std::shared_ptr<FakeAccessibilityProvider> m_accessibility;
    std::shared_ptr<FakeWorkspace> m_workspace;
    TextInserter m_inserter;
};

TEST_F(TextInserterTest, EmptyTextIsNotInserted)
{
    EXPECT_FALSE(m_inserter.insert(QString(), InsertionMethod::paste));
    EXPECT_FALSE(m_inserter.insert(QString(), InsertionMethod::axDirect));
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
    EXPECT_TRUE(m_inserter.insert(QStringLiteral("hello there"), InsertionMethod::paste));
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

    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("dictated")));
    EXPECT_TRUE(m_inserter.isRestorePending());
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("dictated"));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, AnEmptyClipboardIsEmptyAgainAfterThePaste)
{
    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("dictated")));
    ASSERT_TRUE(waitForRestore());
    EXPECT_TRUE(m_pasteboard->contents.empty());
    EXPECT_EQ(m_pasteboard->log.last(), QStringLiteral("clear"));
}

TEST_F(TextInserterTest, AClipboardWrittenByAnotherProgramDuringTheDelayIsKept)
{
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("dictated")));
    const std::vector<PasteboardItem> newer {item({{"text/plain", "copied meanwhile"}})};
    m_pasteboard->writeFromElsewhere(newer);
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, newer);
}

TEST_F(TextInserterTest, RestoreComesAfterTheDelay)
{
    EXPECT_EQ(TextInserter::kRestoreDelayMs, 140);
    m_pasteboard->preload({item({{"text/plain", "old"}})});
    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("dictated")));
    QCoreApplication::processEvents();
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("dictated"));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->string(), std::nullopt);
    EXPECT_EQ(
        m_pasteboard->contents, (std::vector<PasteboardItem> {item({{"text/plain", "old"}})}));
}

TEST_F(TextInserterTest, AFailedSynthesisRestoresAtOnceAndFails)
{
    const std::vector<PasteboardItem> before {item({{"text/plain", "old"}})};
    m_pasteboard->preload(before);
    m_keys->succeeds = false;
    EXPECT_FALSE(m_inserter.insertViaPaste(QStringLiteral("dictated")));
    EXPECT_FALSE(m_inserter.isRestorePending());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, ASecondPasteWithinTheDelayStillRestoresTheUsersClipboard)
{
    const std::vector<PasteboardItem> before {item({{"text/plain", "mine"}})};
    m_pasteboard->preload(before);
    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("first")));
    EXPECT_TRUE(m_inserter.insertViaPaste(QStringLiteral("second")));
    EXPECT_EQ(m_pasteboard->string(), QStringLiteral("second"));
    ASSERT_TRUE(waitForRestore());
    EXPECT_EQ(m_pasteboard->contents, before);
}

TEST_F(TextInserterTest, TerminalEmulatorsGetControlShiftV)
{
    for (const char *terminal : {"XTerm", "URxvt", "Gnome-terminal", "konsole", "kitty",
             "Alacritty", "foot", "Xfce4-terminal", "Tilix", "org.wezfurlong.wezterm",
             "org.gnome.Terminal", "org.kde.konsole", "footclient"}) {
        EXPECT_TRUE(isTerminalEmulator(QString::fromLatin1(terminal))) << terminal;
    }
    EXPECT_FALSE(isTerminalEmulator(QStringLiteral("firefox")));

    m_workspace->front = FrontApplication {QStringLiteral("kitty"), QStringLiteral("kitty"), 7};
    EXPECT_TRUE(m_inserter.synthesizePaste());
    m_workspace->front = FrontApplication {QStringLiteral("Gedit"), QStringLiteral("gedit"), 8};
    EXPECT_TRUE(m_inserter.synthesizePaste());
    m_workspace->front.reset();
    EXPECT_TRUE(m_inserter.synthesizePaste());
    EXPECT_EQ(m_keys->posted,
        (std::vector {PasteShortcut::terminal, PasteShortcut::standard, PasteShortcut::standard}));
}

TEST_F(TextInserterTest, DirectInsertionReplacesTheSelectionAndKeepsTheRest)
{
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QStringLiteral("keep THIS text");
    field->selectionStart = 5;
    field->selectionEnd = 9;
    field->writable = {QStringLiteral("AXSelectedText"), QStringLiteral("AXValue")};
    m_accessibility->focusSystemWide(field);

    EXPECT_TRUE(m_inserter.insert(QStringLiteral("that"), InsertionMethod::axDirect));
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

    EXPECT_TRUE(m_inserter.insertViaAX(QStringLiteral("new")));
    EXPECT_EQ(field->text, QStringLiteral("new"));
    EXPECT_EQ(m_accessibility->log.filter(QStringLiteral("set:")),
        (QStringList {QStringLiteral("set:field:AXSelectedText=new"),
            QStringLiteral("set:field:AXValue=new")}));
}

TEST_F(TextInserterTest, WithoutAnAccessibleFocusDirectInsertionFailsAndPasteIsUsed)
{
    EXPECT_FALSE(m_inserter.insertViaAX(QStringLiteral("text")));
    EXPECT_TRUE(m_keys->posted.empty());

    EXPECT_TRUE(m_inserter.insert(QStringLiteral("text"), InsertionMethod::axDirect));
    EXPECT_EQ(m_keys->posted.size(), 1u);
}

TEST_F(TextInserterTest, AReadOnlyFocusFallsBackToPaste)
{
    auto label = std::make_shared<FakeAccessibleElement>(QStringLiteral("label"));
    label->text = QStringLiteral("read only");
    m_accessibility->focusSystemWide(label);
    EXPECT_TRUE(m_inserter.insert(QStringLiteral("text"), InsertionMethod::axDirect));
    EXPECT_EQ(label->text, QStringLiteral("read only"));
    EXPECT_EQ(m_keys->posted.size(), 1u);
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

    EXPECT_TRUE(m_inserter.insert(QStringLiteral("typed in"), InsertionMethod::paste));
    EXPECT_EQ(field->text, QStringLiteral("typed in"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_EQ(m_pasteboard->contents, before);
    EXPECT_FALSE(m_inserter.isRestorePending());

    m_accessibility->focusSystemWide(std::make_shared<FakeAccessibleElement>());
    EXPECT_FALSE(m_inserter.insert(QStringLiteral("nowhere"), InsertionMethod::paste));
    EXPECT_TRUE(m_keys->posted.empty());
}

TEST_F(TextInserterTest, WithoutAClipboardTheTextGoesInThroughAccessibilityAndIsNeverPasted)
{
    m_pasteboard->available = false;
    auto field = std::make_shared<FakeAccessibleElement>(QStringLiteral("field"));
    field->text = QString();
    field->writable = {QStringLiteral("AXSelectedText")};
    m_accessibility->focusSystemWide(field);

    EXPECT_TRUE(m_inserter.insert(QStringLiteral("straight in"), InsertionMethod::paste));
    EXPECT_EQ(field->text, QStringLiteral("straight in"));
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_keys->typed.isEmpty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
}

TEST_F(TextInserterTest, WithoutAClipboardARefusedAccessibilityWriteIsTyped)
{
    m_pasteboard->available = false;
    m_accessibility->focusSystemWide(std::make_shared<FakeAccessibleElement>());

    EXPECT_TRUE(m_inserter.insert(QStringLiteral("typed über"), InsertionMethod::axDirect));
    EXPECT_EQ(m_keys->typed, QStringList {QStringLiteral("typed über")});
    EXPECT_TRUE(m_keys->posted.empty());
    EXPECT_TRUE(m_pasteboard->log.isEmpty());
    EXPECT_FALSE(m_inserter.isRestorePending());

    m_keys->available = false;
    EXPECT_FALSE(m_inserter.insert(QStringLiteral("nowhere"), InsertionMethod::paste));
    EXPECT_EQ(m_keys->typed.size(), 1);
}

TEST_F(TextInserterTest, WhenBothWaysFailInsertionFails)
{
    m_keys->succeeds = false;
    m_accessibility->available = false;
    EXPECT_FALSE(m_inserter.insert(QStringLiteral("text"), InsertionMethod::axDirect));
    EXPECT_FALSE(m_inserter.insert(QStringLiteral("text"), InsertionMethod::paste));
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
    EXPECT_EQ(pasteboard.log.mid(pasteboard.log.size() - 2),
        (QStringList {QStringLiteral("clear"), QStringLiteral("writeItems:2")}));
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
    EXPECT_FALSE(pasteboard.log.filter(QStringLiteral("writeItems")).size());
}

} // namespace
