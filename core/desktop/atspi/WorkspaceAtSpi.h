#pragma once

#include "desktop/Workspace.h"

#include <QObject>

#include <memory>

namespace sayvo {

class AccessibilityProviderAtSpi;

// The application and window in front as accessibility reports them, where the compositor
// does not say (GNOME, KDE): the application whose window is in the ACTIVE state. Window
// activations arrive as AT-SPI window:activate events, which the registry forwards once a
// listener has registered for them. Main thread only.
class WorkspaceAtSpi : public QObject, public Workspace
{
    Q_OBJECT

public:
    explicit WorkspaceAtSpi(std::shared_ptr<AccessibilityProviderAtSpi> accessibility);

    std::optional<FrontApplication> frontmostApplication() override;

protected:
    void watchActivations() override;

private Q_SLOTS:
    void onWindowActivated();

private:
    std::shared_ptr<AccessibilityProviderAtSpi> m_accessibility;
};

} // namespace sayvo
