#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// What the command line asks for.
struct WatchOptions {
    enum class Output { Automatic, Json, Plain };

    Output output = Output::Automatic; // Automatic: the screen on a terminal, plain lines elsewhere
    quint32 methods = 0x000000ffU;     // QGeoPositionInfoSource::PositioningMethods
    int intervalMilliseconds = 1000;
    int seconds = 0;             // ends by itself after this time; 0: never
    int count = 0;               // ends by itself after so many valid fixes; 0: never
    int networkMilliseconds = 0; // interval of a second client, of network positions; 0: no such client
    bool satellitesInJson = false;
    bool wait = false; // wait for a daemon that is not there
};

struct ParsedCommandLine {
    std::optional<WatchOptions> options; // nothing: print `text` and leave with `status`
    QString text;
    int status = 0;
};

ParsedCommandLine parseCommandLine(const QStringList &arguments);

// Exit statuses a script can rely on.
enum class WatchStatus : int {
    FixesArrived = 0, // ended as asked, every client was shown at least one valid fix
    NoFix = 1,        // ended as asked, a client was without any valid fix
    Usage = 2,        // the command line was wrong
    NoDaemon = 3,     // no session bus, or nobody answers there
};
