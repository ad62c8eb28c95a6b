#pragma once

namespace sayvo {

// The reverse-DNS name the desktop knows Sayvo by: its desktop entry, icon and AppStream
// component on Linux, its bundle identifier on macOS. The top-level CMakeLists.txt reads it
// from here to name the files it installs.
inline constexpr char kAppId[] = "com.sayvoapp.Sayvo";

} // namespace sayvo
