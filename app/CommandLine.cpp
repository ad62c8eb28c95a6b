#include "app/CommandLine.h"

#include "app/ControlCommand.h"

#ifndef SAYVO_VERSION_STRING
#define SAYVO_VERSION_STRING "dev"
#endif

namespace sayvo {

namespace {

void write(const std::string &text, std::FILE *stream)
{
    std::fputs(text.c_str(), stream);
    std::fflush(stream);
}

// The options, each with its short and long name; none takes a value.
struct Option
{
    char shortName;
    const char *longName;
};
constexpr Option kHelp {'h', "help"};
constexpr Option kVersion {'v', "version"};

CommandLineRequest parseTrigger(const std::vector<std::string> &arguments)
{
    if (arguments.size() < 3) {
        return command_line::UsageError {"trigger needs press, release or toggle."};
    }
    if (arguments.size() > 3) {
        return command_line::UsageError {"Unexpected argument '" + arguments[3] + "'."};
    }
    if (const std::optional<ControlRequest> request = triggerRequest(arguments[2])) {
        return command_line::Trigger {*request};
    }
    return command_line::UsageError {"Unknown trigger verb '" + arguments[2] + "'."};
}

} // namespace

CommandLineRequest CommandLine::parse(const std::vector<std::string> &arguments)
{
    if (arguments.size() >= 2 && arguments[1] == "trigger") {
        return parseTrigger(arguments);
    }
    bool help = false;
    bool version = false;
    bool optionsEnded = false;
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string &argument = arguments[i];
        if (optionsEnded || argument.size() < 2 || argument[0] != '-') {
            return command_line::UsageError {"Unexpected argument '" + argument + "'."};
        }
        if (argument == "--") {
            optionsEnded = true;
        } else if (argument.starts_with("--")) {
            const std::string name = argument.substr(2, argument.find('=') - 2);
            const bool known = name == kHelp.longName || name == kVersion.longName;
            if (!known) {
                return command_line::UsageError {"Unknown option '" + name + "'."};
            }
            if (argument.find('=') != std::string::npos) {
                return command_line::UsageError {"Unexpected value after '--" + name + "'."};
            }
            (name == kHelp.longName ? help : version) = true;
        } else {
            // Short options may be run together: -hv.
            for (const char letter : argument.substr(1)) {
                if (letter == kHelp.shortName) {
                    help = true;
                } else if (letter == kVersion.shortName) {
                    version = true;
                } else {
                    return command_line::UsageError {
                        std::string("Unknown option '") + letter + "'."};
                }
            }
        }
    }
    if (help) {
        return command_line::ShowHelp {};
    }
    if (version) {
        return command_line::ShowVersion {};
    }
    return command_line::Run {};
}

std::string CommandLine::helpText()
{
    return "Usage: sayvo [OPTION]\n"
           "       sayvo trigger press|release|toggle\n"
           "\n"
           "Push-to-talk dictation. Sayvo runs in the system tray: hold the trigger key (Right\n"
           "Ctrl by default) in any application, speak, and let go; the text appears where you\n"
           "were typing. The tray menu opens Settings, Engine Setup and the accuracy calibration.\n"
           "\n"
           "Options:\n"
           "  -h, --help     print this help and exit\n"
           "  -v, --version  print the version and exit\n"
           "\n"
           "Commands, for the key bindings of desktops where Sayvo cannot watch keys itself\n"
           "(Wayland); they reach the Sayvo running for this user:\n"
           "  trigger press    the trigger key went down (bind it to the key's press)\n"
           "  trigger release  the trigger key came up (bind it to the key's release)\n"
           "  trigger toggle   one press and release (for a desktop's custom shortcut)\n"
           "A command exits 0 once Sayvo has it, and 1 when Sayvo is not running.\n"
           "\n"
           "See sayvo(1) for the key bindings of each desktop, and for the files and\n"
           "environment variables Sayvo reads.\n";
}

std::string CommandLine::versionText()
{
    return std::string("sayvo ") + SAYVO_VERSION_STRING + "\n";
}

std::optional<int> CommandLine::answer(
    const CommandLineRequest &request, std::FILE *out, std::FILE *err)
{
    if (std::holds_alternative<command_line::ShowHelp>(request)) {
        write(helpText(), out);
        return 0;
    }
    if (std::holds_alternative<command_line::ShowVersion>(request)) {
        write(versionText(), out);
        return 0;
    }
    if (const auto *trigger = std::get_if<command_line::Trigger>(&request)) {
        return runTriggerCommand(trigger->request, err);
    }
    if (const auto *error = std::get_if<command_line::UsageError>(&request)) {
        write("sayvo: " + error->message + "\n\n" + helpText(), err);
        return kUsageExitCode;
    }
    return std::nullopt;
}

std::optional<int> CommandLine::handle(int argc, char **argv)
{
    std::vector<std::string> arguments;
    arguments.reserve(size_t(argc));
    for (int i = 0; i < argc; ++i) {
        arguments.emplace_back(argv[i]);
    }
    return answer(parse(arguments), stdout, stderr);
}

} // namespace sayvo
