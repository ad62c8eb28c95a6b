#include "runtime/ProcessTable.h"

#include <QList>
#include <QStringDecoder>

#include <unordered_map>
#include <unordered_set>

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

std::optional<std::vector<std::size_t>> treeUnder(const std::vector<ProcessLink> &links, pid_t root)
{
    std::unordered_map<pid_t, std::vector<std::size_t>> children;
    std::optional<std::size_t> rootAt;
    for (std::size_t i = 0; i < links.size(); ++i) {
        children[links[i].parent].push_back(i);
        if (links[i].pid == root && !rootAt) {
            rootAt = i;
        }
    }
    if (!rootAt) {
        return std::nullopt;
    }
    std::vector<std::size_t> members;
    std::unordered_set<pid_t> visited {root};
    std::vector<std::size_t> pending {*rootAt};
    while (!pending.empty()) {
        const std::size_t at = pending.back();
        pending.pop_back();
        members.push_back(at);
        const auto found = children.find(links[at].pid);
        if (found == children.end()) {
            continue;
        }
        for (const std::size_t child : found->second) {
            // A listing is a snapshot; a malformed one may even loop back to an ancestor.
            if (visited.insert(links[child].pid).second) {
                pending.push_back(child);
            }
        }
    }
    return members;
}

std::optional<EngineFootprint> footprintOfTree(QByteArrayView psOutput, pid_t root)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(psOutput);
    if (decoder.hasError()) {
        return std::nullopt;
    }

    std::vector<ProcessRow> rows;
    std::vector<ProcessLink> links;
    for (QStringView line : QStringView(text).split(u'\n')) {
        if (const std::optional<ProcessRow> row = parseRow(line)) {
            rows.push_back(*row);
            links.push_back(ProcessLink {row->pid, row->parent});
        }
    }
    const auto members = treeUnder(links, root);
    if (!members) {
        return std::nullopt;
    }
    EngineFootprint footprint;
    for (const std::size_t at : *members) {
        ++footprint.processCount;
        std::uint64_t bytes = 0;
        if (__builtin_mul_overflow(rows[at].residentKb, std::uint64_t {1024}, &bytes)
            || __builtin_add_overflow(footprint.residentBytes, bytes, &footprint.residentBytes)) {
            return std::nullopt;
        }
        footprint.cpuPercent += rows[at].cpuPercent;
    }
    return footprint;
}

} // namespace sayvo
