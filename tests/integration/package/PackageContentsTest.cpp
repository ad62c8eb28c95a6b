// The Debian package's contents, unpacked the way dpkg installs them (the package.build test
// unpacks it into SAYVO_TEST_PACKAGE_ROOT): the file list, the programs, the menu and
// autostart entries, the icons, the AppStream metadata, the changelog and the manual pages.
#include "base/AppIdentity.h"
#include "ui/linux/LoginItemXdg.h"

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

namespace {

const QString kRoot = QStringLiteral(SAYVO_TEST_PACKAGE_ROOT);
const QString kSource = QStringLiteral(SAYVO_TEST_SOURCE_DIR);
const QString kVersion = QStringLiteral(SAYVO_TEST_VERSION);
const QString kAppId = QString::fromLatin1(sayvo::kAppId);
const QList<int> kIconSizes = {16, 22, 24, 32, 48, 64, 128, 256, 512};

QString installed(const QString &relative)
{
    return kRoot + QLatin1Char('/') + relative;
}

// A command's standard output; fails the test when it does not succeed.
QString output(const QString &program, const QStringList &arguments,
    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForStarted(10000) || !process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished(5000);
        ADD_FAILURE() << program.toStdString() << " did not run to the end";
        return {};
    }
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 0)
        << program.toStdString() << " " << arguments.join(' ').toStdString() << ": "
        << process.readAllStandardError().toStdString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

// A manual page as plain ASCII text.
QString manualPage(const QString &name)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    environment.insert(QStringLiteral("MANWIDTH"), QStringLiteral("200"));
    return output(QStringLiteral("man"),
        {QStringLiteral("-E"), QStringLiteral("ascii"), QStringLiteral("-l"),
            installed(QStringLiteral("usr/share/man/man1/%1.1.gz").arg(name))},
        environment);
}

// The long options a program's --help lists.
QStringList longOptions(const QString &program)
{
    QStringList options;
    static const QRegularExpression option(QStringLiteral("(--[a-z][a-z-]*)"));
    auto matches = option.globalMatch(output(program, {QStringLiteral("--help")}));
    while (matches.hasNext()) {
        options.append(matches.next().captured(1));
    }
    options.removeDuplicates();
    return options;
}

QMap<QString, QString> desktopEntry(const QString &path)
{
    QMap<QString, QString> keys;
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals > 0) {
            keys.insert(line.left(equals), line.mid(equals + 1));
        }
    }
    return keys;
}

TEST(PackageContents, TheFileListIsTheWholeInstalledTreeAndNothingElse)
{
    QStringList expected = {
        QStringLiteral("usr/bin/sayvo"),
        QStringLiteral("usr/lib/sayvo/engine-payload/engine/bin/sayvo-engine"),
        QStringLiteral("usr/lib/sayvo/engine-payload/scripts/bootstrap_runtime.sh"),
        QStringLiteral("usr/lib/sayvo/engine-payload/scripts/run_engine.sh"),
        QStringLiteral("usr/lib/sayvo/engine-payload/scripts/uninstall.sh"),
        QStringLiteral("usr/lib/sayvo/sayvo-app"),
        QStringLiteral("usr/share/applications/%1.desktop").arg(kAppId),
        QStringLiteral("usr/share/doc/sayvo/changelog.gz"),
        QStringLiteral("usr/share/doc/sayvo/copyright"),
        QStringLiteral("usr/share/icons/hicolor/scalable/apps/%1.svg").arg(kAppId),
        QStringLiteral("usr/share/icons/hicolor/symbolic/apps/%1-symbolic.svg").arg(kAppId),
        QStringLiteral("usr/share/man/man1/sayvo-engine.1.gz"),
        QStringLiteral("usr/share/man/man1/sayvo.1.gz"),
        QStringLiteral("usr/share/metainfo/%1.metainfo.xml").arg(kAppId),
    };
    for (int size : kIconSizes) {
        expected.append(
            QStringLiteral("usr/share/icons/hicolor/%1x%1/apps/%2.png").arg(size).arg(kAppId));
    }
    expected.sort();
    QStringList found;
    QDirIterator it(kRoot, QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        found.append(it.next().mid(kRoot.size() + 1));
    }
    found.sort();
    EXPECT_EQ(found, expected);
    for (const QString &program :
        {QStringLiteral("usr/bin/sayvo"), QStringLiteral("usr/lib/sayvo/sayvo-app"),
            QStringLiteral("usr/lib/sayvo/engine-payload/engine/bin/sayvo-engine"),
            QStringLiteral("usr/lib/sayvo/engine-payload/scripts/bootstrap_runtime.sh")}) {
        EXPECT_TRUE(QFileInfo(installed(program)).isExecutable()) << program.toStdString();
    }
}

TEST(PackageContents, NoFileNamesTheCheckoutItWasBuiltIn)
{
    const QByteArray checkout = kSource.toUtf8();
    QDirIterator it(kRoot, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_FALSE(file.readAll().contains(checkout)) << file.fileName().toStdString();
    }
}

TEST(PackageContents, TheProgramsNeedOnlyLibrariesOfTheSystem)
{
    for (const QString &program :
        {QStringLiteral("usr/bin/sayvo"), QStringLiteral("usr/lib/sayvo/sayvo-app"),
            QStringLiteral("usr/lib/sayvo/engine-payload/engine/bin/sayvo-engine")}) {
        const QString libraries = output(QStringLiteral("ldd"), {installed(program)});
        EXPECT_FALSE(libraries.contains(QStringLiteral("not found"))) << libraries.toStdString();
        EXPECT_FALSE(libraries.contains(kSource)) << libraries.toStdString();
        const QString dynamic
            = output(QStringLiteral("readelf"), {QStringLiteral("-d"), installed(program)});
        EXPECT_FALSE(dynamic.contains(QStringLiteral("RPATH"))) << program.toStdString();
        EXPECT_FALSE(dynamic.contains(QStringLiteral("RUNPATH"))) << program.toStdString();
    }
}

TEST(PackageContents, TheMenuEntryStartsTheInstalledProgramWithTheInstalledIcon)
{
    const auto entry
        = desktopEntry(installed(QStringLiteral("usr/share/applications/%1.desktop").arg(kAppId)));
    EXPECT_EQ(entry.value(QStringLiteral("Exec")), QStringLiteral("sayvo"));
    EXPECT_EQ(entry.value(QStringLiteral("Icon")), kAppId);
    EXPECT_EQ(entry.value(QStringLiteral("StartupNotify")), QStringLiteral("false"))
        << "a tray application shows no window to end the launch feedback";
    for (int size : kIconSizes) {
        const QImage icon(installed(
            QStringLiteral("usr/share/icons/hicolor/%1x%1/apps/%2.png").arg(size).arg(kAppId)));
        EXPECT_EQ(icon.size(), QSize(size, size)) << size;
        // The tile is opaque in the middle and the corners are transparent.
        EXPECT_EQ(qAlpha(icon.pixel(size / 2, size / 2)), 255) << size;
        EXPECT_EQ(qAlpha(icon.pixel(0, 0)), 0) << size;
    }
}

TEST(PackageContents, TheLoginItemIsAValidEntryWithTheMenuEntrysNameAndIcon)
{
    QTemporaryDir config;
    sayvo::LoginItemXdg item(config.path(), installed(QStringLiteral("usr/bin/sayvo")));
    ASSERT_TRUE(item.setEnabled(true));
    EXPECT_EQ(QFileInfo(item.entryPath()).fileName(), kAppId + QStringLiteral(".desktop"));
    output(QStringLiteral("desktop-file-validate"), {item.entryPath()});
    const auto autostart = desktopEntry(item.entryPath());
    const auto menu
        = desktopEntry(installed(QStringLiteral("usr/share/applications/%1.desktop").arg(kAppId)));
    EXPECT_EQ(autostart.value(QStringLiteral("Icon")), menu.value(QStringLiteral("Icon")));
    EXPECT_EQ(autostart.value(QStringLiteral("Name")), menu.value(QStringLiteral("Name")));
    EXPECT_EQ(autostart.value(QStringLiteral("Exec")),
        QStringLiteral("\"%1\"").arg(installed(QStringLiteral("usr/bin/sayvo"))));
}

TEST(PackageContents, TheMetainfoDescribesThisReleaseAndItsScreenshotsExist)
{
    QFile file(installed(QStringLiteral("usr/share/metainfo/%1.metainfo.xml").arg(kAppId)));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&file);
    QString id;
    QString launchable;
    QString binary;
    QStringList releases;
    int screenshots = 0;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        const QStringView name = xml.name();
        if (name == QLatin1String("id")) {
            id = xml.readElementText();
        } else if (name == QLatin1String("launchable")) {
            launchable = xml.readElementText();
        } else if (name == QLatin1String("binary")) {
            binary = xml.readElementText();
        } else if (name == QLatin1String("release")) {
            releases.append(xml.attributes().value(QLatin1String("version")).toString()
                + QLatin1Char(' ') + xml.attributes().value(QLatin1String("date")).toString());
        } else if (name == QLatin1String("image")) {
            const QSize declared(xml.attributes().value(QLatin1String("width")).toInt(),
                xml.attributes().value(QLatin1String("height")).toInt());
            const QString url = xml.readElementText();
            EXPECT_TRUE(url.startsWith(QStringLiteral("https://"))) << url.toStdString();
            const QString copy = kSource + QStringLiteral("/packaging/linux/screenshots/")
                + url.section(QLatin1Char('/'), -1);
            EXPECT_EQ(QImage(copy).size(), declared) << copy.toStdString();
            ++screenshots;
        }
    }
    ASSERT_FALSE(xml.hasError()) << xml.errorString().toStdString();
    EXPECT_EQ(id, kAppId);
    EXPECT_EQ(launchable, kAppId + QStringLiteral(".desktop"));
    EXPECT_TRUE(
        QFileInfo::exists(installed(QStringLiteral("usr/share/applications/") + launchable)));
    EXPECT_EQ(binary, QStringLiteral("sayvo"));
    EXPECT_TRUE(QFileInfo::exists(installed(QStringLiteral("usr/bin/") + binary)));
    ASSERT_FALSE(releases.isEmpty());
    EXPECT_EQ(
        releases.first(), kVersion + QLatin1Char(' ') + QStringLiteral(SAYVO_TEST_RELEASE_DATE))
        << "the newest release comes first";
    EXPECT_GE(screenshots, 1);
}

TEST(PackageContents, TheChangelogsNewestEntryIsThisRelease)
{
    QTemporaryDir dir;
    const QString changelog = dir.filePath(QStringLiteral("changelog"));
    QFile plain(changelog);
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.write(output(
        QStringLiteral("zcat"), {installed(QStringLiteral("usr/share/doc/sayvo/changelog.gz"))})
                    .toUtf8());
    plain.close();
    EXPECT_EQ(
        output(QStringLiteral("dpkg-parsechangelog"),
            {QStringLiteral("-l"), changelog, QStringLiteral("-S"), QStringLiteral("Version")})
            .trimmed(),
        kVersion);
    const QString date = output(QStringLiteral("dpkg-parsechangelog"),
        {QStringLiteral("-l"), changelog, QStringLiteral("-S"), QStringLiteral("Timestamp")});
    EXPECT_EQ(QDateTime::fromSecsSinceEpoch(date.trimmed().toLongLong(), QTimeZone::utc())
                  .date()
                  .toString(Qt::ISODate),
        QStringLiteral(SAYVO_TEST_RELEASE_DATE));
}

TEST(PackageContents, EachManualPageDescribesEveryOptionItsProgramLists)
{
    const QString app = manualPage(QStringLiteral("sayvo"));
    const QString engine = manualPage(QStringLiteral("sayvo-engine"));
    for (const QString &option : longOptions(installed(QStringLiteral("usr/bin/sayvo")))) {
        EXPECT_TRUE(app.contains(option)) << option.toStdString();
    }
    const QStringList engineOptions = longOptions(
        installed(QStringLiteral("usr/lib/sayvo/engine-payload/engine/bin/sayvo-engine")));
    EXPECT_GE(engineOptions.size(), 7);
    for (const QString &option : engineOptions) {
        EXPECT_TRUE(engine.contains(option)) << option.toStdString();
    }
    EXPECT_TRUE(app.contains(QStringLiteral("Sayvo %1").arg(kVersion)));
    EXPECT_TRUE(app.contains(QStringLiteral("/usr/lib/sayvo/engine-payload")));
}

} // namespace
