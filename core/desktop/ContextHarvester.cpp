#include "desktop/ContextHarvester.h"

#include "desktop/AXHelpers.h"
#include "protocol/ContextBounds.h"

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

// Every UTF-16 unit takes at least one byte on the wire, so a head (tail) of that many units
// holds all the engine will get of a text of any size; only that part is converted.
std::optional<QString> headUnits(std::optional<QString> text, std::size_t units)
{
    if (text && static_cast<std::size_t>(text->size()) > units) {
        text->truncate(static_cast<qsizetype>(units));
        if (text->back().isHighSurrogate()) {
            text->chop(1);
        }
    }
    return text;
}

std::optional<QString> tailUnits(std::optional<QString> text, std::size_t units)
{
    if (text && static_cast<std::size_t>(text->size()) > units) {
        *text = text->right(static_cast<qsizetype>(units));
        if (text->front().isLowSurrogate()) {
            text->remove(0, 1);
        }
    }
    return text;
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
        pack.screenText
            = toStd(tailUnits(AXHelpers::screenText(*m_accessibility, front->pid, kWindowChars),
                ContextLimits::kScreenTextBytes));
    }
    pack.clipboard = toStd(headUnits(m_pasteboard->string(), ContextLimits::kClipboardBytes));
    if (!personalDictionary.isEmpty()) {
        std::vector<std::string> words;
        words.reserve(personalDictionary.size());
        for (const QString &word : personalDictionary) {
            words.push_back(word.toStdString());
        }
        pack.personalDictionary = std::move(words);
    }
    return boundedForWire(std::move(pack));
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
