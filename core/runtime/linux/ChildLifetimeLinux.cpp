#include "runtime/ChildLifetime.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace sayvo {

void endWithParent(pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    // The parent may have gone before the tie was made.
    if (::getppid() != parent) {
        ::raise(SIGTERM);
    }
}

} // namespace sayvo
