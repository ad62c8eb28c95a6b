#include "engine/format/DomainDetector.h"

#include <algorithm>
#include <array>

namespace sayvo {

namespace {

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return out;
}

template <std::size_t N>
bool mentions(const std::string &haystack, const std::array<std::string_view, N> &needles)
{
    return std::any_of(needles.begin(), needles.end(),
        [&](std::string_view needle) { return haystack.find(needle) != std::string::npos; });
}

// Applications and window titles say the most; the text on screen only breaks ties.
constexpr std::array<std::string_view, 10> kEmailApps = {"mail", "outlook", "thunderbird",
    "evolution", "geary", "kmail", "spark", "airmail", "superhuman", "inbox"};
constexpr std::array<std::string_view, 11> kChatApps = {"slack", "discord", "telegram", "whatsapp",
    "signal", "messages", "imessage", "messenger", "element", "mattermost", "teams"};
constexpr std::array<std::string_view, 8> kLegalTitles = {"agreement", "contract", "nda",
    "terms of service", "lease", "legal", "addendum", "memorandum of understanding"};
constexpr std::array<std::string_view, 6> kLegalText
    = {"whereas", "hereinafter", "indemnif", "notwithstanding", "governing law", "the parties"};
constexpr std::array<std::string_view, 5> kEmailText
    = {"subject:", "dear ", "best regards", "kind regards", "sincerely"};

} // namespace

std::string DomainDetector::detect(const ContextPack &context)
{
    const std::string app
        = lower(context.appBundleId.value_or("") + " " + context.appName.value_or(""));
    const std::string title = lower(context.windowTitle.value_or(""));
    const std::string screen = lower(context.screenText.value_or(""));

    if (mentions(title, kLegalTitles)) {
        return "legal";
    }
    if (mentions(app, kEmailApps)
        || mentions(
            title, std::array<std::string_view, 4> {"inbox", "compose", "gmail", "new message"})) {
        return "email";
    }
    if (mentions(app, kChatApps)) {
        return "casual";
    }
    if (mentions(screen, kLegalText)) {
        return "legal";
    }
    if (mentions(screen, kEmailText)) {
        return "email";
    }
    return "default";
}

bool DomainDetector::isKnownDomain(std::string_view domain)
{
    return domain == "default" || domain == "email" || domain == "legal" || domain == "casual";
}

} // namespace sayvo
