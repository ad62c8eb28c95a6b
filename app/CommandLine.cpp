#include "app/CommandLine.h"

#include <QCommandLineParser>

#ifndef SAYVO_VERSION_STRING
#define SAYVO_VERSION_STRING "dev"
#endif

namespace sayvo {

namespace {

void write(const QString &text, std::FILE *stream)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

} // namespace

CommandLineRequest CommandLine::parse(const QStringList &arguments)
{
    // QCommandLineParser::parse() needs no application object, unlike process().
    QCommandLineParser parser;
    const QCommandLineOption help(QStringList {QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption version(QStringList {QStringLiteral("v"), QStringLiteral("version")});
    parser.addOptions({help, version});
    if (!parser.parse(arguments)) {
        return command_line::UsageError {parser.errorText()};
    }
    if (!parser.positionalArguments().isEmpty()) {
        return command_line::UsageError {
            QStringLiteral("Unexpected argument '%1'.").arg(parser.positionalArguments().first())};
    }
    if (parser.isSet(help)) {
        return command_line::ShowHelp {};
    }
    if (parser.isSet(version)) {
        return command_line::ShowVersion {};
    }
    return command_line::Run {};
}

QString CommandLine::helpText()
{
    return QStringLiteral(
        "Usage: sayvo [OPTION]\n"
        "\n"
        "Push-to-talk dictation. Sayvo runs in the system tray: hold the trigger key (Right\n"
        "Ctrl by default) in any application, speak, and let go; the text appears where you\n"
        "were typing. The tray menu opens Settings, Engine Setup and the accuracy calibration.\n"
        "\n"
        "Options:\n"
        "  -h, --help     print this help and exit\n"
        "  -v, --version  print the version and exit\n"
        "\n"
        "See sayvo(1) for the files and environment variables Sayvo reads.\n");
}

QString CommandLine::versionText()
{
    return QStringLiteral("sayvo %1\n").arg(QStringLiteral(SAYVO_VERSION_STRING));
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
    if (const auto *error = std::get_if<command_line::UsageError>(&request)) {
        write(QStringLiteral("sayvo: %1\n\n").arg(error->message) + helpText(), err);
        return kUsageExitCode;
    }
    return std::nullopt;
}

std::optional<int> CommandLine::handle(int argc, char **argv)
{
    QStringList arguments;
    arguments.reserve(argc);
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    return answer(parse(arguments), stdout, stderr);
}

} // namespace sayvo
