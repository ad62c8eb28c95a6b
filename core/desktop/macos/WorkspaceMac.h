#pragma once

#include "desktop/Workspace.h"

namespace sayvo {

// NSWorkspace's frontmost application. Main thread only.
class WorkspaceMac : public Workspace
{
public:
    std::optional<FrontApplication> frontmostApplication() override;
};

} // namespace sayvo
