#pragma once

#include <QByteArray>

struct WatchState;
class QGeoPositionInfo;

// One report as one line of JSON (RFC 8259), without the line feed. "valid" is always there;
// what the report does not know is left out. Units: degrees, metres, metres per second, dB-Hz;
// headings lie in [0, 360); "time" is local time with its offset.
QByteArray jsonLine(const QGeoPositionInfo &fix, const WatchState &state, bool withSatellites);
// The same for a report of the network client beside it: "client" is "network", no satellites.
QByteArray networkJsonLine(const QGeoPositionInfo &fix);
