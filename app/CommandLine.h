#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>
#include <optional>
#include <variant>

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
struct UsageError
{
    QString message;
};
} // namespace command_line

using CommandLineRequest = std::variant<command_line::Run, command_line::ShowHelp,
    command_line::ShowVersion, command_line::UsageError>;

// The program's options, read before anything connects to a desktop so that --help and
// --version answer anywhere (a terminal without a display, a packaging check).
class CommandLine
{
public:
    // The exit status of a command line that cannot be run, as command-line tools use it.
    static constexpr int kUsageExitCode = 2;

    // `arguments` starts with the program name, as argv does.
    static CommandLineRequest parse(const QStringList &arguments);
    static QString helpText();
    static QString versionText();

    // Answers a request that ends the process (help and version on `out`, a usage error on
    // `err`) and returns its exit status; nothing and nullopt when the application should run.
    static std::optional<int> answer(
        const CommandLineRequest &request, std::FILE *out, std::FILE *err);
    // parse() and answer() over the process's own arguments, on stdout and stderr.
    static std::optional<int> handle(int argc, char **argv);
};

} // namespace sayvo
