#pragma once

#include <QString>

#include <variant>

namespace sayvo {

// The commands a bootstrap script speaks on its output, one per line. Anything else is
// free text for the log.
namespace bootstrap {

// "PROGRESS <percent> <message>": a percent that is no decimal integer counts as 0.
struct Progress
{
    int percent = 0;
    QString message;
    bool operator==(const Progress &) const = default;
};

// "NEED <token> <message>": a prerequisite the script cannot install itself.
struct Need
{
    QString token;
    QString message;
    bool operator==(const Need &) const = default;
};

// "STEP <id> <token>": exactly two fields.
struct Step
{
    QString id;
    QString token;
    bool operator==(const Step &) const = default;
};

// "DONE", with spaces and tabs around it allowed.
struct Done
{
    bool operator==(const Done &) const = default;
};

struct Text
{
    bool operator==(const Text &) const = default;
};

using Line = std::variant<Progress, Need, Step, Done, Text>;

Line parseLine(const QString &line);

} // namespace bootstrap
} // namespace sayvo
