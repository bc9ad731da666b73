#include "core/processsignals.h"

#include "core/signalpipe.h"

#include <QDebug>

#include <signal.h>
#include <unistd.h>

namespace {

void wake(int)
{
    SignalPipe::notify();
}

void install(int signal, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

} // namespace

void installWakeHandler()
{
    install(SIGUSR1, wake, SA_RESTART);
}

void installExitHandlers()
{
    install(SIGCHLD, SIG_IGN, 0);
    for (const int signal : {SIGINT, SIGHUP, SIGTERM, SIGABRT, SIGBUS, SIGSEGV})
        install(signal, signalHandler, 0);
}

void signalHandler(int signal)
{
    switch (signal) {
    case SIGABRT:
    case SIGBUS:
    case SIGSEGV:
        ::_exit(1);
    case SIGHUP:
    case SIGINT:
    case SIGTERM:
        ::_exit(0);
    default:
        qDebug() << "Ignore signal" << signal;
    }
}
