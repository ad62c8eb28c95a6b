#pragma once

#include "desktop/AccessibilityProvider.h"
#include "desktop/Pasteboard.h"
#include "desktop/WindowList.h"
#include "desktop/Workspace.h"
#include "protocol/ContextPack.h"

#include <QStringList>

#include <memory>
#include <optional>

namespace sayvo {

// Gathers what the engine is told about the application in front. No state of its own;
// main thread only; blocks for the accessibility queries (each bounded by the provider's
// time-out) and never fails: what cannot be read is left absent. Every text is cut to
// ContextLimits, so the pack fits one frame the engine accepts.
class ContextHarvester
{
public:
    // The tail of a focused field's value is cut to this many user-perceived characters.
    static constexpr int kWindowChars = 200;

    ContextHarvester(std::shared_ptr<Workspace> workspace,
        std::shared_ptr<AccessibilityProvider> accessibility,
        std::shared_ptr<WindowList> windowList, std::shared_ptr<Pasteboard> pasteboard);

    ContextPack harvestCheapContext(const QStringList &personalDictionary);

private:
    std::optional<QString> fallbackWindowTitle(qint64 pid);

    std::shared_ptr<Workspace> m_workspace;
    std::shared_ptr<AccessibilityProvider> m_accessibility;
    std::shared_ptr<WindowList> m_windowList;
    std::shared_ptr<Pasteboard> m_pasteboard;
};

} // namespace sayvo
