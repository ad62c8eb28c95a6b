// The application's command line, parsed before any desktop exists.
#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace sayvo;

namespace {

CommandLineRequest parse(const QStringList &arguments)
{
    return CommandLine::parse(QStringList {QStringLiteral("sayvo")} + arguments);
}

// What answer() writes to each stream, and its exit status.
struct Answer
{
    std::optional<int> exitCode;
    QString out;
    QString err;
};

QString readBack(std::FILE *stream)
{
    std::rewind(stream);
    QByteArray text;
    char buffer[4096];
    size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, stream)) > 0) {
        text.append(buffer, static_cast<qsizetype>(read));
    }
    std::fclose(stream);
    return QString::fromLocal8Bit(text);
}

Answer answer(const QStringList &arguments)
{
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    Answer result;
    result.exitCode = CommandLine::answer(parse(arguments), out, err);
    result.out = readBack(out);
    result.err = readBack(err);
    return result;
}

TEST(CommandLine, NoArgumentsRunsTheApplication)
{
    EXPECT_TRUE(std::holds_alternative<command_line::Run>(parse({})));
    const Answer run = answer({});
    EXPECT_EQ(run.exitCode, std::nullopt);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_TRUE(run.err.isEmpty());
}

TEST(CommandLine, HelpPrintsUsageOnStandardOutputAndSucceeds)
{
    for (const QString &option : {QStringLiteral("--help"), QStringLiteral("-h")}) {
        const Answer help = answer({option});
        EXPECT_EQ(help.exitCode, 0) << option.toStdString();
        EXPECT_TRUE(help.out.startsWith(QStringLiteral("Usage: sayvo"))) << help.out.toStdString();
        EXPECT_TRUE(help.out.contains(QStringLiteral("--version")));
        EXPECT_TRUE(help.err.isEmpty());
    }
}

TEST(CommandLine, VersionPrintsTheCompiledVersionAndSucceeds)
{
    for (const QString &option : {QStringLiteral("--version"), QStringLiteral("-v")}) {
        const Answer version = answer({option});
        EXPECT_EQ(version.exitCode, 0);
        EXPECT_EQ(version.out, CommandLine::versionText());
        EXPECT_TRUE(version.out.startsWith(QStringLiteral("sayvo ")));
        EXPECT_TRUE(version.out.endsWith(QLatin1Char('\n')));
        EXPECT_TRUE(version.err.isEmpty());
    }
}

TEST(CommandLine, HelpWinsOverVersion)
{
    EXPECT_TRUE(std::holds_alternative<command_line::ShowHelp>(
        parse({QStringLiteral("-v"), QStringLiteral("-h")})));
}

TEST(CommandLine, AnUnknownOptionIsAUsageErrorOnStandardError)
{
    const Answer bad = answer({QStringLiteral("--frobnicate")});
    EXPECT_EQ(bad.exitCode, CommandLine::kUsageExitCode);
    EXPECT_EQ(CommandLine::kUsageExitCode, 2);
    EXPECT_TRUE(bad.out.isEmpty());
    EXPECT_TRUE(bad.err.startsWith(QStringLiteral("sayvo: "))) << bad.err.toStdString();
    EXPECT_TRUE(bad.err.contains(QStringLiteral("frobnicate")));
    EXPECT_TRUE(bad.err.contains(QStringLiteral("Usage: sayvo")));
}

TEST(CommandLine, ValuesForOptionsThatTakeNoneAndStrayWordsAreUsageErrors)
{
    for (const QStringList &arguments :
        {QStringList {QStringLiteral("--version=2")}, QStringList {QStringLiteral("report.txt")},
            QStringList {QStringLiteral("--help"), QStringLiteral("extra")},
            QStringList {QStringLiteral("-x")}}) {
        EXPECT_TRUE(std::holds_alternative<command_line::UsageError>(parse(arguments)))
            << arguments.join(' ').toStdString();
    }
}

} // namespace
