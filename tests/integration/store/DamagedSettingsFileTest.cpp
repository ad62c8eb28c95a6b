#include "integration/store/SettingsFile.h"
#include "store/PreferenceStoreQSettings.h"
#include "store/SettingsStore.h"
#include "store/UsagePresentation.h"
#include "store/UsageStatsStore.h"
#include "support/store/StorePrinters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include <unistd.h>

namespace sayvo {
namespace {

void expectDefaultSettings(const SettingsStore &settings)
{
    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::fnGlobe);
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::paste);
    EXPECT_EQ(settings.language(), std::nullopt);
    EXPECT_EQ(settings.personalDictionary(), QStringList {});
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_FALSE(settings.launchAtLogin());
    EXPECT_EQ(settings.inputDeviceUID(), std::nullopt);
}

TEST(DamagedSettingsFile, ValuesOfTheWrongTypeLoadTheirDefaults)
{
    SettingsFile file;
    file.write("[General]\n"
               "sayvo.endpointURL=\"ws://a:1\", \"ws://b:2\"\n"
               "sayvo.hotkeyTrigger=f5, rightOption\n"
               "sayvo.triggerMode=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x6QPoint)\n"
               "sayvo.insertionMethod=AXDirect\n"
               "sayvo.language=en, hi\n"
               "sayvo.personalDictionary=@Rect(1 2 3 4)\n"
               "sayvo.feedbackEnabled=banana\n"
               "sayvo.launchAtLogin=@Invalid()\n"
               "sayvo.inputDeviceUID=a, b\n"
               "sayvo.usageStats.utterances=lots\n"
               "sayvo.usageStats.totalWords=1, 2\n"
               "sayvo.usageStats.totalFillers=99999999999999999999\n"
               "sayvo.usageStats.totalAudioSeconds=nan\n"
               "sayvo.usageStats.totalProcessingSeconds=inf\n"
               "sayvo.usageStats.totalAsrProcessingSeconds=@Variant(garbage\n");
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    expectDefaultSettings(settings);
    EXPECT_EQ(UsageStatsStore(preferences).totals(), UsageTotals {});
}

TEST(DamagedSettingsFile, TheDeviceKeyThatCouldNotBeReadIsDropped)
{
    SettingsFile file;
    file.write("[General]\nsayvo.inputDeviceUID=a, b\nsayvo.hotkeyTrigger=f5\n");
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
    }
    EXPECT_FALSE(file.contents().contains("inputDeviceUID"));
    EXPECT_TRUE(file.contents().contains("sayvo.hotkeyTrigger=f5"));
}

// Lines Qt cannot make sense of cost only their own keys (an unterminated quote runs to the end
// of the file, so it comes last here).
TEST(DamagedSettingsFile, BrokenLinesCostOnlyTheirOwnKeys)
{
    SettingsFile file;
    // Sized explicitly: the file holds a NUL byte.
    static const char kContents[] = "[General\n"
                                    "sayvo.hotkeyTrigger=f5\n"
                                    "this line has no equals sign\n"
                                    "=value without a key\n"
                                    "\xff\xfe\x00\x01=\x80\x81\n"
                                    "sayvo.usageStats.utterances=3\n"
                                    "[Other]\n"
                                    "sayvo.triggerMode=toggle\n"
                                    "[General]\n"
                                    "sayvo.launchAtLogin=true\n"
                                    "sayvo.language=\"unterminated\n";
    file.write(QByteArray(kContents, sizeof(kContents) - 1));
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    UsageStatsStore usage(preferences);
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(usage.utterances(), 3);
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
    EXPECT_EQ(settings.endpointURL(), SettingsStore::defaultEndpoint());
    EXPECT_FALSE(settings.feedbackEnabled());
    EXPECT_EQ(usage.totalWords(), 0);
}

TEST(DamagedSettingsFile, EmptyFileLoadsDefaults)
{
    SettingsFile file;
    file.write("");
    PreferenceStoreQSettings preferences(file.path());
    expectDefaultSettings(SettingsStore(preferences));
    EXPECT_EQ(UsageStatsStore(preferences).totals(), UsageTotals {});
}

TEST(DamagedSettingsFile, RandomBytesLoadDefaults)
{
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(1, 4096);
    for (int round = 0; round < 40; ++round) {
        SettingsFile file;
        QByteArray contents(length(random), '\0');
        for (char &c : contents) {
            c = static_cast<char>(byte(random));
        }
        file.write(contents);
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        UsageStatsStore usage(preferences);
        expectDefaultSettings(settings);
        EXPECT_EQ(usage.totals(), UsageTotals {});
    }
}

// A valid file with bytes overwritten at random: whatever survives loads, nothing crashes, and
// the Usage tab can still be drawn.
TEST(DamagedSettingsFile, CorruptedValidFileNeverCrashes)
{
    const QByteArray valid = "[General]\n"
                             "sayvo.endpointURL=ws://10.1.2.3:8765\n"
                             "sayvo.hotkeyTrigger=menuBarToggle\n"
                             "sayvo.personalDictionary=Sayvo, PocketSphinx, \"Doe, Jane\"\n"
                             "sayvo.feedbackEnabled=true\n"
                             "sayvo.usageStats.utterances=12\n"
                             "sayvo.usageStats.totalWords=300\n"
                             "sayvo.usageStats.totalAudioSeconds=120.5\n"
                             "sayvo.usageStats.totalProcessingSeconds=30.125\n";
    std::mt19937 random(7);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<qsizetype> position(0, valid.size() - 1);
    for (int round = 0; round < 60; ++round) {
        SettingsFile file;
        QByteArray contents = valid;
        for (int flip = 0; flip < 1 + round % 8; ++flip) {
            contents[position(random)] = static_cast<char>(byte(random));
        }
        file.write(contents);
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        UsageStatsStore usage(preferences);
        const UsagePresentation shown = UsagePresentation::of(usage.totals());
        EXPECT_EQ(shown.rows.size(), 7u);
        EXPECT_TRUE(settings.endpointURL().isValid());
    }
}

// A value that asks Qt for a list of four billion entries used to end the process as soon as
// any key was read. Its text is now read as text (where the Settings window shows it and the
// user can change it), the other keys keep their values, and the next launch reads the file as
// the last one left it.
const QByteArray kFileWithAHugeList
    = "[General]\n"
      "sayvo.hotkeyTrigger=f5\n"
      "sayvo.language=@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xf0)\n"
      "sayvo.triggerMode=@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xf0)\n"
      "sayvo.usageStats.utterances=3\n";

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

TEST(DamagedSettingsFile, ABinaryValueClaimingBillionsOfEntriesIsReadAsText)
{
    SettingsFile file;
    file.write(kFileWithAHugeList);
    QString damagedText;
    {
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
        EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
        ASSERT_TRUE(settings.language().has_value());
        damagedText = *settings.language();
        EXPECT_TRUE(damagedText.startsWith(QStringLiteral("@Variant(")));
        EXPECT_EQ(UsageStatsStore(preferences).utterances(), 3);
        settings.setInsertionMethod(InsertionMethod::axDirect);
    }
    const QByteArray saved = file.contents();
    EXPECT_TRUE(saved.contains("sayvo.insertionMethod=axDirect"));

    const QString copy = file.freshCopy();
    PreferenceStoreQSettings relaunched(copy);
    SettingsStore settings(relaunched);
    EXPECT_EQ(settings.language(), damagedText);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(contentsOf(copy), saved);
}

// While it exists, the folder of the settings file is read-only to this process, the way a
// configuration managed elsewhere is: root ignores permissions, so as root the process acts
// as nobody meanwhile (only its effective user changes, so it can come back).
class ReadOnlyFolder
{
public:
    explicit ReadOnlyFolder(const QString &folder) : m_folder(folder)
    {
        const auto open = QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup
            | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
        EXPECT_TRUE(QFile::setPermissions(m_folder, open));
        if (geteuid() == 0) {
            EXPECT_EQ(seteuid(kNobody), 0);
        }
    }
    ~ReadOnlyFolder() { makeWritable(); }

    void makeWritable()
    {
        if (geteuid() == kNobody) {
            EXPECT_EQ(seteuid(0), 0);
        }
        QFile::setPermissions(m_folder, QFile::permissions(m_folder) | QFileDevice::WriteOwner);
    }

private:
    static constexpr uid_t kNobody = 65534;
    QString m_folder;
};

// The repaired file cannot be written: the run keeps every setting that was readable, in a
// private copy only its user may read, and its changes reach the user's file once it can be
// written again.
TEST(DamagedSettingsFile, AFileThatCannotBeRepairedKeepsItsSettingsAndTheRunsChanges)
{
    SettingsFile file;
    file.write(kFileWithAHugeList);
    ReadOnlyFolder folder(QFileInfo(file.path()).path());
    auto preferences = std::make_unique<PreferenceStoreQSettings>(file.path());

    EXPECT_EQ(file.contents(), kFileWithAHugeList);
    EXPECT_NE(preferences->location(), file.path());
    EXPECT_EQ(QFile::permissions(preferences->location())
            & (QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup
                | QFileDevice::WriteOther),
        QFileDevice::Permissions());
    {
        SettingsStore settings(*preferences);
        EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
        EXPECT_EQ(settings.triggerMode(), TriggerMode::holdToTalk);
        EXPECT_TRUE(settings.language().value_or(QString()).startsWith("@Variant("));
        EXPECT_EQ(UsageStatsStore(*preferences).utterances(), 3);
        settings.setInsertionMethod(InsertionMethod::axDirect);
    }
    folder.makeWritable();
    preferences.reset();

    PreferenceStoreQSettings relaunched(file.freshCopy());
    SettingsStore settings(relaunched);
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(settings.insertionMethod(), InsertionMethod::axDirect);
    EXPECT_EQ(UsageStatsStore(relaunched).utterances(), 3);
}

// When even the end of the run cannot write it, the user's file is left as it was.
TEST(DamagedSettingsFile, AFileThatStaysUnwritableIsLeftAlone)
{
    SettingsFile file;
    file.write(kFileWithAHugeList);
    {
        ReadOnlyFolder folder(QFileInfo(file.path()).path());
        PreferenceStoreQSettings preferences(file.path());
        SettingsStore settings(preferences);
        EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
        settings.setHotkeyTrigger(HotkeyTrigger::rightOption);
        preferences.sync();
        EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::rightOption);
    }
    EXPECT_EQ(file.contents(), kFileWithAHugeList);
}

// A path that cannot be read as a file (here a directory) reads as an empty store; assigning
// afterwards still works in memory and never crashes.
TEST(DamagedSettingsFile, UnreadableFileLoadsDefaults)
{
    SettingsFile file;
    ASSERT_TRUE(QDir().mkpath(file.path()));
    PreferenceStoreQSettings preferences(file.path());
    SettingsStore settings(preferences);
    UsageStatsStore usage(preferences);
    expectDefaultSettings(settings);
    EXPECT_EQ(usage.totals(), UsageTotals {});
    EXPECT_EQ(preferences.status(), QSettings::AccessError);

    settings.setHotkeyTrigger(HotkeyTrigger::f5);
    usage.record(Stats {});
    preferences.sync();
    EXPECT_EQ(settings.hotkeyTrigger(), HotkeyTrigger::f5);
    EXPECT_EQ(usage.utterances(), 1);
}

} // namespace
} // namespace sayvo
