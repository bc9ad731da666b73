#pragma once

#include "daemon/logflags.h"
#include "daemon/logstream.h"

#include <QByteArray>
#include <QTime>
#include <QtGlobal>

class Clock;

// The way of every message of the process: time, level word and text, to the log file and to
// standard output as the flags say; never to standard error. Fatal messages end the process with
// status 1.

// "12:34:56 Warning: text" and a line feed.
QByteArray logLine(QtMsgType type, const QTime &time, const QString &text);

struct LogTargets {
    bool file;
    bool console;
    bool operator==(const LogTargets &) const = default;
};
LogTargets logTargets(QtMsgType type, const LogFlags &flags);

// Installs the handler with the flags' initial values and no file. The clock must outlive the process's
// last message.
void installMessageHandler(const Clock &clock);
// From here on the flags hold. The default category's debug level is off while no target wants it:
// lines on busy roads ask the category first, and are then not even formatted.
void setLogTargets(const LogFlags &flags, LogStream file = {});
// Before a fork or an _exit: nothing stays in a buffer.
void flushLog();
