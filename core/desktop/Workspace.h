#pragma once

#include <QString>

#include <optional>

namespace sayvo {

struct FrontApplication
{
    std::optional<QString> bundleId;
    std::optional<QString> name;
    qint64 pid = 0;

    bool operator==(const FrontApplication &) const = default;
};

// The application in front (on X11: the owner of the active window). Main thread only.
class Workspace
{
public:
    virtual ~Workspace() = default;

    virtual std::optional<FrontApplication> frontmostApplication() = 0;
};

} // namespace sayvo
