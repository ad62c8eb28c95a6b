#include "runtime/ChildLifetime.h"

namespace sayvo {

// macOS has no parent-death signal; the app stops its engine itself when it quits.
void endWithParent(pid_t) { }

} // namespace sayvo
