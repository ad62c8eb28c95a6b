// sayvo-engine: the reference speech engine. Listens for Sayvo clients on a WebSocket,
// recognises their speech, formats it and learns from their corrections.
#include "engine/HeapArenas.h"
#include "engine/asr/PocketSphinxRecognizer.h"
#include "engine/asr/ReplayRecognizer.h"
#include "engine/format/Formatter.h"
#include "engine/server/EngineServer.h"
#include "engine/store/LearningStore.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QHostAddress>
#include <QStandardPaths>

#include <cstdio>
#include <memory>

#ifndef SAYVO_ENGINE_VERSION
#define SAYVO_ENGINE_VERSION "dev"
#endif

namespace {

void logLine(const std::string &line)
{
    std::fprintf(stderr, "sayvo-engine: %s\n", line.c_str());
    std::fflush(stderr);
}

enum ExitCode {
    kBadArguments = 2,
    kBadRecognizer = 3,
    kCannotListen = 4,
};

} // namespace

int main(int argc, char **argv)
{
    // Before any thread exists.
    sayvo::shareOneHeapAcrossThreads();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sayvo-engine"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SAYVO_ENGINE_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Sayvo's reference speech engine"));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption host(QStringLiteral("host"),
        QStringLiteral("Address to listen on (default 127.0.0.1)."), QStringLiteral("address"),
        QStringLiteral("127.0.0.1"));
    const QCommandLineOption port(QStringLiteral("port"),
        QStringLiteral("Port to listen on (default 8765; 0 picks a free one)."),
        QStringLiteral("port"), QStringLiteral("8765"));
    const QCommandLineOption asr(QStringLiteral("asr"),
        QStringLiteral("Recogniser: pocketsphinx (default), replay:FILE or mock."),
        QStringLiteral("name"), QStringLiteral("pocketsphinx"));
    const QCommandLineOption dataDir(QStringLiteral("data-dir"),
        QStringLiteral("Directory of the learning store."), QStringLiteral("dir"));
    const QCommandLineOption modelDir(QStringLiteral("model-dir"),
        QStringLiteral("PocketSphinx model directory (en-us/, en-us.lm.bin, cmudict-en-us.dict)."),
        QStringLiteral("dir"));
    const QCommandLineOption check(QStringLiteral("check"),
        QStringLiteral("Load the recogniser and the store, report, and exit."));
    const QCommandLineOption maxSeconds(QStringLiteral("max-utterance-seconds"),
        QStringLiteral("Audio an utterance may hold before it is finalised (default 300)."),
        QStringLiteral("seconds"), QStringLiteral("300"));
    parser.addOptions({host, port, asr, dataDir, modelDir, check, maxSeconds});
    // parse() rather than process(): a bad command line is a usage error (2), not a failure (1).
    const auto usageError = [&](const QString &message) {
        logLine(message.toStdString());
        std::fputs(parser.helpText().toLocal8Bit().constData(), stderr);
        return kBadArguments;
    };
    if (!parser.parse(QCoreApplication::arguments())) {
        return usageError(parser.errorText());
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usageError(
            QStringLiteral("unexpected argument ") + parser.positionalArguments().first());
    }
    if (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))) {
        parser.showHelp(0);
    }
    if (parser.isSet(version)) {
        parser.showVersion();
    }

    bool portOk = false;
    const uint portNumber = parser.value(port).toUInt(&portOk);
    const QString hostName = parser.value(host);
    const QHostAddress address(
        hostName == QStringLiteral("localhost") ? QStringLiteral("127.0.0.1") : hostName);
    if (!portOk || portNumber > 65535) {
        logLine("invalid --port " + parser.value(port).toStdString());
        return kBadArguments;
    }
    if (address.isNull()) {
        logLine("invalid --host " + parser.value(host).toStdString());
        return kBadArguments;
    }
    bool secondsOk = false;
    const double maxUtteranceSeconds = parser.value(maxSeconds).toDouble(&secondsOk);
    if (!secondsOk || !(maxUtteranceSeconds > 0.0)) {
        logLine("invalid --max-utterance-seconds " + parser.value(maxSeconds).toStdString());
        return kBadArguments;
    }

    // Recogniser. One that cannot load its model stops the engine with the reason, naming the
    // file, as its last line: the supervisor shows that line instead of restarting.
    std::unique_ptr<sayvo::RecognizerFactory> recognizers;
    const std::string asrName = parser.value(asr).toStdString();
    if (asrName == "pocketsphinx") {
        const std::string models = parser.isSet(modelDir)
            ? parser.value(modelDir).toStdString()
            : sayvo::PocketSphinxRecognizerFactory::defaultModelDir();
        auto loaded = sayvo::PocketSphinxRecognizerFactory::load(models);
        if (!loaded) {
            logLine(loaded.error());
            return kBadRecognizer;
        }
        recognizers = std::move(loaded).value();
        logLine("recogniser: pocketsphinx, model " + models);
    } else if (asrName.starts_with("replay:")) {
        auto loaded = sayvo::ReplayRecognizerFactory::load(asrName.substr(7));
        if (!loaded) {
            logLine(loaded.error());
            return kBadRecognizer;
        }
        recognizers = std::move(loaded).value();
        logLine("recogniser: replay of " + asrName.substr(7));
    } else if (asrName == "mock") {
        recognizers = std::make_unique<sayvo::MockRecognizerFactory>();
        logLine("recogniser: mock");
    } else {
        logLine("unknown --asr " + asrName + " (pocketsphinx, replay:FILE or mock)");
        return kBadArguments;
    }

    // Learning store. Without it the engine still transcribes; it just cannot learn.
    const QString data = parser.isSet(dataDir)
        ? parser.value(dataDir)
        : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QStringLiteral("/SayvoApp/engine");
    const std::string storePath
        = QDir(data).filePath(QStringLiteral("learning.sqlite3")).toStdString();
    std::unique_ptr<sayvo::LearningStore> store;
    if (auto opened = sayvo::LearningStore::open(storePath)) {
        store = std::move(opened).value();
        const sayvo::FeedbackRetention kept;
        logLine("learning store: " + storePath + " (" + std::to_string(store->feedbackCount())
            + " feedback rows; keeps the newest " + std::to_string(kept.maxRows)
            + ", none older than " + std::to_string(kept.maxAgeDays) + " days)");
    } else {
        logLine("learning store unavailable, running without learning: " + opened.error());
    }

    if (parser.isSet(check)) {
        const sayvo::Backends b = recognizers->backends();
        std::printf("backends: %s %s %s\nstore: %s\n", b.streaming.value_or("").c_str(),
            b.finalPass.value_or("").c_str(), b.gec.value_or("").c_str(),
            store ? "ok" : "unavailable");
        return b.isMock() ? kBadRecognizer : 0;
    }

    sayvo::Formatter formatter;
    sayvo::RecentUtterances recent;
    sayvo::EngineServices services {
        *recognizers, formatter, store.get(), recent, SAYVO_ENGINE_VERSION, logLine};
    services.maxUtteranceSeconds = maxUtteranceSeconds;
    sayvo::EngineServer server(services);
    if (!server.listen(address, static_cast<quint16>(portNumber))) {
        logLine("cannot listen on " + parser.value(host).toStdString() + ":"
            + std::to_string(portNumber) + ": " + server.errorString().toStdString());
        return kCannotListen;
    }
    logLine("recognisers: up to " + std::to_string(server.recognitionWorkers()) + " at once");
    const QString shown = address.protocol() == QAbstractSocket::IPv6Protocol
        ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
        : address.toString();
    logLine("listening on ws://" + shown.toStdString() + ":" + std::to_string(server.port()));
    return app.exec();
}
