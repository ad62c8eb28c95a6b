#include "desktop/ContextHarvester.h"

#include "desktop/AXHelpers.h"

#include <limits>

namespace sayvo {

namespace {

std::optional<std::string> toStd(const std::optional<QString> &text)
{
    if (!text) {
        return std::nullopt;
    }
    return text->toStdString();
}

} // namespace

ContextHarvester::ContextHarvester(std::shared_ptr<Workspace> workspace,
    std::shared_ptr<AccessibilityProvider> accessibility, std::shared_ptr<WindowList> windowList,
    std::shared_ptr<Pasteboard> pasteboard)
    : m_workspace(std::move(workspace)),
      m_accessibility(std::move(accessibility)),
      m_windowList(std::move(windowList)),
      m_pasteboard(std::move(pasteboard))
{ }

ContextPack ContextHarvester::harvestCheapContext(const QStringList &personalDictionary)
{
    ContextPack pack;
    if (const std::optional<FrontApplication> front = m_workspace->frontmostApplication()) {
        pack.appBundleId = toStd(front->bundleId);
        pack.appName = toStd(front->name);
        std::optional<QString> title = AXHelpers::windowTitle(*m_accessibility, front->pid);
        // An empty accessible title is still an answer; only a missing one sends us to the
        // title the platform gave with the application, then to the window list.
        if (!title) {
            title = front->windowTitle;
        }
        if (!title) {
            title = fallbackWindowTitle(front->pid);
        }
        pack.windowTitle = toStd(title);
        pack.screenText = toStd(AXHelpers::screenText(*m_accessibility, front->pid, kWindowChars));
    }
    pack.clipboard = toStd(m_pasteboard->string());
    if (!personalDictionary.isEmpty()) {
        std::vector<std::string> words;
        words.reserve(personalDictionary.size());
        for (const QString &word : personalDictionary) {
            words.push_back(word.toStdString());
        }
        pack.personalDictionary = std::move(words);
    }
    return pack;
}

std::optional<QString> ContextHarvester::fallbackWindowTitle(qint64 pid)
{
    const std::optional<std::vector<WindowInfo>> windows = m_windowList->onScreenWindows();
    if (!windows) {
        return std::nullopt;
    }
    for (const WindowInfo &window : *windows) {
        if (!window.ownerPid || *window.ownerPid < std::numeric_limits<qint32>::min()
            || *window.ownerPid > std::numeric_limits<qint32>::max() || *window.ownerPid != pid) {
            continue;
        }
        if (!window.name || window.name->isEmpty()) {
            continue;
        }
        return window.name;
    }
    return std::nullopt;
}

} // namespace sayvo
