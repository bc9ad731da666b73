#include "client/clientapp.h"
#include "core/positiondaemon.h"
#include "settings/locationgconfsettings.h"
#include "settings/locationsecuresettings.h"

#include <QDebug>
#include <QScopedValueRollback>

using namespace Qt::StringLiterals;

QVariant PositionDaemon::setting(QLatin1StringView key)
{
    return secureSettings->value(key);
}

void PositionDaemon::userSettingsChanged(QString key)
{
    const QVariant value = secureSettings->value(key);
    const SettingOutcome outcome = settingChange(m_flags, orvClientsBlocked, key, value);
    qDebug().noquote() << "PositionDaemon::userSettingsChanged(): " << outcome.line;

    if (outcome.stopSatelliteSessions)
        stopSatelliteSessions(); // on the receiver that ran them, so before the flags change
    m_flags = outcome.flags;
    m_planCache = {};
    if (outcome.updatesContext) {
        contextSetState();
        resetPowerSave();
    }
    if (outcome.tellEngineMode && orvComm)
        orvComm->setGNSSMode(engineMode(m_flags));
    if (outcome.sendSuplServers)
        sendSuplSettings();
    for (const PeerSetting &peer : outcome.peerSettings)
        emit settingVESK(peer.setting, peer.enabled);

    updateMethodAvailability();
    assignClients();
    repeatRefusedRequest();
}

void PositionDaemon::stopSatelliteSessions()
{
    // The engine reports its state while sessions end; that must not start a plan of its own.
    const QScopedValueRollback planning(assigning, true);
    m_registry.forEach([this](ClientApp &client) {
        if (client.isGnssActive())
            endSatelliteSession(client);
    });
}

void PositionDaemon::updateMethodAvailability()
{
    const Availability offered = methodAvailability(methodInputs(m_flags));
    m_flags.networkDisabled = offered.networkDisabled;
    gconfSettings->set(LocationGConfSettings::KeySatellitePositioning, offered.satellite);
    qDebug("Settings: Satellite positioning [%s]", offered.satellite ? " ON" : "OFF");
    gconfSettings->set(LocationGConfSettings::KeyNetworkPositioning, offered.network);
    qDebug("Settings: Network positioning [%s]", offered.network ? " ON" : "OFF");
    gconfSettings->set(LocationGConfSettings::KeyVesk, offered.vesk);

    const quint32 announced = availableMethods;
    availableMethods = offered.methods;
    if (availableMethods == announced)
        return;
    m_registry.forEach(
        [this](ClientApp &client) { client.currentSettings(availableMethods, minimumInterval()); });
}

void PositionDaemon::sendSuplSettings()
{
    if (!orvComm)
        return;
    const bool home = setting("PrimarySuplAllowHome"_L1).toBool();
    const bool roaming = setting("PrimarySuplAllowRoaming"_L1).toBool();
    const bool onlyGprs = setting("PrimarySuplOnlyGprs"_L1).toBool();
    const QString server = setting("PrimarySuplServer"_L1).toString();
    orvComm->sendSUPLServerInfo(suplUsage(home, roaming, onlyGprs), server, 0, QString());
}

void PositionDaemon::clearAssistanceData(int data)
{
    if (!orvComm)
        return;
    qDebug() << "Deleting GPS assistance data (" << data << ").";
    orvComm->deleteAssistanceData(quint32(data));
}
