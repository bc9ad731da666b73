#include "client/clientapp.h"
#include "core/busylog.h"
#include "core/positiondaemon.h"
#include "core/scheduler.h"

#include <QDebug>

namespace {

constexpr quint16 NetworkRequestParameter = 20; // goes with every request for one network position

} // namespace

void PositionDaemon::initNetworkAdapter()
{
    // The network adapter is connected here.
}

void PositionDaemon::requestPositionSUPL()
{
    if (m_flags.veskInUse) {
        qDebug("PositionDaemon: Sending Network Location request to VESK.");
        // The network adapter is asked here.
    } else if (orvComm) {
        qDebug("PositionDaemon: Sending SUPL Location request to ORV.");
        if (!askEngineForNetworkFix())
            handOnEmptyFix();
    } else {
        scheduler->takeDueClients(); // there is nobody to answer them
    }
}

bool PositionDaemon::askEngineForNetworkFix()
{
    if (!orvComm || !orvComm->isConnected())
        return false;
    m_suplAwaited = true;
    orvComm->sendSUPLLocationRequest(NetworkRequestParameter);
    return true;
}

// As an engine answers that found no position. A batch that stays waiting would keep every later one
// from being asked for; that of applications which have left, too, whose rows nobody takes out.
void PositionDaemon::handOnEmptyFix()
{
    QGeoPositionInfo nowhere;
    onPositionUpdateSUPL(nowhere);
}

void PositionDaemon::onPositionUpdateSUPL(QGeoPositionInfo &fix)
{
    qDebug("PositionDaemon::%s", __func__);
    m_suplAwaited = false;
    nonsatelliteState = networkStateAfter(fix, nonsatelliteState);
    contextSetState();
    updateContextCoordinates(fix);
    const QList<int> receivers = scheduler->takeDueClients(); // a copy: the next step empties the list
    for (const int id : receivers) {
        qCDebug(busyLog) << "Sending update to ClientId: " << id;
        ClientApp *client = m_registry.find(id);
        if (!client)
            qCritical("onPositionUpdateSUPL: Invalid client in receiver list.");
        else if (!client->isRepeatedFix(fix))
            deliver(*client, fix, FixSource::Network);
    }
    serveFreeFixClients(fix, FixSource::Network);
    m_latestNetworkFix = fix;
}
