#include "app/ShutdownSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sayvo {

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_pipe[1], &byte, 1);
}
} // namespace

ShutdownSignals::ShutdownSignals(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_pipe) != 0) {
        return;
    }
    ::fcntl(g_pipe[1], F_SETFL, O_NONBLOCK);
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [] {
        char byte = 0;
        [[maybe_unused]] const auto read = ::read(g_pipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

ShutdownSignals::~ShutdownSignals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace sayvo
