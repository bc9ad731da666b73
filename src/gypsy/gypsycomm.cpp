#include "gypsy/gypsycomm.h"

#include "gypsy/gypsyfix.h"
#include "platform/bluez.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDebug>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString Service = u"org.freedesktop.Gypsy"_s;
const QString ServerPath = u"/org/freedesktop/Gypsy"_s;
const QString ServerInterface = u"org.freedesktop.Gypsy.Server"_s;
const QString DeviceInterface = u"org.freedesktop.Gypsy.Device"_s;
const QString AdapterInterface = u"org.bluez.Adapter"_s;

constexpr auto RestartDelay = 15000ms; // a receiver that was carried out of reach may be back then

QDBusConnection bus()
{
    return QDBusConnection::systemBus();
}

// Plain messages: a proxy would introspect its peer first.
QDBusMessage askServer(const QString &method, const QVariant &argument)
{
    auto call = QDBusMessage::createMethodCall(Service, ServerPath, ServerInterface, method);
    return bus().call(call << argument);
}

QDBusMessage askDevice(const QString &path, const QString &method)
{
    return bus().call(QDBusMessage::createMethodCall(Service, path, DeviceInterface, method));
}

} // namespace

GypsyComm::GypsyComm(const Clock &clock)
    : m_clock(clock)
{
    SatelliteData::registerWithDBus();
    m_restartTimer.setSingleShot(true);
    m_restartTimer.setTimerType(Qt::PreciseTimer); // a coarse one may come a twentieth early
    connect(&m_restartTimer, &QTimer::timeout, this, &GypsyComm::restartGypsy);
    connectToGypsy();
}

GypsyComm::~GypsyComm() = default;

void GypsyComm::connectToGypsy()
{
    // From any object: the path of the device is not known before there is one.
    const auto hear = [this](const QString &interface, const QString &signal, const char *slot) {
        bus().connect(Service, QString(), interface, signal, this, slot);
    };
    hear(DeviceInterface, u"FixStatusChanged"_s, SLOT(fixStatusChanged(int)));
    hear(DeviceInterface, u"ConnectionStatusChanged"_s, SLOT(connectionStatusChanged(bool)));
    hear(u"org.freedesktop.Gypsy.Accuracy"_s, u"AccuracyChanged"_s,
         SLOT(accuracyChanged(int, double, double, double)));
    hear(u"org.freedesktop.Gypsy.Course"_s, u"CourseChanged"_s,
         SLOT(courseChanged(int, int, double, double, double)));
    hear(u"org.freedesktop.Gypsy.Position"_s, u"PositionChanged"_s,
         SLOT(positionChanged(int, int, double, double, double)));
    hear(u"org.freedesktop.Gypsy.Satellite"_s, u"SatellitesChanged"_s,
         SLOT(satellitesChanged(QList<SatelliteData>)));
}

bool GypsyComm::startSession(quint16 sessionId, int value, const QString &address)
{
    qDebug("GypsyComm::%s", __func__);
    if (!sessions.isEmpty() && address != deviceAddress)
        return false; // one receiver at a time
    deviceAddress = address;
    // Each session asks for its Bluetooth session, also when the receiver runs already.
    if (!setupBluetoothConnection())
        return false;
    if (sessions.isEmpty()) {
        if (!createGypsy())
            return false;
        if (!startGypsy()) {
            shutdownGypsy();
            return false;
        }
    }
    sessions.insert(sessionId, value);
    return true;
}

bool GypsyComm::stopSession(quint16 sessionId)
{
    qDebug("GypsyComm::%s", __func__);
    if (!sessions.remove(sessionId) || !sessions.isEmpty())
        return true;
    return shutdownGypsy();
}

void GypsyComm::setSessionValue(quint16 sessionId, int value)
{
    if (const auto session = sessions.find(sessionId); session != sessions.end())
        *session = value;
}

std::optional<int> GypsyComm::sessionValue(quint16 sessionId) const
{
    const auto session = sessions.constFind(sessionId);
    return session == sessions.cend() ? std::nullopt : std::optional(*session);
}

bool GypsyComm::setupBluetoothConnection()
{
    qDebug("GypsyComm::%s", __func__);
    const auto adapter = bluez::defaultAdapter(bus());
    if (!adapter) {
        qWarning("Could not find default bluetooth adapter");
        return false;
    }
    m_adapterPath = adapter->path();
    const QDBusReply<void> reply = bus().call(QDBusMessage::createMethodCall(
        QLatin1StringView(bluez::Service), m_adapterPath, AdapterInterface, u"RequestSession"_s));
    if (!reply.isValid())
        qWarning("Bluetooth session rejected");
    return reply.isValid();
}

bool GypsyComm::createGypsy()
{
    qDebug("GypsyComm::%s", __func__);
    const QDBusReply<QDBusObjectPath> reply = askServer(u"Create"_s, deviceAddress);
    if (reply.isValid())
        devicePath = reply.value().path();
    else
        qWarning() << "Gypsy session creation failed: " << reply.error().message();
    return reply.isValid();
}

bool GypsyComm::startGypsy()
{
    qDebug("GypsyComm::%s", __func__);
    const QDBusReply<void> reply = askDevice(devicePath, u"Start"_s);
    if (!reply.isValid()) {
        qWarning() << "Gypsy session starting failed: " << reply.error().message();
        return false;
    }
    watchAdapter(m_adapterPath);
    return true;
}

bool GypsyComm::shutdownGypsy()
{
    qDebug("GypsyComm::%s", __func__);
    m_shutdownDue = true;
    fixStatusChanged(Invalid);
    // Who hears of the end may stop the last session: then the call has been made in there, and
    // what runs by now was started since.
    if (!std::exchange(m_shutdownDue, false))
        return true;
    watchAdapter({});
    const QDBusReply<void> reply = askServer(u"Shutdown"_s, QVariant::fromValue(QDBusObjectPath(devicePath)));
    if (!reply.isValid())
        qWarning() << "Gypsy session shutdown failed: " << reply.error().message();
    return reply.isValid();
}

void GypsyComm::getFixStatus()
{
    qDebug("GypsyComm::%s", __func__);
    if (devicePath.isEmpty())
        return; // some other program's receiver: there is none of ours to ask
    const QDBusReply<int> reply = askDevice(devicePath, u"GetFixStatus"_s);
    if (reply.isValid())
        fixStatusChanged(reply.value());
    else
        qWarning() << "Getting fix status from Gypsy failed: " << reply.error().message();
}

void GypsyComm::watchAdapter(const QString &path)
{
    if (path == m_watchedAdapterPath)
        return;
    const QString service = QLatin1StringView(bluez::Service);
    const char *const slot = SLOT(bluetoothDeviceRemoved(QDBusObjectPath));
    if (!m_watchedAdapterPath.isEmpty())
        bus().disconnect(service, m_watchedAdapterPath, AdapterInterface, u"DeviceRemoved"_s, this, slot);
    m_watchedAdapterPath = path;
    if (!path.isEmpty())
        bus().connect(service, path, AdapterInterface, u"DeviceRemoved"_s, this, slot);
}

void GypsyComm::fixStatusChanged(int status)
{
    qDebug("GypsyComm::%s fix_status=%d", __func__, status);
    fixStatus = status;
    emit fixStatusUpdate(FixStatus(status));
}

void GypsyComm::connectionStatusChanged(bool connected)
{
    qDebug("GypsyComm::%s conn_status=%d", __func__, connected);
    connectionStatus = connected ? Connected : Disconnected;
    if (connected) {
        m_restartTimer.stop();
        getFixStatus();
    } else {
        fixStatusChanged(Invalid);
        if (!sessions.isEmpty() && !m_restartTimer.isActive())
            m_restartTimer.start(RestartDelay);
    }
    emit connectionStatusUpdate(ConnectionStatus(connectionStatus));
}

void GypsyComm::restartGypsy()
{
    qDebug("GypsyComm::%s", __func__);
    if (!sessions.isEmpty() && connectionStatus == Disconnected)
        startGypsy();
}

void GypsyComm::positionChanged(int fields, int timestamp, double latitude, double longitude, double altitude)
{
    qDebug("GypsyComm::%s fields=%d ts=%d", __func__, fields, timestamp);
    gypsyfix::applyPosition({fields, latitude, longitude, altitude}, info);
    info.setTimestamp(gypsyfix::stamp(timestamp, m_clock.now()));
    sendToSessions();
}

void GypsyComm::courseChanged(int fields, int timestamp, double speed, double direction, double climb)
{
    qDebug("GypsyComm::%s fields=%d ts=%d", __func__, fields, timestamp);
    gypsyfix::applyCourse({fields, speed, direction, climb}, info);
    info.setTimestamp(gypsyfix::stamp(timestamp, m_clock.now()));
    sendToSessions();
}

void GypsyComm::accuracyChanged(int fields, double, double hdop, double vdop)
{
    qDebug("GypsyComm::%s fields=%d", __func__, fields);
    gypsyfix::applyAccuracy({fields, hdop, vdop}, info);
    sendToSessions();
}

void GypsyComm::sendToSessions()
{
    // A receiver may lend the fix a ground speed: that is not to stay in what Gypsy has reported.
    QGeoPositionInfo update = info;
    QList<quint16> ids = sessions.keys();
    std::sort(ids.begin(), ids.end());
    for (const quint16 id : ids) {
        if (sessions.contains(id)) // a receiver may also end sessions
            emit positionUpdateGypsy(id, update);
    }
}

void GypsyComm::satellitesChanged(QList<SatelliteData> list)
{
    qDebug("GypsyComm::%s size=%d", __func__, int(list.size()));
    gypsyfix::splitSatellites(list, m_satellitesInView, m_satellitesInUse);
    emit satellitesInView(m_satellitesInView);
    emit satellitesInUse(m_satellitesInUse);
}

void GypsyComm::bluetoothDeviceRemoved(QDBusObjectPath path)
{
    if (!gypsyfix::isSameReceiver(devicePath, path.path()))
        return;
    qWarning("Currently used bluetooth device has been removed. Stopping gypsy.");
    shutdownGypsy(); // the sessions stay: whoever started them stops them
}
