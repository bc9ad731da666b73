#pragma once

#include "client/fixfilters.h"
#include "core/sessionplan.h"

#include <QGeoPositionInfo>

#include <optional>

// The part of a client that decides whether a fix is for it.
struct FixReceiver {
    bool stopped = true;
    quint32 methods = 0; // mask of what it asked for
};

// Does the client of a satellite session get the fix of its own session?
bool receivesOwnSatelliteFix(const FixReceiver &client, bool satelliteDisabled);

// Satellite fixes go to free-fix clients only when the receiver has moved.
bool isNewPosition(const QGeoPositionInfo &fix, const QGeoPositionInfo &latest);

// A free-fix client lives on fixes that other clients' sessions produce. Forget: the id is of no
// client any more. No client at all is passed as nothing.
enum class FreeFix { Forget, Skip, Send };
FreeFix freeFix(FixSource source, const std::optional<FixReceiver> &client);

// A network fix with a valid coordinate is what network positioning was after.
NetworkState networkStateAfter(const QGeoPositionInfo &fix, NetworkState before);

// What the network library could not locate, the engine may: where the product wants that, and while
// there is an engine to ask. networkError is the library's code.
bool fallsBackToSupl(int networkError, bool suplFallback, bool engineReady);

// The satellite fix only when the network fix is strictly older.
const QGeoPositionInfo &newerFix(const QGeoPositionInfo &satellite, const QGeoPositionInfo &network);
