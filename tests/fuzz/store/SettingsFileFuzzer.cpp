// Loads arbitrary bytes as the preference file and runs what the app does with it at start-up
// and in the Settings window: both stores load, the Usage tab is formatted, the endpoint and
// dictionary rules see the same bytes as typed text, and the file is written back and reset.
// Repairing the file a second time must change nothing.
#include "store/IniVariantScrubber.h"
#include "store/PreferenceStoreQSettings.h"
#include "store/SettingsStore.h"
#include "store/UsagePresentation.h"
#include "store/UsageStatsStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace {

QString nextFilePath()
{
    // A new name each time: Qt caches every settings file it has parsed by its path. Qt writes
    // settings files with a flush to disk, so a memory-backed directory keeps the fuzzer fast.
    static QTemporaryDir dir(QDir(QStringLiteral("/dev/shm")).exists()
            ? QStringLiteral("/dev/shm/sayvo-settings-fuzz-XXXXXX")
            : QDir::tempPath() + QStringLiteral("/sayvo-settings-fuzz-XXXXXX"));
    static std::uint64_t counter = 0;
    return dir.filePath(QStringLiteral("%1.conf").arg(++counter));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace sayvo;
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const QByteArray repaired = IniVariantScrubber::scrubbed(bytes);
    if (IniVariantScrubber::scrubbed(repaired) != repaired) {
        __builtin_trap();
    }
    const QString path = nextFilePath();
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)) {
            return 0;
        }
        file.write(bytes);
    }
    {
        PreferenceStoreQSettings preferences(path);
        SettingsStore settings(preferences);
        UsageStatsStore usage(preferences);
        UsagePresentation::of(usage.totals());

        const QString typed = QString::fromUtf8(bytes);
        SettingsStore::isValidEndpoint(typed);
        settings.addDictionaryEntry(typed);
        settings.removeDictionaryEntry(typed);
        settings.setEndpointURL(settings.endpointURL());
        // Not record(): a file may hold a counter at its limit, and overflowing it is fatal by
        // design.
        usage.reset();
    }
    QFile::remove(path);
    return 0;
}
