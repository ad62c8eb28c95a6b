#pragma once

#include <optional>
#include <string>
#include <vector>

namespace sayvo {

// What the engine is told about the application in front. Every field is optional and is
// left out of the wire form when absent.
struct ContextPack
{
    std::optional<std::string> appBundleId;
    std::optional<std::string> appName;
    std::optional<std::string> windowTitle;
    std::optional<std::string> screenText;
    std::optional<std::string> clipboard;
    std::optional<std::vector<std::string>> personalDictionary;

    bool isEmpty() const
    {
        return !appBundleId && !appName && !windowTitle && !screenText && !clipboard
            && !personalDictionary;
    }

    bool operator==(const ContextPack &) const = default;
};

} // namespace sayvo
