#include "core/positiondaemon.h"

#include <QDebug>

using namespace std::chrono_literals;

namespace {

constexpr auto ReconnectDelay = 500ms;   // after the engine went away
constexpr auto ReadyAgainDelay = 1000ms; // what an engine that came back needs before requests
constexpr quint32 AllAssistanceData = 0x11111111;

} // namespace

void PositionDaemon::onGNSSStateUpdated(ORVComm::GNSSState state)
{
    const ReceiverReport report = engineReport(state);
    qDebug("GNSS mode: %s", report.name);
    receiverState = report.state;
    contextSetState();
    powerSaveAfterReport(receiverState);
    // A report that a plan itself causes must not start another one.
    if (!assigning)
        assignClients();
}

void PositionDaemon::onSigUsr1()
{
    if (!orvComm)
        return;
    qDebug("Deleting all GPS assistance data.");
    orvComm->deleteAssistanceData(AllAssistanceData);
}

void PositionDaemon::onOrvDisconnected()
{
    if (m_respawns.tooFrequent(m_clock.secondsSinceEpoch()))
        qFatal("PositionDaemon::%s Too frequent respawns from ORV - exiting", __func__);
    orvClientsBlocked = true;
    m_allowTimer.stop();
    m_registry.forEach([this](ClientApp &client) { loseEngineSessions(client); });
    m_reconnectTimer.start(ReconnectDelay);
    if (m_suplAwaited)
        handOnEmptyFix(); // nobody else will answer
}

void PositionDaemon::reconnectOrv()
{
    if (!orvComm)
        return;
    if (orvComm->init() != -1) {
        m_backoff.succeeded();
        m_allowTimer.start(ReadyAgainDelay);
        return;
    }
    m_allowTimer.stop();
    qWarning("lodestard: ORVComm reconnection failed.");
    const int delay = m_backoff.failed();
    qDebug() << "lodestard: Trying to reconnect after" << delay / 1000 << "s";
    m_reconnectTimer.start(delay);
}

void PositionDaemon::allowOrvClients()
{
    m_allowTimer.stop(); // called ahead of it, there is nothing left for it to do
    orvClientsBlocked = false;
    sendSuplSettings();
    assignClients();
}
