#include "client/clientapp.h"
#include "core/busylog.h"
#include "core/positiondaemon.h"
#include "core/scheduler.h"
#include "network/veskcomm.h"

#include <QDebug>

namespace {

// Goes with every request for one network position: the library's time-out in s; the engine is told
// the same number.
constexpr quint16 NetworkRequestParameter = 20;

} // namespace

void PositionDaemon::initNetworkAdapter()
{
    veskComm = std::make_unique<VESKComm>(m_clock);
    connect(veskComm.get(), &VESKComm::positionUpdateVESK, this, &PositionDaemon::onPositionUpdateVESK);
    qDebug("PositionDaemon::init() VESKComm done.");
}

void PositionDaemon::requestPositionSUPL()
{
    if (m_flags.veskInUse) {
        qDebug("PositionDaemon: Sending Network Location request to VESK.");
        const int refused =
            veskComm->requestPositionVESK(!m_flags.wifiDisabled, !m_flags.cellularDisabled,
                                          !m_flags.connectivityDisabled, NetworkRequestParameter);
        m_networkRefused = refused != 0;
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
    if (!orvComm || !orvComm->isConnected() || orvClientsBlocked)
        return false;
    m_suplAwaited = true;
    m_networkRefused = false; // the engine answers the batch now
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

// A refused request leaves its batch waiting, and no later one is asked for meanwhile. While another
// request is outstanding its answer takes the batch; with nothing to locate by, a setting refused it.
void PositionDaemon::repeatRefusedRequest()
{
    if (m_networkRefused && !m_flags.networkDisabled)
        requestPositionSUPL();
}

void PositionDaemon::onPositionUpdateVESK(QGeoPositionInfo &fix, int error)
{
    if (fallsBackToSupl(error, m_flags.suplFallback, orvComm && !orvClientsBlocked)) {
        qDebug("PositionDaemon::%s: Unknown location. Fallback to SUPL", __func__);
        if (askEngineForNetworkFix())
            return;
    }
    onPositionUpdateSUPL(fix);
}

void PositionDaemon::onPositionUpdateSUPL(QGeoPositionInfo &fix)
{
    qDebug("PositionDaemon::%s", __func__);
    m_suplAwaited = false;
    m_networkRefused = false;
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
