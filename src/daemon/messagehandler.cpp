#include "daemon/messagehandler.h"

#include "platform/clock.h"

#include <QLoggingCategory>
#include <QString>

#include <mutex>
#include <pthread.h>

#include <unistd.h>

namespace {

struct Log {
    std::mutex mutex; // Qt's bus thread logs too
    const Clock *clock = nullptr;
    LogFlags flags;
    std::FILE *file = nullptr;
};

// Never destroyed: threads that outlive main may still log.
Log &theLog()
{
    static Log &log = *new Log;
    return log;
}

// A child has only the thread that forked: a lock that another thread held would stay locked there,
// and the child's own message would wait for ever.
void keepUnlockedInChildren()
{
    static const int once = ::pthread_atfork([] { theLog().mutex.lock(); }, [] { theLog().mutex.unlock(); },
                                             [] { theLog().mutex.unlock(); });
    static_cast<void>(once);
}

const char *levelWord(QtMsgType type)
{
    switch (type) {
    case QtWarningMsg:
        return " Warning: ";
    case QtCriticalMsg:
        return " Critical: ";
    case QtFatalMsg:
        return " Fatal: ";
    case QtDebugMsg:
    case QtInfoMsg:
        break;
    }
    return " Debug: ";
}

void write(std::FILE *stream, const QByteArray &line)
{
    std::fwrite(line.constData(), 1, std::size_t(line.size()), stream);
}

void flushStreams(const Log &log)
{
    if (log.file)
        std::fflush(log.file);
    std::fflush(stdout);
}

void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    Log &log = theLog();
    const std::scoped_lock lock(log.mutex);
    const LogTargets targets = logTargets(type, log.flags);
    if (targets.file && log.file)
        write(log.file, logLine(type, log.clock->now().time(), text));
    if (targets.console)
        write(stdout, logLine(type, log.clock->now().time(), text));
    if (type == QtFatalMsg) {
        flushStreams(log);
        ::_exit(1); // exit() would run destructors beside the bus thread and could hang
    }
    if (log.flags.logToFile && log.file)
        std::fflush(log.file);
    if (log.flags.warnings || log.flags.verbose)
        std::fflush(stdout);
}

} // namespace

QByteArray logLine(QtMsgType type, const QTime &time, const QString &text)
{
    return time.toString(Qt::TextDate).toLatin1() + levelWord(type) + text.toUtf8() + '\n';
}

LogTargets logTargets(QtMsgType type, const LogFlags &flags)
{
    const bool isDebug = type == QtDebugMsg || type == QtInfoMsg;
    return {.file = flags.logToFile, .console = isDebug ? flags.verbose : flags.warnings};
}

void installMessageHandler(const Clock &clock)
{
    theLog().clock = &clock;
    keepUnlockedInChildren();
    qInstallMessageHandler(messageHandler);
    setLogTargets(LogFlags{});
}

void setLogTargets(const LogFlags &flags, LogStream file)
{
    const LogTargets debug = logTargets(QtDebugMsg, flags);
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, debug.file || debug.console);

    Log &log = theLog();
    const std::scoped_lock lock(log.mutex);
    log.flags = flags;
    if (log.file)
        std::fclose(log.file);
    log.file = file.release();
}

void flushLog()
{
    const Log &log = theLog();
    flushStreams(log);
}
