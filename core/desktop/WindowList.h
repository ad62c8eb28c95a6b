#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace sayvo {

// One on-screen window. A field is absent when the window does not state it or states it with
// a value of another type.
struct WindowInfo
{
    std::optional<qint64> ownerPid;
    std::optional<QString> name;

    bool operator==(const WindowInfo &) const = default;
};

// The on-screen windows, front to back. Main thread only.
class WindowList
{
public:
    virtual ~WindowList() = default;

    // Absent when the list cannot be read.
    virtual std::optional<std::vector<WindowInfo>> onScreenWindows() = 0;
};

// The window list of a session that offers none to applications (Wayland).
class NoWindowList : public WindowList
{
public:
    std::optional<std::vector<WindowInfo>> onScreenWindows() override { return std::nullopt; }
};

} // namespace sayvo
