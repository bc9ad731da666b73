#include "client/clientapp.h"
#include "core/configcommand.h"
#include "core/positiondaemon.h"

#include <QDebug>

using namespace std::chrono_literals;

namespace {

constexpr quint32 MinimumIntervalMs = 1000;
constexpr auto PrestartLifetime = 15000ms;

void carryOut(ConfigStep step, ClientApp &client, quint32 methods, int seconds)
{
    switch (step) {
    case ConfigStep::SetMethod:
        qDebug() << "PositionDaemon::configRequest: Set Method: " << methods;
        client.setMethods(methods);
        break;
    case ConfigStep::SetInterval:
        qDebug() << "PositionDaemon::configRequest: Set interval: " << seconds;
        client.setInterval(seconds);
        break;
    case ConfigStep::Start:
        qDebug("PositionDaemon::configRequest: Start!");
        client.setStopped(false);
        break;
    case ConfigStep::Stop:
        qDebug("PositionDaemon::configRequest: Stop!");
        client.setStopped(true);
        break;
    case ConfigStep::SatInfoStart:
        qDebug("PositionDaemon::configRequest: SatInfoStart");
        client.setSatelliteInfo(true);
        break;
    case ConfigStep::SatInfoStop:
        qDebug("PositionDaemon::configRequest: SatInfoStop");
        client.setSatelliteInfo(false);
        break;
    }
}

} // namespace

int PositionDaemon::registerListener(const QString &service, const QString &path)
{
    ClientApp &client = m_registry.add(service, path, clientInterface);
    connect(&client, &ClientApp::clientDisconnected, this, &PositionDaemon::onClientDisconnected);
    qDebug() << "## Adding new client with Id: " << client.id();
    qDebug().noquote() << "## Service: " << service;
    qDebug().noquote() << "##    Path: " << path;
    return client.id();
}

int PositionDaemon::configRequest(int id, int command, int method, int interval)
{
    if (waitsForConsent(command, m_flags.disclaimerAccepted)) {
        m_registry.park({id, command, method, interval});
        locationUI->privacyDialog();
        return 0;
    }
    ClientApp *client = m_registry.find(id);
    if (!client) {
        qCritical("*** Warning! Config request from client with invalid Id!");
        qCritical("*** id: %d  command: %d", id, command);
        return -1;
    }

    const int seconds = intervalSeconds(interval);
    for (const ConfigStep step : configSteps(command))
        carryOut(step, *client, quint32(method), seconds);
    if (asksForFreeFixes(command, seconds) && m_registry.enrolFreeFix(id))
        qDebug("PositionDaemon::configRequest: Free fix client added");
    if (Methods::hasSatellite(client->methods()))
        resetPowerSave();
    client->setModified(true);
    assignClients();
    return 0;
}

QGeoPositionInfo PositionDaemon::latestPosition(bool satelliteOnly)
{
    return satelliteOnly ? m_latestSatelliteFix : newerFix(m_latestSatelliteFix, m_latestNetworkFix);
}

quint32 PositionDaemon::supportedMethods()
{
    return availableMethods;
}

quint32 PositionDaemon::minimumInterval()
{
    return MinimumIntervalMs;
}

void PositionDaemon::prestartPositioning(bool satellite, bool nonSatellite)
{
    addPrestartClient(satellite, nonSatellite);
}

void PositionDaemon::addPrestartClient(bool sat, bool nonsat)
{
    qDebug("PositionDaemon::%s sat:%d, nonsat:%d", __func__, sat, nonsat);
    const auto methods = prestartMethods(sat, nonsat);
    if (!methods)
        return;
    const int id = registerListener(ClientApp::PrestartService, ClientApp::PrestartService);
    constexpr int Command = ConfigCommand::Start | ConfigCommand::SetMethod | ConfigCommand::SetInterval;
    configRequest(id, Command, int(*methods), int(MinimumIntervalMs));
    m_registry.addPrestart(id);
    QTimer::singleShot(PrestartLifetime, this, &PositionDaemon::removePrestartClient);
}

void PositionDaemon::removePrestartClient()
{
    qDebug("PositionDaemon::%s", __func__);
    const auto id = m_registry.takeOldestPrestart();
    if (!id) {
        qWarning("PositionDaemon::%s: No prestart client to stop", __func__);
        return;
    }
    removeClient(*id);
}

void PositionDaemon::onClientDisconnected(int id)
{
    qDebug() << "onClientDisconnected: Remove client " << id;
    if (ClientApp *client = m_registry.find(id))
        disconnect(client, &ClientApp::clientDisconnected, this, &PositionDaemon::onClientDisconnected);
    removeClient(id);
}

int PositionDaemon::removeClient(int id)
{
    qDebug() << "PositionDaemon: Removing client with id:" << id;
    m_registry.remove(id);
    return 0;
}
