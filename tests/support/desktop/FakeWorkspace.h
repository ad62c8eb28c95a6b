#pragma once

#include "desktop/Workspace.h"

namespace sayvo::testing {

// The application in front is whatever the test sets; counts the questions. activate()
// announces a new window in front as a platform that announces it would.
class FakeWorkspace : public Workspace
{
public:
    std::optional<FrontApplication> frontmostApplication() override
    {
        ++queryCount;
        return front;
    }
    void setOnActivation(std::function<void()> handler) override
    {
        onActivation = std::move(handler);
    }
    void activate(FrontApplication application)
    {
        front = std::move(application);
        if (onActivation) {
            onActivation();
        }
    }

    std::function<void()> onActivation;
    std::optional<FrontApplication> front;
    int queryCount = 0;
};

} // namespace sayvo::testing
