#pragma once

#include <QString>

#include <array>
#include <optional>

namespace sayvo {

// How a transcript reaches the focused field: a synthetic paste, or a direct accessibility
// write that falls back to the paste.
enum class InsertionMethod {
    paste,
    axDirect,
};

inline constexpr std::array kAllInsertionMethods {
    InsertionMethod::paste, InsertionMethod::axDirect};

QString rawValue(InsertionMethod method);
std::optional<InsertionMethod> insertionMethodFromRaw(const QString &raw);
QString displayName(InsertionMethod method);

} // namespace sayvo
