#pragma once

#include "runtime/EngineFootprint.h"

#include <QByteArrayView>

#include <optional>
#include <sys/types.h>

namespace sayvo {

// Totals the tree under `root` in the output of `ps -axo pid=,ppid=,rss=,pcpu=` (one process
// a line: id, parent id, resident kilobytes, CPU percent; any run of spaces and tabs between
// fields). Lines with fewer than four fields or numbers that do not parse are skipped. The
// GPU figure is left absent. Nothing when the text is not UTF-8, the root is not listed, or
// the byte total does not fit in 64 bits.
std::optional<EngineFootprint> footprintOfTree(QByteArrayView psOutput, pid_t root);

} // namespace sayvo
