#pragma once

#include "protocol/ControlMessages.h"

#include <cstdio>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace sayvo {

// What the command line asks of this process.
namespace command_line {
struct Run
{
};
struct ShowHelp
{
};
struct ShowVersion
{
};
// `sayvo trigger press|release|toggle`, run by a key binding.
struct Trigger
{
    ControlRequest request;
};
struct UsageError
{
    std::string message;
};
} // namespace command_line

using CommandLineRequest = std::variant<command_line::Run, command_line::ShowHelp,
    command_line::ShowVersion, command_line::Trigger, command_line::UsageError>;

// The `sayvo` command line, read before anything connects to a desktop so that --help,
// --version and the trigger command answer anywhere (a terminal without a display, a
// packaging check, a compositor's key binding). Free of Qt: the `sayvo` launcher answers
// all of it without loading the application, and the application reads it the same way.
class CommandLine
{
public:
    // The exit status of a command line that cannot be run, as command-line tools use it.
    static constexpr int kUsageExitCode = 2;

    // `arguments` starts with the program name, as argv does.
    static CommandLineRequest parse(const std::vector<std::string> &arguments);
    static std::string helpText();
    static std::string versionText();

    // Answers a request that ends the process (help and version on `out`, a usage error on
    // `err`, the trigger command's delivery) and returns its exit status; nullopt when the
    // application should run.
    static std::optional<int> answer(
        const CommandLineRequest &request, std::FILE *out, std::FILE *err);
    // parse() and answer() over the process's own arguments, on stdout and stderr.
    static std::optional<int> handle(int argc, char **argv);
};

} // namespace sayvo
