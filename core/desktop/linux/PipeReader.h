#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QString>

#include <map>
#include <utility>
#include <vector>

namespace sayvo {

// Reads each pipe to its end, all of them at once, until the deadline: an owner that never
// answers costs one wait whatever the number of types. Takes the (non-blocking) read ends and
// closes them. Only the types read whole and no larger than maxBytes are in the result.
std::map<QString, QByteArray> readPipes(
    const std::vector<std::pair<QString, int>> &pipes, QDeadlineTimer deadline, qsizetype maxBytes);

} // namespace sayvo
