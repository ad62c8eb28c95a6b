#include "calibration/WordErrorRate.h"

#include <QChar>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <vector>

namespace sayvo {

QStringList normalizedWords(const QString &text)
{
    QStringList words;
    QString word;
    const QString lower = text.toLower();
    // Whole user-perceived characters, so a letter with combining accents (or outside the
    // BMP) stays one piece of its word; the base character decides whether it belongs.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, lower);
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end > 0; end = finder.toNextBoundary()) {
        const QStringView cluster = QStringView(lower).mid(start, end - start);
        start = end;
        const char32_t base = cluster.toUcs4().value(0);
        if (QChar::isLetterOrNumber(base) || base == U'\'') {
            word.append(cluster);
        } else if (!word.isEmpty()) {
            words.append(word);
            word.clear();
        }
    }
    if (!word.isEmpty()) {
        words.append(word);
    }
    return words;
}

double wordErrorRate(const QString &reference, const QString &hypothesis)
{
    const QStringList ref = normalizedWords(reference);
    const QStringList hyp = normalizedWords(hypothesis);
    if (ref.isEmpty()) {
        return hyp.isEmpty() ? 0.0 : 1.0;
    }
    const auto columns = static_cast<std::size_t>(hyp.size()) + 1;
    std::vector<qsizetype> previous(columns);
    std::vector<qsizetype> current(columns);
    for (std::size_t j = 0; j < columns; ++j) {
        previous[j] = static_cast<qsizetype>(j);
    }
    for (qsizetype i = 1; i <= ref.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j < columns; ++j) {
            const qsizetype substitution
                = previous[j - 1] + (ref[i - 1] == hyp[static_cast<qsizetype>(j) - 1] ? 0 : 1);
            current[j] = std::min({substitution, current[j - 1] + 1, previous[j] + 1});
        }
        std::swap(previous, current);
    }
    return static_cast<double>(previous[columns - 1]) / static_cast<double>(ref.size());
}

} // namespace sayvo
