#pragma once

#include "store/UsagePresentation.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <ostream>

// Readable failure messages for the Qt and store values that the store tests compare.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList &list, std::ostream *out)
{
    *out << '[' << list.join(QStringLiteral("|")).toStdString() << ']';
}

inline void PrintTo(const QUrl &url, std::ostream *out)
{
    *out << url.toString().toStdString();
}

namespace sayvo {

inline void PrintTo(const UsageRow &row, std::ostream *out)
{
    *out << row.label.toStdString() << ": " << row.value.toStdString();
}

} // namespace sayvo
