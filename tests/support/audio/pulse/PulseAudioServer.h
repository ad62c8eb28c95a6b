#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace sayvo::test {

// A virtual microphone on the test server: a pipe source whose FIFO this object keeps
// open. What is written comes out of the source as recorded audio; nothing comes out while
// nothing is written.
class PipeMicrophone
{
public:
    PipeMicrophone(QString name, int moduleIndex, int fd, int bytesPerSecond);
    ~PipeMicrophone();

    const QString &name() const { return m_name; }
    int moduleIndex() const { return m_moduleIndex; }

    // Writes the samples (in the source's own format) in 100 ms pieces, a little faster
    // than real time, as a microphone would deliver them.
    void play(const QByteArray &samples);

    // Writes silence in 10 ms pieces at real-time pace on a thread of its own, like a live
    // microphone in a quiet room, until stopStreaming() or destruction.
    void startStreaming();
    void stopStreaming();

private:
    bool writeAll(const char *data, qsizetype length);

    QString m_name;
    int m_moduleIndex;
    int m_fd;
    int m_bytesPerSecond;
    std::atomic<bool> m_streaming {false};
    std::thread m_streamer;
};

// A private PulseAudio daemon for one test: its own runtime directory and socket, no
// configuration from the machine, a null sink, anonymous access, never exiting on idle.
// The destructor stops it, also when the test failed; if the test process dies the
// daemon is told to end too.
class PulseAudioServer
{
public:
    PulseAudioServer();
    ~PulseAudioServer();

    PulseAudioServer(const PulseAudioServer &) = delete;
    PulseAudioServer &operator=(const PulseAudioServer &) = delete;

    // Starts the daemon and waits until it answers; false (with error()) otherwise.
    bool start();
    void stop();
    bool isRunning() const;
    QString error() const { return m_error; }

    // "unix:<socket>", the form PULSE_SERVER takes.
    QString address() const;
    // Points every sound-server client of this process at this server.
    void useForThisProcess() const;

    struct Result
    {
        int exitCode = -1;
        QString output;
    };
    Result pactl(const QStringList &arguments) const;

    // Adds a pipe source with the given properties ("device.bus=bluetooth ..."); null on
    // failure.
    std::unique_ptr<PipeMicrophone> addMicrophone(const QString &name, int rate, int channels,
        const QString &description, const QString &extraProperties = {});
    std::optional<int> loadModule(const QString &module, const QString &arguments);
    bool unloadModule(int index);
    bool setDefaultSource(const QString &name);
    // Record streams currently open on the server.
    int recordStreamCount() const;
    // Ends every record stream from the server's side, as a sound mixer's "kill" does (through
    // pacmd: pactl has no such command).
    bool killRecordStreams();

private:
    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_daemon;
    QString m_error;
};

} // namespace sayvo::test
