#include "runtime/AppBundle.h"

#include <CoreFoundation/CoreFoundation.h>
#include <QDir>
#include <QStandardPaths>

namespace sayvo {

namespace {

std::optional<QString> filePath(CFURLRef url)
{
    if (!url) {
        return std::nullopt;
    }
    CFURLRef absolute = CFURLCopyAbsoluteURL(url);
    CFRelease(url);
    if (!absolute) {
        return std::nullopt;
    }
    CFStringRef path = CFURLCopyFileSystemPath(absolute, kCFURLPOSIXPathStyle);
    CFRelease(absolute);
    if (!path) {
        return std::nullopt;
    }
    const QString result = QString::fromCFString(path);
    CFRelease(path);
    return result;
}

} // namespace

AppBundle mainAppBundle()
{
    AppBundle bundle;
    CFBundleRef main = CFBundleGetMainBundle();
    if (!main) {
        return bundle;
    }
    bundle.bundlePath = filePath(CFBundleCopyBundleURL(main));
    bundle.resourceDir = filePath(CFBundleCopyResourcesDirectoryURL(main)).value_or(QString());
    if (bundle.bundlePath) {
        bundle.helperDir = *bundle.bundlePath + QStringLiteral("/Contents/Helpers");
    }
    const CFTypeRef version
        = CFBundleGetValueForInfoDictionaryKey(main, CFSTR("CFBundleShortVersionString"));
    if (version && CFGetTypeID(version) == CFStringGetTypeID()) {
        bundle.shortVersion = QString::fromCFString(static_cast<CFStringRef>(version));
    }
    return bundle;
}

QString userDataDirectory()
{
    // ~/Library/Application Support
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

QString userStateDirectory()
{
    return QDir::homePath() + QStringLiteral("/Library/Logs");
}

} // namespace sayvo
