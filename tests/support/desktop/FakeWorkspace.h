#pragma once

#include "desktop/Workspace.h"

#include <functional>

namespace sayvo::testing {

// The application in front is whatever the test sets; counts the questions. activate()
// announces a new window in front as a platform that announces it would.
class FakeWorkspace : public Workspace
{
public:
    std::optional<FrontApplication> frontmostApplication() override
    {
        ++queryCount;
        if (onQuery) {
            onQuery();
        }
        return front;
    }
    void activate(FrontApplication application)
    {
        front = std::move(application);
        announceActivation();
    }

    std::optional<FrontApplication> front;
    int queryCount = 0;
    // Runs inside each question, as the time a slow desktop takes to answer.
    std::function<void()> onQuery;
};

} // namespace sayvo::testing
