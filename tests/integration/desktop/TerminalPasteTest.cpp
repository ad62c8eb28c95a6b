// The paste into real terminal emulators: each gets the chord that pastes the clipboard in
// it out of the box (xterm, which has none, the primary selection and Shift+Insert), and the
// transcript reaches the program running inside.
#include "desktop/TextInserter.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WorkspaceX11.h"
#include "support/desktop/DesktopSession.h"

#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

using namespace sayvo;
using namespace sayvo::testing;

namespace {

struct Terminal
{
    const char *name;
    QString program;
    // The arguments that set the title to {title} and run {command} (sh -c's script).
    QStringList arguments;
    PasteShortcut chord;
};

QStringList filled(QStringList arguments, const QString &title, const QString &command)
{
    for (QString &argument : arguments) {
        argument.replace(QStringLiteral("{title}"), title);
        argument.replace(QStringLiteral("{command}"), command);
    }
    return arguments;
}

class TerminalPasteTest : public ::testing::TestWithParam<Terminal>
{
};

TEST_P(TerminalPasteTest, TheTranscriptReachesTheProgramAndTheClipboardComesBack)
{
    const Terminal &terminal = GetParam();
    ASSERT_FALSE(QStandardPaths::findExecutable(terminal.program).isEmpty())
        << terminal.program.toStdString() << " is not installed (tools/debian-packages.txt)";
    DesktopSession session;
    ASSERT_TRUE(session.isReady()) << session.failure().toStdString();

    QProcess *owner = session.start(QStringLiteral(SAYVO_CLIPBOARD_OWNER),
        {QStringLiteral("--text"), QStringLiteral("the user's clipboard")});
    ASSERT_TRUE(owner && QTest::qWaitFor([owner] { return owner->canReadLine(); }, 10000));

    // The program inside reads keystrokes one by one and writes them to a file.
    const QString typed = session.directory() + QStringLiteral("/typed.txt");
    const QString command = QStringLiteral("stty -icanon -echo; exec cat > ") + typed;
    const QString title = QStringLiteral("Terminal under test");
    ASSERT_TRUE(session.start(terminal.program, filled(terminal.arguments, title, command)));
    int code = -1;
    session.run(QStringLiteral("xdotool"),
        {QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--name"), title,
            QStringLiteral("windowactivate"), QStringLiteral("--sync")},
        &code, 30000);
    ASSERT_EQ(code, 0) << "no terminal window";
    ASSERT_TRUE(QTest::qWaitFor([&] { return QFile::exists(typed); }, 20000));

    auto workspace = std::make_shared<WorkspaceX11>();
    // On a busy machine the window manager may still be settling the focus after the
    // terminal's start; a user dictates into the window once it is the active one.
    std::optional<FrontApplication> front;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            front = workspace->frontmostApplication();
            return front && front->bundleId;
        },
        10000))
        << "active window: "
        << session
               .run(QStringLiteral("xprop"),
                   {QStringLiteral("-root"), QStringLiteral("_NET_ACTIVE_WINDOW")})
               .toStdString();
    EXPECT_EQ(pasteShortcutFor(*front->bundleId), terminal.chord)
        << "window class " << front->bundleId->toStdString();

    TextInserter inserter(std::make_shared<PasteboardX11>(), std::make_shared<KeySynthesizerX11>(),
        std::make_shared<AccessibilityProviderAtSpi>(), workspace,
        std::make_shared<PasteboardX11>(PasteboardX11::Selection::primary));
    const QString transcript = QStringLiteral("dictated into a terminal, word for word");
    std::optional<bool> inserted;
    inserter.insertViaPaste(transcript, [&](bool result) { inserted = result; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return inserted.has_value(); }, 5000));
    EXPECT_TRUE(*inserted);
    QByteArray landed;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            QFile file(typed);
            landed = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            return landed == transcript.toUtf8();
        },
        10000))
        << "the program read: " << landed.toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !inserter.isRestorePending(); }, 5000));
    EXPECT_EQ(
        session.run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")}),
        "the user's clipboard");
}

const QString kShell = QStringLiteral("sh");

INSTANTIATE_TEST_SUITE_P(Debian, TerminalPasteTest,
    ::testing::Values(Terminal {"xterm", QStringLiteral("xterm"),
                          {QStringLiteral("-T"), QStringLiteral("{title}"), QStringLiteral("-e"),
                              kShell, QStringLiteral("-c"), QStringLiteral("{command}")},
                          PasteShortcut::shiftInsert},
        Terminal {"urxvt", QStringLiteral("urxvt"),
            {QStringLiteral("-title"), QStringLiteral("{title}"), QStringLiteral("-e"), kShell,
                QStringLiteral("-c"), QStringLiteral("{command}")},
            PasteShortcut::controlAltV},
        Terminal {"stterm", QStringLiteral("stterm"),
            {QStringLiteral("-t"), QStringLiteral("{title}"), QStringLiteral("-e"), kShell,
                QStringLiteral("-c"), QStringLiteral("{command}")},
            PasteShortcut::controlShiftV},
        Terminal {"lxterminal", QStringLiteral("lxterminal"),
            {QStringLiteral("--no-remote"), QStringLiteral("-t"), QStringLiteral("{title}"),
                QStringLiteral("-e"), QStringLiteral("sh -c '{command}'")},
            PasteShortcut::controlShiftV},
        Terminal {"mate_terminal", QStringLiteral("mate-terminal"),
            {QStringLiteral("--disable-factory"), QStringLiteral("-t"), QStringLiteral("{title}"),
                QStringLiteral("-x"), kShell, QStringLiteral("-c"), QStringLiteral("{command}")},
            PasteShortcut::controlShiftV},
        Terminal {"terminator", QStringLiteral("terminator"),
            {QStringLiteral("-u"), QStringLiteral("-T"), QStringLiteral("{title}"),
                QStringLiteral("-x"), kShell, QStringLiteral("-c"), QStringLiteral("{command}")},
            PasteShortcut::controlShiftV}),
    [](const ::testing::TestParamInfo<Terminal> &info) { return std::string(info.param.name); });

} // namespace
