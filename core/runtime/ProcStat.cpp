#include "runtime/ProcStat.h"

#include <array>
#include <charconv>

namespace sayvo {

namespace {

template <typename Number> bool parse(std::string_view text, Number &value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

} // namespace

std::optional<ProcessUsage> parseProcStat(
    std::string_view text, double ticksPerSecond, std::uint64_t pageBytes)
{
    const std::size_t open = text.find(" (");
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open
        || ticksPerSecond <= 0.0) {
        return std::nullopt;
    }
    ProcessUsage usage;
    if (!parse(text.substr(0, open), usage.pid)) {
        return std::nullopt;
    }
    // Fields after the name, numbered as proc(5) numbers them: 3 is the state.
    constexpr std::size_t kFirst = 3;
    constexpr std::size_t kLast = 24;
    std::array<std::string_view, kLast + 1> fields {};
    std::string_view rest = text.substr(close + 1);
    for (std::size_t number = kFirst; number <= kLast; ++number) {
        const std::size_t start = rest.find_first_not_of(" \n");
        if (start == std::string_view::npos) {
            return std::nullopt;
        }
        rest.remove_prefix(start);
        const std::size_t end = std::min(rest.find_first_of(" \n"), rest.size());
        fields[number] = rest.substr(0, end);
        rest.remove_prefix(end);
    }
    std::array<std::uint64_t, 4> ticks {}; // utime, stime, cutime, cstime
    std::int64_t pages = 0;
    if (!parse(fields[4], usage.parent) || !parse(fields[24], pages)) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < ticks.size(); ++i) {
        if (!parse(fields[14 + i], ticks[i])) {
            return std::nullopt;
        }
    }
    double total = 0.0;
    for (const std::uint64_t t : ticks) {
        total += static_cast<double>(t);
    }
    usage.cpuSeconds = total / ticksPerSecond;
    if (pages > 0
        && __builtin_mul_overflow(
            static_cast<std::uint64_t>(pages), pageBytes, &usage.residentBytes)) {
        return std::nullopt;
    }
    return usage;
}

} // namespace sayvo
