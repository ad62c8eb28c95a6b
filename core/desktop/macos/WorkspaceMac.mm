#include "desktop/macos/WorkspaceMac.h"

#import <AppKit/AppKit.h>

namespace sayvo {

std::optional<FrontApplication> WorkspaceMac::frontmostApplication()
{
    NSRunningApplication *application = [NSWorkspace sharedWorkspace].frontmostApplication;
    if (!application) {
        return std::nullopt;
    }
    FrontApplication front;
    if (NSString *bundleId = application.bundleIdentifier) {
        front.bundleId = QString::fromNSString(bundleId);
    }
    if (NSString *name = application.localizedName) {
        front.name = QString::fromNSString(name);
    }
    front.pid = application.processIdentifier;
    return front;
}

} // namespace sayvo
