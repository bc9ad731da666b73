#include "client/clientapp.h"
#include "core/busylog.h"
#include "core/positiondaemon.h"
#include "core/scheduler.h"

#include <QDebug>

using namespace Qt::StringLiterals;

namespace {

ServiceState serviceState(const ClientApp &client)
{
    return {.stopped = client.isStopped(),
            .actGNSS = client.isGnssActive(),
            .actSUPL = client.isSuplActive(),
            .modified = client.isModified(),
            .satelliteInfo = client.wantsSatelliteInfo()};
}

void logSessions(const char *operation, const ClientApp &client, quint32 methods)
{
    qCDebug(busyLog, "%s: client: id=%d, stopped=%d, methods=0x%x, actGNSS=%d, actSUPL=%d", operation,
            client.id(), client.isStopped(), methods, client.isGnssActive(), client.isSuplActive());
}

} // namespace

void PositionDaemon::assignClients()
{
    if (assigning) {
        m_planAgain = true; // once the running plan has ended
        return;
    }
    do {
        qDebug("%s", __func__);
        m_planAgain = false;
        m_planCache = {};
        assigning = true;
        m_registry.forEach([this](ClientApp &client) { assignClient(client); });
        assigning = false;
    } while (m_planAgain);
    m_planCache = {};
}

void PositionDaemon::assignClient(ClientApp &client)
{
    const quint32 methods = effectiveMethods(client.methods());
    stopSessions(client, ~methods);
    modifySessions(client);
    startSessions(client, methods);
    client.setModified(false);
}

// Asked anew for each client: starting one session changes the receiver's state for the next.
MethodInputs PositionDaemon::currentInputs()
{
    if (!m_planCache.satelliteClientStarted)
        m_planCache.satelliteClientStarted = m_registry.anyStartedSatelliteClient();
    MethodInputs inputs = methodInputs(m_flags);
    inputs.orvClientsBlocked = orvClientsBlocked;
    inputs.satellitesWithheld = m_powerSave.withholdsSatellites();
    inputs.satelliteClientStarted = *m_planCache.satelliteClientStarted;
    inputs.receiverState = receiverState;
    return inputs;
}

quint32 PositionDaemon::effectiveMethods(quint32 requested)
{
    const MethodChoice choice = selectMethods(currentInputs(), requested);
    if (choice.positioningOff)
        qCDebug(busyLog, "Positioning has been disabled. No available method.");
    if (!choice.needsExternalReceiver)
        return choice.methods;
    return withExternalReceiver(choice.methods, isExternalReceiverKnown());
}

bool PositionDaemon::isExternalReceiverKnown()
{
    // Reading the address asks bluez, and may change settings, which empties the cache.
    if (!m_planCache.externalReceiverKnown) {
        externalAddress = setting("SatellitePositioningExternalAddress"_L1).toString();
        m_planCache.externalReceiverKnown = !externalAddress.isEmpty();
    }
    return *m_planCache.externalReceiverKnown;
}

void PositionDaemon::startSessions(ClientApp &client, quint32 methods)
{
    logSessions(__func__, client, methods);
    const StartPlan plan = planStart(serviceState(client), methods);
    if (plan.tellClient) {
        QGeoPositionInfo nowhere;
        client.sendPositionUpdate(nowhere, int(FixSource::Other));
    }
    if (plan.nothingAvailable)
        qCDebug(busyLog, "Could not find any available location methods");
    if (plan.gnss) {
        client.setGnssActive(true);
        startGNSS(client.id(), client.interval());
    }
    if (plan.supl) {
        client.setSuplActive(true);
        client.resetLastNetworkFix();
        scheduler->addClient(client.id(), client.interval());
        nonsatelliteState = NetworkState::Running;
        contextSetState();
    }
}

void PositionDaemon::stopSessions(ClientApp &client, quint32 methods)
{
    logSessions(__func__, client, methods);
    const StopPlan plan = planStop(serviceState(client), methods);
    if (plan.gnss)
        endSatelliteSession(client);
    if (plan.supl)
        endNetworkEnrolment(client);
    if (plan.networkCleared) {
        nonsatelliteState = NetworkState::None;
        contextSetState();
    }
}

void PositionDaemon::endSatelliteSession(ClientApp &client)
{
    client.setGnssActive(false);
    stopGNSS(client.id());
}

void PositionDaemon::endNetworkEnrolment(ClientApp &client)
{
    client.setSuplActive(false);
    scheduler->removeClient(client.id());
}

void PositionDaemon::loseEngineSessions(ClientApp &client)
{
    const LossPlan plan = planEngineLost(serviceState(client), m_flags.veskInUse);
    if (plan.gnss)
        client.setGnssActive(false);
    if (plan.supl)
        endNetworkEnrolment(client);
}

void PositionDaemon::modifySessions(const ClientApp &client)
{
    qCDebug(busyLog, "%s: client: id=%d, modified=%d, interval=%d, actGNSS=%d, actSUPL=%d", __func__,
            client.id(), client.isModified(), client.interval(), client.isGnssActive(),
            client.isSuplActive());
    const ModifyPlan plan = planModify(serviceState(client));
    if (plan.gnss)
        setGNSSInterval(client.id(), client.interval());
    if (plan.supl)
        scheduler->setClientInterval(client.id(), client.interval());
}

// The link that carries a satellite request, if it is the engine that does.
ORVComm *PositionDaemon::engineFor(SatelliteRequest request) const
{
    const auto route = routeOf(request, m_flags.internalGps, m_flags.internalGpsDisabled);
    return route == SatelliteRoute::Engine ? orvComm.get() : nullptr;
}

// A session travels under the client id's low 16 bits.
void PositionDaemon::startGNSS(int id, int interval)
{
    if (ORVComm *engine = engineFor(SatelliteRequest::Start))
        engine->startGNSS(quint16(id), interval);
    // The session counts as running also when the receiver is refused: nobody tries again before a stop.
    else if (GypsyComm *gypsy = gypsyFor(SatelliteRequest::Start))
        gypsy->startSession(quint16(id), interval, externalAddress);
}

void PositionDaemon::setGNSSInterval(int id, int interval)
{
    if (ORVComm *engine = engineFor(SatelliteRequest::ChangeInterval))
        engine->setGNSSInterval(quint16(id), interval);
    else if (GypsyComm *gypsy = gypsyFor(SatelliteRequest::ChangeInterval))
        gypsy->setSessionValue(quint16(id), interval);
}

void PositionDaemon::stopGNSS(int id)
{
    if (ORVComm *engine = engineFor(SatelliteRequest::Stop))
        engine->stopGNSS(quint16(id));
    else if (GypsyComm *gypsy = gypsyFor(SatelliteRequest::Stop))
        gypsy->stopSession(quint16(id));
}
