// Sayvo as a user of GNOME on Wayland runs it: no wlroots protocols, the trigger and the
// keystrokes through the desktop portal, the text written into the field through accessibility
// or else typed, and the clipboard left alone. sway stands in for GNOME's compositor, which
// cannot run headless with a seat; Weston's headless backend has no seat either, so no window
// there would have the keyboard focus. Sayvo is told to overlook sway's own protocols. Debian's
// portal frontend runs with the project's test backend behind it in place of GNOME's, which
// would show its consent dialogs; the backend records the keys it is asked to type.
#include "protocol/WireCodec.h"
#include "support/e2e/DictationDesk.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::test::DictationDesk;

namespace {

const QString kWritten = QStringLiteral("Please send Zoë the café report before the meeting.");
const QString kTitle = QStringLiteral("Portal Editor");
const QByteArray kUsersClipboard = "the user's own";

QByteArray speech()
{
    return DictationDesk::synthesize(
        QStringLiteral("please send me the report before the meeting"));
}

std::unique_ptr<DictationDesk> launchDesk(const QMap<QString, QString> &settings = {})
{
    DictationDesk::Options options;
    options.settings = settings;
    options.wayland = true;
    options.portal = true;
    options.editorTitle = kTitle;
    options.scriptedFinal = kWritten;
    QString failure;
    auto desk = DictationDesk::launched(std::move(options), failure);
    EXPECT_TRUE(desk) << failure.toStdString();
    return desk;
}

// Puts the user's own content on the clipboard, as sway holds it for every client.
bool copyUsersClipboard(DictationDesk &desk)
{
    return desk.desktop().start(QStringLiteral("wl-copy"),
               {QStringLiteral("--foreground"), QStringLiteral("--"),
                   QString::fromUtf8(kUsersClipboard)})
        && QTest::qWaitFor([&] { return desk.clipboard() == kUsersClipboard; }, 5000);
}

// The keysyms the portal was asked to send, "65507 down" each, in order.
QStringList keysyms(DictationDesk &desk)
{
    QStringList keys;
    for (const auto &call :
        desk.portal().callsOf(QStringLiteral("RemoteDesktop.NotifyKeyboardKeysym"))) {
        const QJsonArray values = call.toObject().value(QStringLiteral("values")).toArray();
        keys << QStringLiteral("%1 %2")
                    .arg(values.at(0).toInt())
                    .arg(values.at(1).toInt() == 1 ? QStringLiteral("down") : QStringLiteral("up"));
    }
    return keys;
}

// The contexts the engine received with its utterances.
std::vector<sayvo::ContextPack> contexts(sayvo::test::TestEngine &engine)
{
    std::vector<sayvo::ContextPack> packs;
    for (const QByteArray &frame : engine.textFrames()) {
        if (auto decoded = sayvo::decodeOutbound(frame.toStdString())) {
            if (const auto *update = std::get_if<sayvo::ContextUpdateMessage>(&decoded.value())) {
                packs.push_back(update->context);
            }
        }
    }
    return packs;
}

TEST(PortalDictation, TheDesktopsShortcutDictatesIntoAGtkWindowThroughAccessibility)
{
    auto desk = launchDesk();
    ASSERT_TRUE(desk);
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("clipboard: unavailable"))), 1);
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("focused window: AT-SPI"))), 1);
    ASSERT_TRUE(copyUsersClipboard(*desk));
    desk->editor().setText(QStringLiteral("Note: "));

    ASSERT_TRUE(desk->dictate(speech())) << desk->log().join('\n').toStdString();
    EXPECT_TRUE(desk->editor().waitForText(QStringLiteral("Note: ") + kWritten))
        << desk->editor().text().toStdString();
    EXPECT_TRUE(
        desk->states().contains(QStringLiteral("success(chars=%1, raw=no)").arg(kWritten.size())))
        << desk->states().join('\n').toStdString();
    EXPECT_TRUE(keysyms(*desk).isEmpty()) << keysyms(*desk).join(' ').toStdString();
    EXPECT_EQ(desk->clipboard(), kUsersClipboard);

    // The window's title came from accessibility; the clipboard Sayvo may not read is not sent.
    const auto packs = contexts(*desk->engine());
    ASSERT_FALSE(packs.empty());
    for (const sayvo::ContextPack &pack : packs) {
        EXPECT_EQ(pack.windowTitle, kTitle.toStdString());
        EXPECT_FALSE(pack.clipboard.has_value());
    }
}

TEST(PortalDictation, AFieldThatRefusesAccessibilityGetsTheTextTypedAndTheClipboardIsLeftAlone)
{
    auto desk = launchDesk();
    ASSERT_TRUE(desk);
    ASSERT_TRUE(copyUsersClipboard(*desk));
    desk->editor().setText(QStringLiteral("Note: "));
    desk->editor().setReadOnly(true);

    ASSERT_TRUE(desk->dictate(speech())) << desk->log().join('\n').toStdString();
    QStringList expected;
    for (const char32_t character : kWritten.toUcs4()) {
        const int keysym = character > 0xff ? int(0x01000000 | character) : int(character);
        expected << QStringLiteral("%1 down").arg(keysym) << QStringLiteral("%1 up").arg(keysym);
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return keysyms(*desk).size() >= expected.size(); }, 20000))
        << keysyms(*desk).join(' ').toStdString() << "\n"
        << desk->log().join('\n').toStdString();
    EXPECT_EQ(keysyms(*desk), expected);
    EXPECT_TRUE(
        desk->states().contains(QStringLiteral("success(chars=%1, raw=no)").arg(kWritten.size())))
        << desk->states().join('\n').toStdString();
    // Accessibility left the field as it was, and nothing went through the clipboard.
    EXPECT_EQ(desk->editor().text(), QStringLiteral("Note: "));
    EXPECT_EQ(desk->clipboard(), kUsersClipboard);
    // Typed key by key, the text still stays out of the log.
    for (const QString &line : desk->log()) {
        EXPECT_FALSE(line.contains(QStringLiteral("café"))) << line.toStdString();
    }
}

// In toggle mode one press of the desktop's shortcut starts dictation and the next one ends
// it, whatever the key's release does in between.
TEST(PortalDictation, InToggleModeTheShortcutStartsAndTheNextPressEnds)
{
    auto desk = launchDesk({{QStringLiteral("sayvo.triggerMode"), QStringLiteral("toggle")}});
    ASSERT_TRUE(desk);
    desk->editor().setText(QStringLiteral("Note: "));
    desk->pressTrigger();
    desk->releaseTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: listening")), 5000))
        << desk->log().join('\n').toStdString();
    desk->speak(speech());
    EXPECT_EQ(desk->countLog(QRegularExpression(QStringLiteral("state: processing"))), 0);
    desk->pressTrigger();
    desk->releaseTrigger();
    ASSERT_TRUE(desk->waitForLog(QRegularExpression(QStringLiteral("state: success")), 20000))
        << desk->log().join('\n').toStdString();
    EXPECT_TRUE(desk->editor().waitForText(QStringLiteral("Note: ") + kWritten))
        << desk->editor().text().toStdString();
    int starts = 0;
    for (const QByteArray &frame : desk->engine()->textFrames()) {
        if (auto decoded = sayvo::decodeOutbound(frame.toStdString());
            decoded && std::holds_alternative<sayvo::UtteranceStartMessage>(decoded.value())) {
            ++starts;
        }
    }
    EXPECT_EQ(starts, 1);
}

} // namespace
