#include "runtime/BootstrapLine.h"

#include <QStringList>
#include <QStringView>

#include <limits>

namespace sayvo::bootstrap {

namespace {

// An optional sign and decimal digits only, within the range of int; otherwise 0.
int parsePercent(QStringView text)
{
    bool negative = false;
    if (!text.isEmpty() && (text.front() == u'+' || text.front() == u'-')) {
        negative = text.front() == u'-';
        text = text.mid(1);
    }
    if (text.isEmpty()) {
        return 0;
    }
    long long value = 0;
    for (QChar c : text) {
        if (c < u'0' || c > u'9') {
            return 0;
        }
        value = value * 10 + (c.unicode() - u'0');
        if (value > static_cast<long long>(std::numeric_limits<int>::max()) + 1) {
            return 0;
        }
    }
    value = negative ? -value : value;
    if (value > std::numeric_limits<int>::max() || value < std::numeric_limits<int>::min()) {
        return 0;
    }
    return static_cast<int>(value);
}

// The first space-separated word and everything after the space that ends it.
std::pair<QString, QString> splitFirstWord(QStringView rest)
{
    const qsizetype space = rest.indexOf(u' ');
    if (space < 0) {
        return {rest.toString(), QString()};
    }
    return {rest.left(space).toString(), rest.mid(space + 1).toString()};
}

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}

} // namespace

Line parseLine(const QString &line)
{
    static const QString kProgress = QStringLiteral("PROGRESS ");
    static const QString kNeed = QStringLiteral("NEED ");
    static const QString kStep = QStringLiteral("STEP ");

    if (line.startsWith(kProgress)) {
        auto [percent, message] = splitFirstWord(QStringView(line).mid(kProgress.size()));
        return Progress {parsePercent(percent), message};
    }
    if (line.startsWith(kNeed)) {
        auto [token, message] = splitFirstWord(QStringView(line).mid(kNeed.size()));
        return Need {token, message};
    }
    if (line.startsWith(kStep)) {
        const QStringList fields = line.mid(kStep.size()).split(u' ', Qt::SkipEmptyParts);
        if (fields.size() == 2) {
            return Step {fields[0], fields[1]};
        }
        return Text {};
    }
    qsizetype begin = 0;
    qsizetype end = line.size();
    while (begin < end && isBlank(line[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(line[end - 1])) {
        --end;
    }
    if (QStringView(line).mid(begin, end - begin) == u"DONE") {
        return Done {};
    }
    return Text {};
}

} // namespace sayvo::bootstrap
