#pragma once

#include "daemon/logflags.h"
#include "daemon/logstream.h"
#include "platform/devicepaths.h"

#include <QByteArrayView>

#include <cstdio>

class Clock;

// The numbered log file that devices in R&D mode can have.

// Where the set-up tells the user what it did.
struct Console {
    std::FILE *out = stdout;
    std::FILE *err = stderr;
};

// The value of the system-information key "/device/rd-mode" on a device in R&D mode begins so.
bool isRdMode(QByteArrayView value);
bool readRdMode(const DevicePaths &paths);

// The number after the one in the marker's first line, of which only what stands before a NUL
// counts; 1 when there is none.
int nextLogNumber(QByteArrayView firstLine);
// "lodestard_<number>.log"
QString logName(int number);

// Counts the marker file up, makes the directory and opens the file with the device's description
// at its top. Clears flags.logToFile when any of it fails, and sets it when the marker asks for a log.
LogStream setUpLogFile(const DevicePaths &paths, const Clock &clock, LogFlags &flags,
                       const Console &console = {});

void writeDeviceInfo(std::FILE *stream, const DevicePaths &paths, const Clock &clock);
