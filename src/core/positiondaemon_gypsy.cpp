#include "core/positiondaemon.h"

#include <QDebug>

void PositionDaemon::initGypsy()
{
    gypsyComm = std::make_unique<GypsyComm>(m_clock);
    GypsyComm *gypsy = gypsyComm.get();
    // The external receiver's fixes go the way of the engine's.
    connect(gypsy, &GypsyComm::positionUpdateGypsy, this, &PositionDaemon::onPositionUpdateGNSS);
    connect(gypsy, &GypsyComm::satellitesInView, this, &PositionDaemon::onSatellitesInView);
    connect(gypsy, &GypsyComm::satellitesInUse, this, &PositionDaemon::onSatellitesInUse);
    connect(gypsy, &GypsyComm::fixStatusUpdate, this, &PositionDaemon::onFixStatusUpdate);
    connect(gypsy, &GypsyComm::connectionStatusUpdate, this, &PositionDaemon::onConnectionStatusUpdate);
    qDebug("PositionDaemon::init() GypsyComm done.");
}

void PositionDaemon::onFixStatusUpdate(GypsyComm::FixStatus status)
{
    const ReceiverReport report = gypsyReport(status);
    qDebug("Gypsy mode: %s", report.name);
    receiverState = report.state;
    contextSetState();
    // A report that a plan itself causes must not start another one.
    if (!assigning)
        assignClients();
}

void PositionDaemon::onConnectionStatusUpdate(GypsyComm::ConnectionStatus)
{
    // Nothing to do: what a lost connection means comes as a fix status.
}

// Who carries out a satellite request for the external receiver, if it is the one that does.
GypsyComm *PositionDaemon::gypsyFor(SatelliteRequest request) const
{
    const auto route = routeOf(request, m_flags.internalGps, m_flags.internalGpsDisabled);
    return route == SatelliteRoute::ExternalReceiver ? gypsyComm.get() : nullptr;
}
