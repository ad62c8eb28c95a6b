// One complete dictation on a machine with no desktop: a private X server, window manager,
// accessibility bus and sound server, a text editor with the focus, and Sayvo with its
// engine. The trigger is held while a synthesised sentence plays into the microphone.
#include "support/e2e/DictationDesk.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

#include <cstdio>

namespace {

void say(const QString &line)
{
    std::printf("%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString sentence = argc > 1
        ? QString::fromLocal8Bit(argv[1])
        : QStringLiteral("please send me the report before the meeting");
    const QString shotPath = QDir::currentPath() + QStringLiteral("/sayvo-demo-hud.png");

    say(QStringLiteral("demo: starting a private desktop, sound server and engine runtime"));
    sayvo::test::DictationDesk desk({});
    if (!desk.isReady()) {
        say(QStringLiteral("demo: ") + desk.failure());
        return 1;
    }
    say(QStringLiteral("demo: starting Sayvo (trigger: F5, hold to talk)"));
    if (!desk.launchSayvo()) {
        say(QStringLiteral("demo: Sayvo did not connect to its engine. Its log:"));
        for (const QString &line : desk.log()) {
            say(QStringLiteral("  ") + line);
        }
        return 1;
    }
    say(QStringLiteral("demo: speaking \"%1\" while holding F5").arg(sentence));
    const QByteArray speech = sayvo::test::DictationDesk::synthesize(sentence);
    if (speech.isEmpty()) {
        say(QStringLiteral("demo: festival could not synthesise the sentence"));
        return 1;
    }
    const bool done = desk.dictate(speech);
    // The result stays on the HUD for 1.2 s: take the picture now.
    const bool shot = desk.screenshot(shotPath);
    QTest::qWait(300);
    say(QString());
    say(QStringLiteral("Text in the editor:  ") + desk.editor().text());
    say(QStringLiteral("HUD states seen:"));
    for (const QString &state : desk.states()) {
        say(QStringLiteral("  ") + state);
    }
    say(shot ? QStringLiteral("Screenshot with the HUD: ") + shotPath
             : QStringLiteral("Screenshot: not taken"));
    desk.quitSayvo();
    return done ? 0 : 1;
}
