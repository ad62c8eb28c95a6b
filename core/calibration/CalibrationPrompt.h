#pragma once

#include <QList>
#include <QString>

namespace sayvo {

// One sentence of the read-aloud test: what to read, exactly as written, and the formatting
// domain it exercises ("default", "email", "legal" or "casual").
struct CalibrationPrompt
{
    int id = 0;
    QString text;
    QString domain;

    bool operator==(const CalibrationPrompt &) const = default;

    // The thirteen sentences, in reading order. The casual lines are deliberately lower case
    // and unpunctuated; line 8 holds an em dash.
    static const QList<CalibrationPrompt> &readSlice();
};

} // namespace sayvo
