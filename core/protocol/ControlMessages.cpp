#include "protocol/ControlMessages.h"

#include <array>
#include <utility>

namespace sayvo {

namespace {

constexpr std::array kRequests {
    std::pair {ControlRequest::triggerPress, std::string_view("trigger press")},
    std::pair {ControlRequest::triggerRelease, std::string_view("trigger release")},
    std::pair {ControlRequest::triggerToggle, std::string_view("trigger toggle")},
    std::pair {ControlRequest::showSettings, std::string_view("show settings")},
};

constexpr std::array kReplies {
    std::pair {ControlReply::done, std::string_view("ok")},
    std::pair {ControlReply::refused, std::string_view("refused")},
    std::pair {ControlReply::unknown, std::string_view("unknown")},
};

constexpr std::array kVerbs {
    std::pair {ControlRequest::triggerPress, std::string_view("press")},
    std::pair {ControlRequest::triggerRelease, std::string_view("release")},
    std::pair {ControlRequest::triggerToggle, std::string_view("toggle")},
};

template <typename T, size_t N>
std::optional<T> lookUp(
    const std::array<std::pair<T, std::string_view>, N> &table, std::string_view text)
{
    for (const auto &[value, name] : table) {
        if (text == name) {
            return value;
        }
    }
    return std::nullopt;
}

template <typename T, size_t N>
std::string nameOf(const std::array<std::pair<T, std::string_view>, N> &table, T value)
{
    for (const auto &[entry, name] : table) {
        if (entry == value) {
            return std::string(name) + '\n';
        }
    }
    return {};
}

// The line without its newline; absent unless the newline is there and is the last byte.
std::optional<std::string_view> line(std::string_view bytes)
{
    if (bytes.empty() || bytes.find('\n') != bytes.size() - 1) {
        return std::nullopt;
    }
    return bytes.substr(0, bytes.size() - 1);
}

} // namespace

std::string encode(ControlRequest request)
{
    return nameOf(kRequests, request);
}

std::string encode(ControlReply reply)
{
    return nameOf(kReplies, reply);
}

std::optional<ControlRequest> decodeControlRequest(std::string_view bytes)
{
    const auto text = line(bytes);
    return text ? lookUp(kRequests, *text) : std::nullopt;
}

std::optional<ControlReply> decodeControlReply(std::string_view bytes)
{
    const auto text = line(bytes);
    return text ? lookUp(kReplies, *text) : std::nullopt;
}

std::optional<ControlRequest> triggerRequest(std::string_view verb)
{
    return lookUp(kVerbs, verb);
}

} // namespace sayvo
