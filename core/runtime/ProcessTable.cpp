#include "runtime/ProcessTable.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QStringDecoder>

#include <limits>

namespace sayvo {

namespace {

struct ProcessRow
{
    pid_t pid = 0;
    pid_t parent = 0;
    std::uint64_t residentKb = 0;
    double cpuPercent = 0.0;
};

std::optional<ProcessRow> parseRow(QStringView line)
{
    QList<QStringView> fields;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= line.size(); ++i) {
        const bool blank = i == line.size() || line[i] == u' ' || line[i] == u'\t';
        if (blank && start >= 0) {
            fields.append(line.mid(start, i - start));
            start = -1;
        } else if (!blank && start < 0) {
            start = i;
        }
    }
    if (fields.size() < 4) {
        return std::nullopt;
    }
    bool pidOk = false, parentOk = false, rssOk = false, cpuOk = false;
    ProcessRow row;
    row.pid = fields[0].toInt(&pidOk);
    row.parent = fields[1].toInt(&parentOk);
    row.residentKb = fields[2].toULongLong(&rssOk);
    row.cpuPercent = fields[3].toDouble(&cpuOk);
    if (!pidOk || !parentOk || !rssOk || !cpuOk) {
        return std::nullopt;
    }
    return row;
}

} // namespace

std::optional<EngineFootprint> footprintOfTree(QByteArrayView psOutput, pid_t root)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(psOutput);
    if (decoder.hasError()) {
        return std::nullopt;
    }

    QHash<pid_t, QList<pid_t>> children;
    QHash<pid_t, std::uint64_t> residentKb;
    QHash<pid_t, double> cpuPercent;
    for (QStringView line : QStringView(text).split(u'\n')) {
        const std::optional<ProcessRow> row = parseRow(line);
        if (!row) {
            continue;
        }
        children[row->parent].append(row->pid);
        residentKb.insert(row->pid, row->residentKb);
        cpuPercent.insert(row->pid, row->cpuPercent);
    }
    if (!residentKb.contains(root)) {
        return std::nullopt;
    }

    EngineFootprint footprint;
    QSet<pid_t> visited {root};
    QList<pid_t> pending {root};
    while (!pending.isEmpty()) {
        const pid_t pid = pending.takeLast();
        ++footprint.processCount;
        std::uint64_t bytes = 0;
        if (__builtin_mul_overflow(residentKb.value(pid), std::uint64_t {1024}, &bytes)
            || __builtin_add_overflow(footprint.residentBytes, bytes, &footprint.residentBytes)) {
            return std::nullopt;
        }
        footprint.cpuPercent += cpuPercent.value(pid);
        for (pid_t child : children.value(pid)) {
            // A listing is a snapshot; a malformed one may even loop back to an ancestor.
            if (!visited.contains(child)) {
                visited.insert(child);
                pending.append(child);
            }
        }
    }
    return footprint;
}

} // namespace sayvo
