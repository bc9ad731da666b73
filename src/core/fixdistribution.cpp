#include "core/fixdistribution.h"

#include "core/methodselection.h"
#include "platform/veskpositioning.h"

bool receivesOwnSatelliteFix(const FixReceiver &client, bool satelliteDisabled)
{
    return !client.stopped && !satelliteDisabled;
}

bool isNewPosition(const QGeoPositionInfo &fix, const QGeoPositionInfo &latest)
{
    return fix.coordinate() != latest.coordinate();
}

FreeFix freeFix(FixSource source, const std::optional<FixReceiver> &client)
{
    if (!client)
        return FreeFix::Forget;
    // A started client's own sessions bring it satellite fixes; network fixes it gets either way.
    const bool wanted = source == FixSource::Satellite
                            ? client->stopped && Methods::hasSatellite(client->methods)
                            : Methods::hasNonSatellite(client->methods);
    return wanted ? FreeFix::Send : FreeFix::Skip;
}

NetworkState networkStateAfter(const QGeoPositionInfo &fix, NetworkState before)
{
    return fix.coordinate().isValid() ? NetworkState::Fix : before;
}

bool fallsBackToSupl(int networkError, bool suplFallback, bool engineReady)
{
    return networkError == vesk::UnknownLocation && suplFallback && engineReady;
}

const QGeoPositionInfo &newerFix(const QGeoPositionInfo &satellite, const QGeoPositionInfo &network)
{
    return network.timestamp() < satellite.timestamp() ? satellite : network;
}
