#include "AccessibilityProviderAtSpi.h"
#include "DesktopSession.h"
#include "KeySynthesizerX11.h"
#include "PasteboardX11.h"
#include "TestEditor.h"
#include "TextInserter.h"
#include "WorkspaceX11.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

class PasteX11Test : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_editor = std::make_unique<TestEditor>(m_session, QStringLiteral("Paste target"));
        ASSERT_TRUE(m_editor->isReady());
        m_inserter = std::make_unique<TextInserter>(std::make_shared<PasteboardX11>(),
            std::make_shared<KeySynthesizerX11>(), std::make_shared<AccessibilityProviderAtSpi>(),
            std::make_shared<WorkspaceX11>());
    }

    // Reads the clipboard with xclip, an independent client.
    QByteArray clipboard(const QString &target, int *exitCode = nullptr)
    {
        return m_session.run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
                target, QStringLiteral("-o")},
            exitCode);
    }

    bool waitForRestore()
    {
        return QTest::qWaitFor([this] { return !m_inserter->isRestorePending(); }, 5000);
    }

    DesktopSession m_session;
    std::unique_ptr<TestEditor> m_editor;
    std::unique_ptr<TextInserter> m_inserter;
};

TEST_F(PasteX11Test, PasteTypesTheTextAndPutsBackEveryFormatOfTheClipboard)
{
    const QString html = QStringLiteral("<p>rich <b>copy</b></p>");
    QProcess *owner = m_session.start(QStringLiteral(SAYVO_CLIPBOARD_OWNER),
        {QStringLiteral("--text"), QStringLiteral("plain copy"), QStringLiteral("--html"), html,
            QStringLiteral("--png")});
    ASSERT_TRUE(owner);
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));
    ASSERT_EQ(owner->readLine().trimmed(), "owned");
    ASSERT_TRUE(QTest::qWaitFor([owner] { return owner->canReadLine(); }, 5000));
    const QByteArray png = QByteArray::fromBase64(owner->readLine().trimmed().mid(4));
    ASSERT_FALSE(png.isEmpty());
    ASSERT_EQ(clipboard(QStringLiteral("image/png")), png);

    const QString transcript = QStringLiteral("Hello from Sayvo, naïve café");
    ASSERT_TRUE(m_inserter->insert(transcript, InsertionMethod::paste));
    EXPECT_TRUE(m_editor->waitForText(transcript));
    ASSERT_TRUE(waitForRestore());

    const QByteArray targets = clipboard(QStringLiteral("TARGETS"));
    EXPECT_TRUE(targets.contains("text/plain")) << targets.toStdString();
    EXPECT_TRUE(targets.contains("text/html")) << targets.toStdString();
    EXPECT_TRUE(targets.contains("image/png")) << targets.toStdString();
    EXPECT_FALSE(targets.contains("x-kde-passwordManagerHint")) << targets.toStdString();
    EXPECT_EQ(clipboard(QStringLiteral("text/plain")), "plain copy");
    EXPECT_EQ(clipboard(QStringLiteral("text/html")), html.toUtf8());
    EXPECT_EQ(clipboard(QStringLiteral("image/png")), png);
    EXPECT_EQ(m_editor->text(), transcript);
}

TEST_F(PasteX11Test, TheTranscriptOnTheClipboardAsksClipboardManagersToSkipIt)
{
    PasteboardX11 pasteboard;
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("secret words")));
    EXPECT_EQ(clipboard(QStringLiteral("x-kde-passwordManagerHint")), "secret");
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "secret words");
}

TEST_F(PasteX11Test, AClipboardWrittenByAnotherClientWithinTheDelayKeepsItsNewContent)
{
    m_editor->copy(QStringLiteral("before"));
    ASSERT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "before");
    const QString file = m_session.directory() + QStringLiteral("/newer.txt");
    QFile newer(file);
    ASSERT_TRUE(newer.open(QIODevice::WriteOnly));
    newer.write("written meanwhile");
    newer.close();

    ASSERT_TRUE(m_inserter->insertViaPaste(QStringLiteral("dictated")));
    ASSERT_TRUE(m_session.start(QStringLiteral("xclip"),
        {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-i"), file}));
    ASSERT_TRUE(waitForRestore());
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("dictated")));
    // Well after the restore would have happened.
    QTest::qWait(300);
    EXPECT_EQ(clipboard(QStringLiteral("UTF8_STRING")), "written meanwhile");
}

TEST_F(PasteX11Test, AnEmptyClipboardStaysEmpty)
{
    int code = 0;
    clipboard(QStringLiteral("TARGETS"), &code);
    ASSERT_NE(code, 0) << "the fresh display's clipboard should be empty";

    ASSERT_TRUE(m_inserter->insertViaPaste(QStringLiteral("into nothing")));
    EXPECT_TRUE(m_editor->waitForText(QStringLiteral("into nothing")));
    ASSERT_TRUE(waitForRestore());
    clipboard(QStringLiteral("TARGETS"), &code);
    EXPECT_NE(code, 0);
    PasteboardX11 reader;
    EXPECT_TRUE(reader.items().empty());
    EXPECT_EQ(reader.string(), std::nullopt);
}

TEST_F(PasteX11Test, ChangeCountFollowsWritesByEveryone)
{
    PasteboardX11 pasteboard;
    const qint64 start = pasteboard.changeCount();
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("one")));
    const qint64 afterOwnWrite = pasteboard.changeCount();
    EXPECT_GT(afterOwnWrite, start);
    EXPECT_EQ(pasteboard.changeCount(), afterOwnWrite);
    m_editor->copy(QStringLiteral("two"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return pasteboard.changeCount() > afterOwnWrite; }, 5000));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("two"));
}

} // namespace
