#pragma once

#include "runtime/EngineFootprint.h"

#include <QByteArrayView>

#include <cstddef>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace sayvo {

// A process and its parent, as a process table lists them.
struct ProcessLink
{
    pid_t pid = 0;
    pid_t parent = 0;
};

// The positions in `links` of `root` and of every process below it, each once even when a
// listing loops back on itself; nothing when the root is not listed.
std::optional<std::vector<std::size_t>> treeUnder(
    const std::vector<ProcessLink> &links, pid_t root);

// Totals the tree under `root` in the output of `ps -axo pid=,ppid=,rss=,pcpu=` (one process
// a line: id, parent id, resident kilobytes, CPU percent; any run of spaces and tabs between
// fields). Lines with fewer than four fields or numbers that do not parse are skipped. The
// GPU figure is left absent. Nothing when the text is not UTF-8, the root is not listed, or
// the byte total does not fit in 64 bits.
std::optional<EngineFootprint> footprintOfTree(QByteArrayView psOutput, pid_t root);

} // namespace sayvo
