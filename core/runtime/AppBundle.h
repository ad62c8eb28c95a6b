#pragma once

#include <QString>

#include <optional>

namespace sayvo {

// What the runtime locator needs to know about the running application: where it was
// launched from, where its read-only resources live and which version it is. On macOS this
// is the .app bundle; on Linux the executable and its share directory.
struct AppBundle
{
    // The launched application itself (the .app directory, or the executable on Linux);
    // absent when unknown, which disables the search for a developer runtime.
    std::optional<QString> bundlePath;
    // The directory that holds "engine-payload".
    QString resourceDir;
    // The release version; absent in a developer build.
    std::optional<QString> shortVersion;
    // Where the application keeps the programs it starts, when not in the payload (a macOS
    // bundle's Contents/Helpers, where code signing expects them); absent on Linux.
    std::optional<QString> helperDir;
};

// The running application's bundle. Implemented once per platform. Needs the
// QCoreApplication to exist.
AppBundle mainAppBundle();

// The per-user directory under which provisioning builds the runtime ("SayvoApp/runtime" is
// appended by the locator). Implemented once per platform; aborts when the platform has no
// such directory, which cannot happen for a logged-in user.
QString userDataDirectory();

// The per-user directory for state worth keeping a while but not backing up, such as logs
// ("SayvoApp" is appended by its users). Implemented once per platform.
QString userStateDirectory();

} // namespace sayvo
