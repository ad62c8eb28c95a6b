// `sayvo`: the command on the PATH. It answers its command line itself (--help, --version, a
// wrong option, `sayvo trigger ...`), so that a key binding's command starts in a millisecond
// or two and a terminal gets its answer without Qt or a display, and otherwise replaces
// itself with the application, keeping its process id and arguments. The application lives
// beside Sayvo's other private files: <prefix>/lib/sayvo/sayvo-app for <prefix>/bin/sayvo,
// in the installed tree and in the build tree alike.
#include "app/CommandLine.h"

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
    if (const std::optional<int> exitCode = sayvo::CommandLine::handle(argc, argv)) {
        return *exitCode;
    }
    const std::string application = executableDirectory() + "/" SAYVO_APPLICATION_FROM_LAUNCHER;
    ::execv(application.c_str(), argv);
    std::fprintf(stderr, "sayvo: cannot start the application %s: %s\n", application.c_str(),
        std::generic_category().message(errno).c_str());
    return 1;
}
