// The `sayvo` command line, parsed before any desktop exists.
#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

CommandLineRequest parse(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "sayvo");
    return CommandLine::parse(arguments);
}

std::string joined(const std::vector<std::string> &arguments)
{
    std::string text;
    for (const std::string &argument : arguments) {
        text += argument + ' ';
    }
    return text;
}

// What answer() writes to each stream, and its exit status.
struct Answer
{
    std::optional<int> exitCode;
    std::string out;
    std::string err;
};

std::string readBack(std::FILE *stream)
{
    std::rewind(stream);
    std::string text;
    char buffer[4096];
    size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, stream)) > 0) {
        text.append(buffer, read);
    }
    std::fclose(stream);
    return text;
}

Answer answer(const std::vector<std::string> &arguments)
{
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    Answer result;
    result.exitCode = CommandLine::answer(parse(arguments), out, err);
    result.out = readBack(out);
    result.err = readBack(err);
    return result;
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST(CommandLine, NoArgumentsRunsTheApplication)
{
    EXPECT_TRUE(std::holds_alternative<command_line::Run>(parse({})));
    const Answer run = answer({});
    EXPECT_EQ(run.exitCode, std::nullopt);
    EXPECT_TRUE(run.out.empty());
    EXPECT_TRUE(run.err.empty());
}

TEST(CommandLine, HelpPrintsUsageOnStandardOutputAndSucceeds)
{
    for (const std::string option : {"--help", "-h"}) {
        const Answer help = answer({option});
        EXPECT_EQ(help.exitCode, 0) << option;
        EXPECT_TRUE(help.out.starts_with("Usage: sayvo")) << help.out;
        EXPECT_TRUE(contains(help.out, "--version"));
        EXPECT_TRUE(contains(help.out, "sayvo trigger press|release|toggle"));
        EXPECT_TRUE(help.err.empty());
    }
}

TEST(CommandLine, VersionPrintsTheCompiledVersionAndSucceeds)
{
    for (const std::string option : {"--version", "-v"}) {
        const Answer version = answer({option});
        EXPECT_EQ(version.exitCode, 0);
        EXPECT_EQ(version.out, CommandLine::versionText());
        EXPECT_TRUE(version.out.starts_with("sayvo "));
        EXPECT_TRUE(version.out.ends_with('\n'));
        EXPECT_TRUE(version.err.empty());
    }
}

TEST(CommandLine, HelpWinsOverVersion)
{
    EXPECT_TRUE(std::holds_alternative<command_line::ShowHelp>(parse({"-v", "-h"})));
    EXPECT_TRUE(std::holds_alternative<command_line::ShowHelp>(parse({"-vh"})));
}

TEST(CommandLine, AnUnknownOptionIsAUsageErrorOnStandardError)
{
    const Answer bad = answer({"--frobnicate"});
    EXPECT_EQ(bad.exitCode, CommandLine::kUsageExitCode);
    EXPECT_EQ(CommandLine::kUsageExitCode, 2);
    EXPECT_TRUE(bad.out.empty());
    EXPECT_TRUE(bad.err.starts_with("sayvo: ")) << bad.err;
    EXPECT_TRUE(contains(bad.err, "frobnicate"));
    EXPECT_TRUE(contains(bad.err, "Usage: sayvo"));
}

TEST(CommandLine, ValuesForOptionsThatTakeNoneAndStrayWordsAreUsageErrors)
{
    for (const std::vector<std::string> &arguments :
        std::vector<std::vector<std::string>> {{"--version=2"}, {"report.txt"}, {"--help", "extra"},
            {"-x"}, {"-hx"}, {"-"}, {"--", "--help"}, {"press"}}) {
        EXPECT_TRUE(std::holds_alternative<command_line::UsageError>(parse(arguments)))
            << joined(arguments);
    }
}

TEST(CommandLine, TheTriggerCommandTakesExactlyOneVerb)
{
    const std::vector<std::pair<std::string, ControlRequest>> verbs {
        {"press", ControlRequest::triggerPress}, {"release", ControlRequest::triggerRelease},
        {"toggle", ControlRequest::triggerToggle}};
    for (const auto &[verb, request] : verbs) {
        const CommandLineRequest parsed = parse({"trigger", verb});
        ASSERT_TRUE(std::holds_alternative<command_line::Trigger>(parsed)) << verb;
        EXPECT_EQ(std::get<command_line::Trigger>(parsed).request, request);
    }
    for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>> {
             {"trigger"}, {"trigger", "push"}, {"trigger", "Press"}, {"trigger", "press", "now"},
             {"trigger", "--help"}, {"trigger", ""}, {"--help", "trigger", "press"}}) {
        EXPECT_TRUE(std::holds_alternative<command_line::UsageError>(parse(arguments)))
            << joined(arguments);
    }
    const Answer bad = answer({"trigger", "push"});
    EXPECT_EQ(bad.exitCode, CommandLine::kUsageExitCode);
    EXPECT_TRUE(bad.out.empty());
    EXPECT_TRUE(contains(bad.err, "push")) << bad.err;
    EXPECT_TRUE(contains(bad.err, "sayvo trigger press|release|toggle")) << bad.err;
}

} // namespace
