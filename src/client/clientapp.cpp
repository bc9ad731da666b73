#include "client/clientapp.h"

#include "client/busnames.h"
#include "client/fixstream.h"
#include "client/updatesinterface.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusServiceWatcher>
#include <QDebug>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

// Formatting a line that nobody will see costs more than sending the fix.
bool isDebugWanted()
{
    return QLoggingCategory::defaultCategory()->isDebugEnabled();
}

FixSource sourceOf(int type)
{
    switch (type) {
    case int(FixSource::Satellite):
        return FixSource::Satellite;
    case int(FixSource::Network):
        return FixSource::Network;
    default:
        return FixSource::Other;
    }
}

std::optional<double> attribute(const QGeoPositionInfo &fix, QGeoPositionInfo::Attribute name)
{
    return fix.hasAttribute(name) ? std::optional<double>(fix.attribute(name)) : std::nullopt;
}

void logFix(int id, int type, const QGeoPositionInfo &fix)
{
    static constexpr const char *Operation = "sendPositionUpdate";
    const QGeoCoordinate coordinate = fix.coordinate();
    const double horizontal = attribute(fix, QGeoPositionInfo::HorizontalAccuracy).value_or(-1.0);
    const double vertical = attribute(fix, QGeoPositionInfo::VerticalAccuracy).value_or(-1.0);
    if (!fix.isValid())
        qDebug("ClientApp::%s: clientId=%d, type=%d, fix=,,,,", Operation, id, type);
    else if (coordinate.type() == QGeoCoordinate::Coordinate3D)
        qDebug("ClientApp::%s: clientId=%d, type=%d, fix=%.7f,%.7f,%f,%f,%f", Operation, id, type,
               coordinate.latitude(), coordinate.longitude(), coordinate.altitude(), horizontal, vertical);
    else
        qDebug("ClientApp::%s: clientId=%d, type=%d, fix=%.7f,%.7f,,%f,", Operation, id, type,
               coordinate.latitude(), coordinate.longitude(), horizontal);
}

void logBusError()
{
    qCritical("%s", qPrintable(QDBusConnection::sessionBus().lastError().message()));
}

} // namespace

ClientApp::ClientApp(int id, const QString &service_, const QString &path_, const QString &interfaceName_)
    : serviceWatcher(new QDBusServiceWatcher(this))
    , service(service_)
    , path(path_)
    , interfaceName(interfaceName_)
    , m_id(id)
{
    serviceWatcher->setConnection(QDBusConnection::sessionBus());
    serviceWatcher->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    // A text that is no bus name has no owner to lose, but it could change what the rule matches.
    if (isBusName(service))
        serviceWatcher->addWatchedService(service);
    connect(serviceWatcher, &QDBusServiceWatcher::serviceUnregistered, this,
            &ClientApp::serviceHasJustLeftTheBuilding);
}

void ClientApp::setModified(bool value)
{
    modified = value;
    m_speeds.clear();
}

void ClientApp::setGnssActive(bool active)
{
    actGNSS = active;
    m_gate.clearSatellite();
}

void ClientApp::setSuplActive(bool active)
{
    actSUPL = active;
    m_gate.clearNetwork();
}

bool ClientApp::isRepeatedFix(const QGeoPositionInfo &fix)
{
    if (!fix.isValid())
        return m_lastNetworkFix.isRepeat(std::nullopt);
    const QGeoCoordinate coordinate = fix.coordinate();
    return m_lastNetworkFix.isRepeat(LastNetworkFix::Fix{
        coordinate.latitude(), coordinate.longitude(), attribute(fix, QGeoPositionInfo::HorizontalAccuracy)});
}

int ClientApp::sendPositionUpdate(QGeoPositionInfo &fix, int type)
{
    const auto verdict = m_gate.judge(sourceOf(type), fix.isValid(), actGNSS, actSUPL);
    if (verdict.forgetNetworkFix)
        m_lastNetworkFix.reset();
    if (verdict.holdBack || prepareDelivery() == Delivery::Dropped)
        return 0;

    lendGroundSpeed(fix);
    if (isDebugWanted())
        logFix(m_id, type, fix);
    if (callbackInterface)
        callbackInterface->send(u"positionUpdate"_s, {FixStream::writeFix(fix)});
    return 0;
}

// Keeps the fix's own speed; a fix without one gets what the history offers, for this delivery on.
void ClientApp::lendGroundSpeed(QGeoPositionInfo &fix)
{
    std::optional<double> own;
    if (fix.isValid())
        own = attribute(fix, QGeoPositionInfo::GroundSpeed);
    if (fix.isValid() && !own) {
        if (const auto lent = m_speeds.guess(intervalSeconds)) {
            if (isDebugWanted())
                qDebug("PositionDaemon::%s: faking ground speed=%f", "sendPositionUpdate", *lent);
            fix.setAttribute(QGeoPositionInfo::GroundSpeed, double(float(*lent)));
        }
    }
    m_speeds.record(own);
}

int ClientApp::satellitesInUseUpdate(const QList<QGeoSatelliteInfo> &satellites)
{
    return satellitesUpdate(u"satellitesInUseUpdate"_s, satellites);
}

int ClientApp::satellitesInViewUpdate(const QList<QGeoSatelliteInfo> &satellites)
{
    return satellitesUpdate(u"satellitesInViewUpdate"_s, satellites);
}

int ClientApp::satellitesUpdate(const QString &member, const QList<QGeoSatelliteInfo> &satellites)
{
    if (prepareDelivery() == Delivery::Dropped)
        return 0;
    if (callbackInterface && callbackInterface->callAndWait(member, {FixStream::writeSatellites(satellites)}))
        return 0;
    qWarning("ClientApp:: client %d disconnected.", m_id);
    qWarning("%s", qPrintable(QDBusConnection::sessionBus().lastError().message()));
    return -1;
}

int ClientApp::currentSettings(quint32 methods, quint32 minInterval)
{
    if (prepareDelivery() == Delivery::Ready && callbackInterface)
        callbackInterface->send(u"currentSettings"_s, {methods, minInterval});
    return 0;
}

void ClientApp::serviceHasJustLeftTheBuilding(const QString &name)
{
    qDebug().noquote() << "serviceHasJustLeftTheBuilding: " << name;
    emit clientDisconnected(m_id);
}

ClientApp::Delivery ClientApp::prepareDelivery()
{
    if (callbacksConnected)
        return Delivery::Ready;
    if (service == ContextService || service == PrestartService)
        return Delivery::Dropped;
    connectClient();
    callbacksConnected = true;
    return Delivery::Ready;
}

int ClientApp::connectClient()
{
    if (!QDBusConnection::sessionBus().isConnected()) {
        qCritical("ClientApp::Cannot connect to the D-BUS session bus.");
        return -1;
    }
    callbackInterface = new UpdatesInterface(service, path, interfaceName, this);
    if (!callbackInterface->isReachable()) {
        qCritical("ClientApp::connectClient() failed.");
        logBusError();
        return -1;
    }
    return 0;
}
