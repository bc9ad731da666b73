#include "watchapp.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <clocale>
#include <csignal>
#include <cstdio>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

// Blocked before any thread starts, so that the descriptor is the only way they arrive.
int terminatingSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace

int main(int argc, char **argv)
{
    std::setlocale(LC_ALL, "");
    const int signalDescriptor = terminatingSignals();
    QCoreApplication application(argc, argv);

    const ParsedCommandLine parsed = parseCommandLine(QCoreApplication::arguments());
    if (!parsed.options) {
        std::fputs(qPrintable(parsed.text), parsed.status == 0 ? stdout : stderr);
        return parsed.status;
    }

    WatchApp app(*parsed.options);
    QSocketNotifier notifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, [&] {
        notifier.setEnabled(false);
        app.leave();
    });
    // From inside the loop, so that leaving at once works too.
    QTimer::singleShot(0, &app, &WatchApp::begin);
    const int status = QCoreApplication::exec();
    close(signalDescriptor);
    return status;
}
