#pragma once

#include "store/PreferenceStore.h"

#include <memory>

namespace sayvo {

// The signed-in user's own preference store on this platform: the user defaults of the app's
// domain on macOS, the QSettings INI file under the XDG configuration directory on Linux.
// Defined once per platform. Needs the QCoreApplication's organisation and application names.
std::unique_ptr<PreferenceStore> createNativePreferenceStore();

} // namespace sayvo
