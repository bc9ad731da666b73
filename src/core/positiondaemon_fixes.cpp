#include "client/clientapp.h"
#include "core/busylog.h"
#include "core/positiondaemon.h"
#include "settings/locationgconfsettings.h"

#include <QDebug>

namespace {

std::optional<FixReceiver> receiver(const ClientApp *client)
{
    if (!client)
        return std::nullopt;
    return FixReceiver{.stopped = client->isStopped(), .methods = client->methods()};
}

} // namespace

void PositionDaemon::onPositionUpdateGNSS(quint16 sessionId, QGeoPositionInfo &fix)
{
    const auto variation = wholeVariation(fix);
    if (variation && m_variation.isDue(*variation, m_clock.monotonic()))
        gconfSettings->set(LocationGConfSettings::KeyMagneticVariation, *variation);
    ClientApp *client = m_registry.findSession(sessionId);
    if (!client) {
        qCritical("PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV.");
        return;
    }
    if (receivesOwnSatelliteFix(*receiver(client), m_flags.satelliteDisabled)) {
        qCDebug(busyLog, "Sending GNSS fix to ClientId: %d", sessionId);
        updateContextCoordinates(fix);
        deliver(*client, fix, FixSource::Satellite);
    }
    if (isNewPosition(fix, m_latestSatelliteFix))
        serveFreeFixClients(fix, FixSource::Satellite);
    m_latestSatelliteFix = fix;
}

void PositionDaemon::deliver(ClientApp &client, QGeoPositionInfo &fix, FixSource source)
{
    if (!isContextClient(client) && client.sendPositionUpdate(fix, int(source)) == -1)
        removeClient(client.id());
}

void PositionDaemon::serveFreeFixClients(QGeoPositionInfo &fix, FixSource source)
{
    const bool satellite = source == FixSource::Satellite;
    const char *operation = satellite ? "onPositionUpdateGNSS" : "onPositionUpdateSUPL";
    const char *kind = satellite ? "GNSS" : "SUPL";
    for (const int id : m_registry.freeFixIds()) {
        ClientApp *client = m_registry.find(id);
        switch (freeFix(source, receiver(client))) {
        case FreeFix::Forget:
            m_registry.dropFreeFix(id);
            break;
        case FreeFix::Skip:
            break;
        case FreeFix::Send:
            if (client->sendPositionUpdate(fix, int(source)) == -1)
                m_registry.dropFreeFix(id);
            else
                qCDebug(busyLog, "PositionDaemon::%s: Sending %s fix to free fix client", operation, kind);
            break;
        }
    }
}

void PositionDaemon::onUpdateTimeoutGNSS(quint16 sessionId)
{
    ClientApp *client = m_registry.findSession(sessionId);
    if (!client) {
        qCritical("PositionDaemon::onUpdateTimeoutGNSS: Invalid GNSS session id from ORV.");
        return;
    }
    QGeoPositionInfo nowhere;
    client->sendPositionUpdate(nowhere, int(FixSource::Satellite));
}

void PositionDaemon::onSatellitesInView(QList<QGeoSatelliteInfo> &satellites)
{
    m_registry.forEach([&satellites](ClientApp &client) {
        if (client.wantsSatelliteInfo())
            client.satellitesInViewUpdate(satellites);
    });
}

void PositionDaemon::onSatellitesInUse(QList<QGeoSatelliteInfo> &satellites)
{
    m_registry.forEach([&satellites](ClientApp &client) {
        if (client.wantsSatelliteInfo())
            client.satellitesInUseUpdate(satellites);
    });
}
