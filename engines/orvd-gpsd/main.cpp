#include "engine/filedescriptor.h"
#include "orvd-gpsd/gpsdengine.h"
#include "orvd-gpsd/options.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <signal.h>
#include <sys/signalfd.h>

namespace {
enum ExitStatus { Success = 0, Failure = 1, WrongUsage = 2 };

bool verbose = false;

void logToStandardError(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtDebugMsg && !verbose)
        return;
    const char *mark = type == QtWarningMsg || type == QtCriticalMsg ? "warning: " : "";
    std::fprintf(stderr, "orvd-gpsd: %s%s\n", mark, qPrintable(text));
}

// gpsd may hang up at any moment, and libgps writes to it without a care.
void ignoreBrokenPipes()
{
    ::signal(SIGPIPE, SIG_IGN);
}

// The signals that end the program, as something to read. They have to be blocked before the first
// thread starts.
FileDescriptor terminationSignals()
{
    sigset_t endings;
    sigemptyset(&endings);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&endings, number);
    sigprocmask(SIG_BLOCK, &endings, nullptr);
    return FileDescriptor(::signalfd(-1, &endings, SFD_CLOEXEC | SFD_NONBLOCK));
}

int print(const orvdgpsd::Options &options)
{
    const bool isWrong = options.outcome == orvdgpsd::Options::Outcome::Wrong;
    std::fprintf(isWrong ? stderr : stdout, isWrong ? "orvd-gpsd: %s\n" : "%s", qPrintable(options.text));
    return isWrong ? WrongUsage : Success;
}
} // namespace

int main(int argc, char *argv[])
{
    ignoreBrokenPipes();
    const FileDescriptor endSignals = terminationSignals();
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(logToStandardError);

    const auto options = orvdgpsd::readOptions(QCoreApplication::arguments());
    if (options.outcome != orvdgpsd::Options::Outcome::Run)
        return print(options);
    verbose = options.verbose;
    if (!endSignals.isValid()) {
        qCritical("Signals cannot be received: %s", std::strerror(errno));
        return Failure;
    }
    const QSocketNotifier ended(endSignals.get(), QSocketNotifier::Read);
    QObject::connect(&ended, &QSocketNotifier::activated, &application, &QCoreApplication::quit);

    orvdgpsd::GpsdEngine engine(options.gpsd, options.settleTime);
    if (!engine.listen(options.socket)) {
        qCritical("Cannot serve %s: %s", qPrintable(options.socket), qPrintable(engine.errorText()));
        return Failure;
    }
    qInfo("Serving %s from gpsd at %s:%s", qPrintable(options.socket), options.gpsd.host.constData(),
          options.gpsd.port.constData());
    return QCoreApplication::exec();
}
