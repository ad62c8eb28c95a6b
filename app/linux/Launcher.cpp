// `sayvo`: the command on the PATH. It runs `sayvo trigger ...` itself, so that a key binding's
// command starts in a millisecond or two without loading Qt and the rest of the application,
// and otherwise replaces itself with the application (sayvo-app beside it in the build tree,
// <prefix>/libexec/sayvo/sayvo-app once installed), keeping its process id and arguments.
#include "app/ControlCommand.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

std::string executableDirectory()
{
    char path[PATH_MAX];
    const ssize_t size = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (size <= 0) {
        return {};
    }
    const std::string executable(path, size_t(size));
    return executable.substr(0, executable.rfind('/'));
}

} // namespace

int main(int argc, char **argv)
{
    if (const std::optional<int> exitCode = sayvo::runControlCommand(argc, argv)) {
        return *exitCode;
    }
    const std::string directory = executableDirectory();
    for (const std::string &application :
        {directory + "/sayvo-app", directory + "/../libexec/sayvo/sayvo-app"}) {
        if (::access(application.c_str(), X_OK) == 0) {
            ::execv(application.c_str(), argv);
            std::fprintf(stderr, "sayvo: cannot start %s: %s\n", application.c_str(),
                std::generic_category().message(errno).c_str());
            return 1;
        }
    }
    std::fprintf(stderr, "sayvo: the application (sayvo-app) is not installed beside %s\n",
        directory.c_str());
    return 1;
}
