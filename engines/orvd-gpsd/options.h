#pragma once

#include "orvd-gpsd/gpsdclient.h"

#include <QString>
#include <QStringList>

#include <chrono>

// The command line of orvd-gpsd.
namespace orvdgpsd {
struct Options {
    enum class Outcome { Run, Help, Version, Wrong };

    Outcome outcome = Outcome::Run;
    QString socket; // where the daemon connects
    GpsdAddress gpsd;
    std::chrono::milliseconds settleTime{};
    bool verbose = false;
    QString text; // help, version, or what is wrong
};

Options readOptions(const QStringList &arguments); // the program's name comes first
} // namespace orvdgpsd
