#include "protocol/InboundMessages.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace sayvo {

bool Backends::isMock() const
{
    // A substring test on purpose: "mock", "MockASR" and "whisper-mock" all mark a placeholder.
    const std::array names {&streaming, &finalPass, &gec};
    return std::any_of(names.begin(), names.end(), [](const std::optional<std::string> *name) {
        std::string lower = name->value_or("");
        std::transform(lower.begin(), lower.end(), lower.begin(),
            [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return lower.find("mock") != std::string::npos;
    });
}

} // namespace sayvo
