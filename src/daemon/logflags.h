#pragma once

// Where log lines go, and whether the process detaches. The values are those before the command
// line is read.
struct LogFlags {
    bool logToFile = false; // every message into the log file
    bool verbose = false;   // debug messages on standard output
    bool warnings = true;   // warning, critical and fatal messages on standard output
    bool rdMode = false;    // the device is in R&D mode: only then may a log file exist
    bool daemonize = false; // detach into the background

    bool operator==(const LogFlags &) const = default;
};
