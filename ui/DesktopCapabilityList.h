#pragma once

#include "desktop/DesktopPlan.h"

#include <QWidget>

#include <functional>
#include <vector>

class QVBoxLayout;

namespace sayvo {

// One line per desktop capability in the setup area: what works in this session, and what
// the user can do where something does not (the key binding to add, ...), selectable so a
// command can be copied. Empty and hidden until it is given statuses.
class DesktopCapabilityList : public QWidget
{
    Q_OBJECT

public:
    explicit DesktopCapabilityList(QWidget *parent = nullptr);

    void setStatuses(const std::vector<DesktopCapabilityStatus> &statuses);
    // Runs when the user presses a capability's "Ask again" button.
    void setOnAskAgain(std::function<void(DesktopCapability)> handler)
    {
        m_onAskAgain = std::move(handler);
    }
    // The text each line shows, in order (tests read them).
    QStringList lines() const;

private:
    QVBoxLayout *m_layout;
    QStringList m_lines;
    std::function<void(DesktopCapability)> m_onAskAgain;
};

} // namespace sayvo
