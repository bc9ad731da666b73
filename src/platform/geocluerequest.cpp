#include "platform/geocluerequest.h"

#include "platform/networkmanager.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

const QString ClientInterface = u"org.freedesktop.GeoClue2.Client"_s;
const QString LocationInterface = u"org.freedesktop.GeoClue2.Location"_s;
const QString PropertiesInterface = u"org.freedesktop.DBus.Properties"_s;
constexpr int NoTimeout = std::numeric_limits<int>::max(); // the request has a timer of its own

double number(const QVariantMap &properties, const QString &name)
{
    const QVariant value = properties.value(name);
    return value.metaType().id() == QMetaType::Double ? value.toDouble() : NetworkLocation::Unknown;
}

NetworkLocation toLocation(const QVariantMap &properties)
{
    NetworkLocation location;
    location.latitude = number(properties, u"Latitude"_s);
    location.longitude = number(properties, u"Longitude"_s);
    location.accuracy = number(properties, u"Accuracy"_s);
    location.altitude = number(properties, u"Altitude"_s);
    const auto stamp = properties.value(u"Timestamp"_s).value<QDBusArgument>();
    if (stamp.currentSignature() == u"(tt)") {
        stamp.beginStructure();
        stamp >> location.seconds >> location.microseconds;
        stamp.endStructure();
    }
    return location;
}

} // namespace

GeoClueRequest::GeoClueRequest(const QDBusConnection &bus, GeoClueClients &clients, const Terms &terms,
                               QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_clients(clients)
    , m_terms(terms)
    , m_choice(terms.technologyMask, terms.requestedAt)
{
    for (QTimer *timer : {&m_timeout, &m_settle}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        connect(timer, &QTimer::timeout, this, &GeoClueRequest::finishWithBest);
    }
    connect(&m_clients, &GeoClueClients::created, this, &GeoClueRequest::onClientCreated);
    connect(&m_clients, &GeoClueClients::failed, this, &GeoClueRequest::fail);
}

GeoClueRequest::~GeoClueRequest()
{
    leaveGeoClue();
}

void GeoClueRequest::start()
{
    m_timeout.start(m_terms.workingTime);
    if (m_terms.usage == VeskPacketDataUsage::Allowed) {
        askGeoClue();
        return;
    }
    networkmanager::askForPacketData(m_bus, this, [this](bool usesPacketData) {
        if (m_finished)
            return;
        if (usesPacketData)
            finish(vesk::PacketDataNotAllowed);
        else
            askGeoClue();
    });
}

void GeoClueRequest::askGeoClue()
{
    m_clients.request();
}

// Everything from here goes to the GeoClue that made the client, and in order: its signals are
// subscribed to before Start, which may bring the first location even before its own reply.
void GeoClueRequest::onClientCreated(const GeoClueClient &client)
{
    m_client = client;
    auto *watcher =
        new QDBusServiceWatcher(client.service, m_bus, QDBusServiceWatcher::WatchForUnregistration, this);
    connect(watcher, &QDBusServiceWatcher::serviceUnregistered, this, &GeoClueRequest::finishWithBest);
    m_bus.connect(client.service, client.path, ClientInterface, u"LocationUpdated"_s, this,
                  SLOT(onLocationUpdated(QDBusObjectPath, QDBusObjectPath)));
    m_bus.connect(client.service, client.path, PropertiesInterface, u"PropertiesChanged"_s, this,
                  SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
    setProperty(u"DesktopId"_s, u"lodestard"_s);
    setProperty(u"RequestedAccuracyLevel"_s, vesk::accuracyLevel(m_terms.technologyMask));
    expectSuccess(m_bus.asyncCall(
        QDBusMessage::createMethodCall(client.service, client.path, ClientInterface, u"Start"_s), NoTimeout));
}

void GeoClueRequest::setProperty(const QString &name, const QVariant &value)
{
    auto call =
        QDBusMessage::createMethodCall(m_client->service, m_client->path, PropertiesInterface, u"Set"_s);
    call.setArguments({ClientInterface, name, QVariant::fromValue(QDBusVariant(value))});
    expectSuccess(m_bus.asyncCall(call, NoTimeout));
}

void GeoClueRequest::expectSuccess(const QDBusPendingCall &call)
{
    auto *watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        if (finished->isError())
            fail(finished->error());
    });
}

void GeoClueRequest::onLocationUpdated(const QDBusObjectPath &, const QDBusObjectPath &location)
{
    if (m_finished)
        return;
    auto call =
        QDBusMessage::createMethodCall(m_client->service, location.path(), PropertiesInterface, u"GetAll"_s);
    call.setArguments({LocationInterface});
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, NoTimeout), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *finished;
        if (!reply.isError())
            onLocation(toLocation(reply.value()));
    });
}

void GeoClueRequest::onLocation(const NetworkLocation &location)
{
    switch (m_choice.weigh(location)) {
    case LocationChoice::Verdict::GoodEnough:
        finishWithBest();
        break;
    case LocationChoice::Verdict::First:
        m_settle.start(m_terms.settle);
        break;
    case LocationChoice::Verdict::Useful:
    case LocationChoice::Verdict::Useless:
        break;
    }
}

// GeoClue stops a client without a word when the user switches location off.
void GeoClueRequest::onPropertiesChanged(const QString &interface, const QVariantMap &changed,
                                         const QStringList &)
{
    if (interface == ClientInterface && changed.value(u"Active"_s, true) == QVariant(false))
        finish(vesk::Denied);
}

void GeoClueRequest::finishWithBest()
{
    finish(vesk::UnknownLocation);
}

void GeoClueRequest::fail(const QDBusError &error)
{
    if (!m_finished)
        qDebug("GeoClueRequest: %s: %s", qUtf8Printable(error.name()), qUtf8Printable(error.message()));
    finish(vesk::codeOf(error.name()));
}

// What was found counts for more than how the search ended, except when it was forbidden.
void GeoClueRequest::finish(int error)
{
    if (error == vesk::UnknownLocation && m_choice.best())
        finish(vesk::Success, *m_choice.best());
    else
        finish(error, VeskPosition());
}

// The last thing a request does: whoever hears of it may delete it.
void GeoClueRequest::finish(int error, const VeskPosition &position)
{
    if (m_finished)
        return;
    m_finished = true;
    m_timeout.stop();
    m_settle.stop();
    m_clients.stopWaiting();
    m_clients.disconnect(this);
    leaveGeoClue();
    emit finished(error, position);
}

void GeoClueRequest::leaveGeoClue()
{
    if (m_client)
        GeoClueClients::giveBack(m_bus, *m_client);
    m_client.reset();
}
