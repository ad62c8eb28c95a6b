#include "runtime/ControlRequest.h"

#include <array>
#include <utility>

namespace sayvo {

namespace {

constexpr std::array kRequests {
    std::pair {ControlRequest::triggerPress, "trigger press"},
    std::pair {ControlRequest::triggerRelease, "trigger release"},
    std::pair {ControlRequest::triggerToggle, "trigger toggle"},
    std::pair {ControlRequest::showSettings, "show settings"},
};

constexpr std::array kReplies {
    std::pair {ControlReply::done, "ok"},
    std::pair {ControlReply::refused, "refused"},
    std::pair {ControlReply::unknown, "unknown"},
};

// The line without its newline; absent when there is no newline or it is not the last byte.
std::optional<QByteArrayView> line(QByteArrayView bytes)
{
    if (bytes.isEmpty() || bytes.back() != '\n' || bytes.indexOf('\n') != bytes.size() - 1) {
        return std::nullopt;
    }
    return bytes.first(bytes.size() - 1);
}

template <typename T, size_t N>
std::optional<T> lookUp(const std::array<std::pair<T, const char *>, N> &table, QByteArrayView bytes)
{
    const auto text = line(bytes);
    if (!text) {
        return std::nullopt;
    }
    for (const auto &[value, name] : table) {
        if (*text == QByteArrayView(name)) {
            return value;
        }
    }
    return std::nullopt;
}

template <typename T, size_t N>
QByteArray nameOf(const std::array<std::pair<T, const char *>, N> &table, T value)
{
    for (const auto &[entry, name] : table) {
        if (entry == value) {
            return QByteArray(name) + '\n';
        }
    }
    return {};
}

} // namespace

QByteArray encode(ControlRequest request)
{
    return nameOf(kRequests, request);
}

QByteArray encode(ControlReply reply)
{
    return nameOf(kReplies, reply);
}

std::optional<ControlRequest> decodeControlRequest(QByteArrayView bytes)
{
    return lookUp(kRequests, bytes);
}

std::optional<ControlReply> decodeControlReply(QByteArrayView bytes)
{
    return lookUp(kReplies, bytes);
}

std::optional<ControlRequest> triggerRequest(const QString &verb)
{
    if (verb == QLatin1String("press")) {
        return ControlRequest::triggerPress;
    }
    if (verb == QLatin1String("release")) {
        return ControlRequest::triggerRelease;
    }
    if (verb == QLatin1String("toggle")) {
        return ControlRequest::triggerToggle;
    }
    return std::nullopt;
}

} // namespace sayvo
