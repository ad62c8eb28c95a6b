// The clipboard through the desktop portal's Clipboard interface, shared with the
// remote-desktop session that posts the keys. Debian's frontend (1.16) has no such interface,
// so test_portal_frontend.py stands in for a newer one on a private session bus; it is also the
// compositor's clipboard and the application that pastes. Real: the bus, the file descriptors
// the data goes through, Sayvo's portal adapters and its text inserter.
#include "desktop/TextInserter.h"
#include "desktop/Workspace.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/portal/KeySynthesizerPortal.h"
#include "desktop/portal/PasteboardPortal.h"
#include "support/desktop/DesktopSession.h"
#include "support/desktop/TestPortal.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

constexpr int kShortTimeoutMs = 1500;
const QString kText = QStringLiteral("text/plain;charset=utf-8");
const QString kPng = QStringLiteral("image/png");
// A few bytes of a PNG file, zero bytes included: binary data must survive unchanged.
const QByteArray kPngData = QByteArray::fromHex("89504e470d0a1a0a0000000d4948445200000001");

DesktopSession::Options busOnly()
{
    DesktopSession::Options options;
    options.windowManager = false;
    options.accessibility = false;
    return options;
}

class PortalClipboardTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.isReady()) << m_session.failure().toStdString();
        m_portal = std::make_unique<TestPortal>(m_session, TestPortal::Frontend::withClipboard);
        ASSERT_TRUE(m_portal->isReady()) << m_portal->failure().toStdString();
    }

    // Starts the remote-desktop session with the clipboard, as the factory wires it, and waits
    // for the desktop's answer about the keys.
    bool start(int requestTimeoutMs = 10000)
    {
        m_keys = std::make_shared<KeySynthesizerPortal>(KeystrokeUse::pasting, requestTimeoutMs);
        m_keys->shareClipboard(m_clipboard);
        m_keys->request({},
            {[this](const DesktopCapabilityStatus &status) { m_statuses.push_back(status); }, {}});
        m_inserter = std::make_unique<TextInserter>(m_clipboard, m_keys,
            std::make_shared<AccessibilityProviderAtSpi>(), std::make_shared<NoWorkspace>());
        return QTest::qWaitFor(
            [this] {
                const auto keys = latest(DesktopCapability::keystrokes);
                return keys && !keys->works.startsWith(QStringLiteral("Asking"));
            },
            requestTimeoutMs + 10000);
    }

    std::optional<DesktopCapabilityStatus> latest(DesktopCapability capability) const
    {
        for (auto status = m_statuses.rbegin(); status != m_statuses.rend(); ++status) {
            if (status->capability == capability) {
                return *status;
            }
        }
        return std::nullopt;
    }

    int count(DesktopCapability capability) const
    {
        return int(std::count_if(m_statuses.begin(), m_statuses.end(),
            [capability](const auto &status) { return status.capability == capability; }));
    }

    // Inserts as dictation does and waits until the inserter is done with the clipboard.
    bool insert(const QString &text)
    {
        std::optional<bool> inserted;
        m_inserter->insert(text, InsertionMethod::paste, [&inserted](bool ok) { inserted = ok; });
        return QTest::qWaitFor(
                   [&] { return inserted.has_value() && !m_inserter->isRestorePending(); }, 10000)
            && *inserted;
    }

    bool offerTextAndImage()
    {
        const qint64 before = m_clipboard->changeCount();
        return m_portal->offer({{kText, QByteArray("the user's own text")}, {kPng, kPngData}})
            && QTest::qWaitFor([&] { return m_clipboard->changeCount() != before; }, 5000);
    }

    int successfulWrites()
    {
        int done = 0;
        for (const auto &call : m_portal->callsOf("Clipboard.SelectionWriteDone")) {
            done += call.toObject().value("success").toBool() ? 1 : 0;
        }
        return done;
    }

    DesktopSession m_session {busOnly()};
    std::unique_ptr<TestPortal> m_portal;
    std::shared_ptr<PasteboardPortal> m_clipboard = std::make_shared<PasteboardPortal>();
    std::shared_ptr<KeySynthesizerPortal> m_keys;
    std::unique_ptr<TextInserter> m_inserter;
    std::vector<DesktopCapabilityStatus> m_statuses;
};

TEST_F(PortalClipboardTest, TheClipboardIsAskedForBeforeTheSessionStartsAndThenUsed)
{
    ASSERT_TRUE(start());
    const QJsonArray calls = m_portal->calls();
    QStringList order;
    for (const auto &call : calls) {
        order << call.toArray().at(0).toString();
    }
    ASSERT_GE(order.indexOf("RemoteDesktop.Start"), 0);
    EXPECT_LT(order.indexOf("Clipboard.RequestClipboard"), order.indexOf("RemoteDesktop.Start"));
    EXPECT_TRUE(m_clipboard->isAvailable());
    EXPECT_EQ(latest(DesktopCapability::clipboard)->adapter, DesktopAdapter::portal);
    EXPECT_TRUE(latest(DesktopCapability::clipboard)->works.contains("your own content back"));
    EXPECT_TRUE(latest(DesktopCapability::keystrokes)->works.contains("Control-V"));
}

TEST_F(PortalClipboardTest, TheTranscriptIsPastedAndTheUsersTextAndImageComeBack)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(offerTextAndImage());
    // The context's clipboard field reads what the desktop holds.
    EXPECT_EQ(m_clipboard->string(), QStringLiteral("the user's own text"));

    ASSERT_TRUE(insert(QStringLiteral("hello from the portal")));
    EXPECT_EQ(m_portal->pasted(), QStringList {"hello from the portal"});
    EXPECT_GE(successfulWrites(), 1);

    EXPECT_EQ(m_portal->owner(),
        m_portal->callsOf("RemoteDesktop.Start").at(0).toObject().value("session").toString());
    EXPECT_EQ(m_portal->fetch(kText), QByteArray("the user's own text"));
    EXPECT_EQ(m_portal->fetch(kPng), kPngData);
}

TEST_F(PortalClipboardTest, ALateReaderStillGetsTheTranscriptBeforeTheClipboardComesBack)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(offerTextAndImage());
    ASSERT_TRUE(m_portal->setPasteReader("read", TextInserter::kRestoreDelayMs + 300));

    ASSERT_TRUE(insert(QStringLiteral("read late")));
    EXPECT_EQ(m_portal->pasted(), QStringList {"read late"});
    EXPECT_EQ(m_portal->fetch(kText), QByteArray("the user's own text"));
}

TEST_F(PortalClipboardTest, ATargetThatNeverReadsStillGetsTheClipboardBackAfterTheLongestHold)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(offerTextAndImage());
    ASSERT_TRUE(m_portal->setPasteReader("never"));

    QElapsedTimer held;
    held.start();
    ASSERT_TRUE(insert(QStringLiteral("never read")));
    EXPECT_GE(held.elapsed(), TextInserter::kLongestHoldMs);
    EXPECT_TRUE(m_portal->pasted().isEmpty());
    EXPECT_EQ(m_portal->fetch(kText), QByteArray("the user's own text"));
    EXPECT_EQ(m_portal->fetch(kPng), kPngData);
}

TEST_F(PortalClipboardTest, DeclinedClipboardAccessTypesTheTextWithOneStatusLine)
{
    ASSERT_TRUE(m_portal->setAnswer("Clipboard.Access", "decline"));
    ASSERT_TRUE(start());
    EXPECT_FALSE(m_clipboard->isAvailable());
    const auto clipboard = latest(DesktopCapability::clipboard);
    ASSERT_TRUE(clipboard.has_value());
    EXPECT_EQ(clipboard->adapter, DesktopAdapter::none);
    EXPECT_TRUE(clipboard->works.contains("typed"));
    // Asking, then the one answer.
    EXPECT_EQ(count(DesktopCapability::clipboard), 2);
    EXPECT_TRUE(latest(DesktopCapability::keystrokes)->works.contains("Types the text"));

    ASSERT_TRUE(insert(QStringLiteral("hi")));
    EXPECT_TRUE(m_portal->callsOf("Clipboard.SetSelection").isEmpty());
    // "h" and "i", each pressed and released.
    EXPECT_TRUE(QTest::qWaitFor(
        [this] { return m_portal->callsOf("RemoteDesktop.NotifyKeyboardKeysym").size() == 4; },
        5000));
}

TEST_F(PortalClipboardTest, AFailingClipboardRequestLeavesTheKeysWorking)
{
    ASSERT_TRUE(m_portal->setAnswer("Clipboard.RequestClipboard", "error"));
    ASSERT_TRUE(start());
    EXPECT_FALSE(m_clipboard->isAvailable());
    EXPECT_EQ(latest(DesktopCapability::clipboard)->adapter, DesktopAdapter::none);
    EXPECT_EQ(latest(DesktopCapability::keystrokes)->adapter, DesktopAdapter::portal);
}

TEST_F(PortalClipboardTest, AnUnansweredClipboardRequestTimesOutAndTheSessionStillStarts)
{
    ASSERT_TRUE(m_portal->setAnswer("Clipboard.RequestClipboard", "hang"));
    ASSERT_TRUE(start(kShortTimeoutMs));
    EXPECT_FALSE(m_clipboard->isAvailable());
    EXPECT_EQ(latest(DesktopCapability::clipboard)->adapter, DesktopAdapter::none);
    EXPECT_EQ(latest(DesktopCapability::keystrokes)->adapter, DesktopAdapter::portal);
}

TEST_F(PortalClipboardTest, ASessionThatNeverStartsEndsWithAStatusLineForTheClipboard)
{
    ASSERT_TRUE(m_portal->setAnswer("RemoteDesktop.Start", "hang"));
    ASSERT_TRUE(start(kShortTimeoutMs));
    EXPECT_FALSE(m_clipboard->isAvailable());
    const auto clipboard = latest(DesktopCapability::clipboard);
    ASSERT_TRUE(clipboard.has_value());
    EXPECT_EQ(clipboard->adapter, DesktopAdapter::none);
    EXPECT_TRUE(clipboard->works.contains("did not answer")) << clipboard->works.toStdString();
}

TEST_F(PortalClipboardTest, SignalsForAnotherSessionAreIgnored)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(offerTextAndImage());
    const qint64 before = m_clipboard->changeCount();
    const QString other = QStringLiteral("/org/freedesktop/portal/desktop/session/1_99/other");
    ASSERT_TRUE(m_portal->emitSignalFor("SelectionOwnerChanged", other, kPng));
    ASSERT_TRUE(m_portal->emitSignalFor("SelectionTransfer", other, kText));
    QTest::qWait(300);
    EXPECT_EQ(m_clipboard->changeCount(), before);
    EXPECT_TRUE(m_portal->callsOf("Clipboard.SelectionWrite").isEmpty());
    EXPECT_TRUE(m_portal->callsOf("Clipboard.SelectionWriteDone").isEmpty());
    EXPECT_EQ(m_clipboard->string(), QStringLiteral("the user's own text"));
}

// A frontend that can keep the permission (xdg-desktop-portal 1.17 and later) hands out a
// restore token; the next launch offers it, so the desktop need not ask again.
TEST_F(PortalClipboardTest, ThePermissionKeptAtOneLaunchIsOfferedAtTheNext)
{
    QStringList tokens;
    const KeySynthesizerPortal::Handlers handlers {[](const DesktopCapabilityStatus &) {},
        [&tokens](const QString &token) { tokens << token; }};
    {
        KeySynthesizerPortal first;
        first.request({}, handlers);
        ASSERT_TRUE(QTest::qWaitFor([&] { return first.isAvailable(); }, 10000));
    }
    ASSERT_EQ(tokens.size(), 1);
    ASSERT_FALSE(tokens.first().isEmpty());

    KeySynthesizerPortal second;
    second.request(tokens.first(), handlers);
    ASSERT_TRUE(QTest::qWaitFor([&] { return second.isAvailable(); }, 10000));
    const QJsonArray selected = m_portal->callsOf(QStringLiteral("RemoteDesktop.SelectDevices"));
    ASSERT_EQ(selected.size(), 2);
    const QJsonObject firstOptions = selected.at(0).toObject().value("options").toObject();
    const QJsonObject secondOptions = selected.at(1).toObject().value("options").toObject();
    EXPECT_EQ(firstOptions.value("persist_mode").toInt(), 2);
    EXPECT_FALSE(firstOptions.contains("restore_token"));
    EXPECT_EQ(secondOptions.value("restore_token").toString(), tokens.first());
}

} // namespace
