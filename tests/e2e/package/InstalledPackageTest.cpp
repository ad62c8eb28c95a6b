// Sayvo as the Debian package installs it: its files unpacked with dpkg-deb into a throwaway
// folder outside the build, started on a private desktop with no engine runtime, set up from
// the Engine Setup window, and dictating real speech into a GTK text field.
#include "calibration/WordErrorRate.h"
#include "support/e2e/DictationDesk.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using sayvo::test::DictationDesk;

namespace {

const QString kSource = QStringLiteral(SAYVO_TEST_SOURCE_DIR);
const QString kVersion = QStringLiteral(SAYVO_TEST_VERSION);

QString theDeb()
{
    const QDir dir(QStringLiteral(SAYVO_TEST_DEB_DIR));
    const QStringList debs = dir.entryList({QStringLiteral("sayvo_*.deb")}, QDir::Files);
    return debs.size() == 1 ? dir.filePath(debs.first()) : QString();
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Which of the project's files a process runs from: its program and every file it mapped.
QStringList projectFilesOf(qint64 pid)
{
    QStringList files {QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid))};
    for (const QByteArray &line : readAll(QStringLiteral("/proc/%1/maps").arg(pid)).split('\n')) {
        const qsizetype slash = line.indexOf('/');
        if (slash >= 0) {
            files.append(QString::fromUtf8(line.mid(slash)));
        }
    }
    files.removeDuplicates();
    return files;
}

TEST(InstalledPackage, SetsTheEngineUpFromItsOwnPayloadAndDictates)
{
    const QString deb = theDeb();
    ASSERT_FALSE(deb.isEmpty()) << "no package: package.build makes it";
    QTemporaryDir install;
    ASSERT_TRUE(install.isValid());
    ASSERT_FALSE(install.path().startsWith(kSource));
    QProcess unpack;
    unpack.start(QStringLiteral("dpkg-deb"), {QStringLiteral("-x"), deb, install.path()});
    ASSERT_TRUE(unpack.waitForFinished(60000) && unpack.exitCode() == 0)
        << unpack.readAllStandardError().toStdString();
    const QString prefix = install.filePath(QStringLiteral("usr"));
    const QString payload = install.filePath(QStringLiteral("usr/" SAYVO_TEST_PAYLOAD_DIR));

    DictationDesk::Installation installation;
    installation.sayvoBinary = prefix + QStringLiteral("/bin/sayvo");
    // Where an installed system finds the package's icons.
    installation.environment.insert(
        QStringLiteral("XDG_DATA_DIRS"), prefix + QStringLiteral("/share:/usr/share"));
    DictationDesk desk(
        {QStringLiteral("pocketsphinx"), {}, QStringLiteral("Editor Package")}, installation);
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    ASSERT_TRUE(desk.startSayvo());

    // No runtime yet: the Engine Setup window opens by itself; its button sets the runtime up
    // from the payload installed next to the program, with nothing to download.
    ASSERT_TRUE(
        desk.waitForLog(QRegularExpression(QStringLiteral("engine state: needsSetup")), 30000))
        << desk.log().join('\n').toStdString();
    ASSERT_TRUE(desk.pressButton(QStringLiteral("Sayvo Engine"), QStringLiteral("Set Up Now")))
        << desk.log().join('\n').toStdString();
    ASSERT_TRUE(desk.waitForLog(
        QRegularExpression(QStringLiteral("connected: server=.* mock=false")), 120000))
        << desk.log().join('\n').toStdString();
    EXPECT_EQ(
        desk.countLog(QRegularExpression(QStringLiteral("engine launched: script=")
            + QRegularExpression::escape(payload + QStringLiteral("/scripts/run_engine.sh")))),
        1)
        << desk.log().join('\n').toStdString();

    const QString runtime = desk.homeDir() + QStringLiteral("/data/SayvoApp/runtime");
    EXPECT_EQ(readAll(runtime + QStringLiteral("/VERSION")).trimmed(), kVersion.toUtf8());
    EXPECT_EQ(readAll(runtime + QStringLiteral("/app/engine/bin/sayvo-engine")),
        readAll(payload + QStringLiteral("/engine/bin/sayvo-engine")))
        << "the runtime's engine is the packaged one";

    // Nothing of the checkout runs: Sayvo is the unpacked application (the `sayvo` command
    // became it), its engine the copy in the runtime, and neither maps a file of the build.
    const QList<qint64> engines = desk.enginePids();
    ASSERT_EQ(engines.size(), 1);
    EXPECT_EQ(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(desk.sayvoPid())),
        prefix + QStringLiteral("/lib/sayvo/sayvo-app"));
    EXPECT_TRUE(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(engines.first()))
                    .startsWith(runtime));
    for (qint64 pid : {desk.sayvoPid(), engines.first()}) {
        for (const QString &file : projectFilesOf(pid)) {
            EXPECT_FALSE(file.startsWith(kSource)) << pid << " maps " << file.toStdString();
        }
    }

    // The Engine Setup window carries the installed icon and the class the menu entry names.
    int exitCode = -1;
    const QString icon = QString::fromUtf8(desk.desktop().run(QStringLiteral("xprop"),
        {QStringLiteral("-name"), QStringLiteral("Sayvo Engine"), QStringLiteral("_NET_WM_ICON"),
            QStringLiteral("WM_CLASS")},
        &exitCode));
    EXPECT_EQ(exitCode, 0);
    EXPECT_TRUE(icon.contains(QStringLiteral("_NET_WM_ICON(CARDINAL)"))) << icon.toStdString();
    EXPECT_TRUE(icon.contains(QStringLiteral("\"Sayvo\""))) << icon.toStdString();

    // A whole dictation: real speech, recognised by the packaged engine, typed into the field
    // the user goes back to after the set-up.
    ASSERT_TRUE(desk.editor().activate());
    const QString sentence = QStringLiteral("please send me the report before the meeting");
    ASSERT_TRUE(desk.dictate(DictationDesk::synthesize(sentence), 60000))
        << desk.log().join('\n').toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk.editor().text().isEmpty(); }, 5000))
        << desk.states().join('\n').toStdString();
    const QString heard = desk.editor().text();
    std::cout << "[ SPEECH   ] heard: " << heard.toStdString() << "\n";
    EXPECT_LE(sayvo::wordErrorRate(sentence, heard), 0.25) << heard.toStdString();
    EXPECT_TRUE(heard.front().isUpper()) << heard.toStdString();
}

} // namespace
