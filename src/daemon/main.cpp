#include "core/positiondaemon.h"
#include "daemon/commandline.h"
#include "daemon/daemonize.h"
#include "daemon/logfile.h"
#include "daemon/messagehandler.h"
#include "platform/clock.h"
#include "platform/devicepaths.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <csignal>
#include <vector>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A log file exists in R&D mode only, whatever the command line asked for.
void setUpLogging(LogFlags &flags, const DevicePaths &paths, const Clock &clock)
{
    LogStream file;
    flags.rdMode = readRdMode(paths);
    if (flags.rdMode)
        file = setUpLogFile(paths, clock, flags);
    else
        flags.logToFile = false;
    setLogTargets(flags, std::move(file));
}

// The device's shutdown and the loss of the session bus end the event loop.
void connectQuitSignals(QCoreApplication &application)
{
    QDBusConnection::systemBus().connect(u"com.varn.hallix"_s, u"/com/varn/hallix/signal"_s,
                                         u"com.varn.hallix.signal"_s, u"shutdown_ind"_s, &application,
                                         SLOT(quit()));
    QDBusConnection::sessionBus().connect({}, u"/org/freedesktop/DBus/Local"_s,
                                          u"org.freedesktop.DBus.Local"_s, u"Disconnected"_s, &application,
                                          SLOT(quit()));
}

} // namespace

int main(int argc, char *argv[])
{
    fillStandardStreams();
    std::signal(SIGPIPE, SIG_IGN); // whoever reads the log may leave
    // Copied first: the application takes its own options out of argv.
    const std::vector<const char *> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    QCoreApplication application(argc, argv);
    const Clock &clock = Clock::system();
    const DevicePaths paths;

    installMessageHandler(clock);
    auto flags = parseArguments(arguments);
    if (!flags) {
        printUsage(stdout);
        return 0;
    }
    setUpLogging(*flags, paths, clock);

    // Before the first touch of a bus: its connections live on a thread that a child would not have.
    if (flags->daemonize) {
        flushLog();
        if (const auto status = daemonize())
            ::_exit(*status);
    }

    PositionDaemon daemon(paths, clock);
    connectQuitSignals(application);
    if (daemon.init() < 0) {
        std::fputs("init failed.\n", stderr);
        return 1;
    }
    return QCoreApplication::exec();
}
