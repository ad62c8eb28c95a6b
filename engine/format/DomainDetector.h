#pragma once

#include "protocol/ContextPack.h"

#include <string>
#include <string_view>

namespace sayvo {

// Picks the formatting domain ("default", "email", "legal", "casual") that suits the
// application in front, from its identifier, name, window title and the text around the
// cursor. Stateless.
class DomainDetector
{
public:
    static std::string detect(const ContextPack &context);
    static bool isKnownDomain(std::string_view domain);
};

} // namespace sayvo
