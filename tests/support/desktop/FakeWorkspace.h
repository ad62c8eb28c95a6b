#pragma once

#include "desktop/Workspace.h"

namespace sayvo::testing {

// The application in front is whatever the test sets; counts the questions.
class FakeWorkspace : public Workspace
{
public:
    std::optional<FrontApplication> frontmostApplication() override
    {
        ++queryCount;
        return front;
    }

    std::optional<FrontApplication> front;
    int queryCount = 0;
};

} // namespace sayvo::testing
