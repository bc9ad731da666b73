#include "support/fakegeoclue.h"

#include "support/leavebus.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString Service = u"org.freedesktop.GeoClue2"_s;
const QString Root = u"/org/freedesktop/GeoClue2"_s;
const QString Properties = u"org.freedesktop.DBus.Properties"_s;
const QString AccessDenied = u"org.freedesktop.DBus.Error.AccessDenied"_s;
const QString UnknownMethod = u"org.freedesktop.DBus.Error.UnknownMethod"_s;

struct Timestamp {
    quint64 seconds;
    quint64 microseconds;
};

QDBusArgument &operator<<(QDBusArgument &argument, const Timestamp &stamp)
{
    argument.beginStructure();
    argument << stamp.seconds << stamp.microseconds;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, Timestamp &stamp)
{
    argument.beginStructure();
    argument >> stamp.seconds >> stamp.microseconds;
    argument.endStructure();
    return argument;
}

QString describe(const QDBusMessage &call)
{
    const QVariantList arguments = call.arguments();
    if (call.member() == "Set"_L1) {
        const QVariant value = arguments.at(2).value<QDBusVariant>().variant();
        return u"Set %1 %2"_s.arg(arguments.at(1).toString(), value.toString());
    }
    if (call.member() == "GetAll"_L1)
        return u"GetAll "_s + call.path();
    if (call.member() == "DeleteClient"_L1)
        return u"DeleteClient "_s + arguments.at(0).value<QDBusObjectPath>().path();
    return call.member();
}

} // namespace

Q_DECLARE_METATYPE(Timestamp)

FakeGeoClue::FakeGeoClue()
{
    qDBusRegisterMetaType<Timestamp>();
    appear();
}

FakeGeoClue::~FakeGeoClue()
{
    vanish();
}

// Each process it plays has a connection of its own.
QString FakeGeoClue::connectionName() const
{
    return u"fake geoclue %1"_s.arg(m_generation);
}

QDBusConnection FakeGeoClue::bus() const
{
    return QDBusConnection(connectionName());
}

void FakeGeoClue::appear()
{
    ++m_generation;
    auto connection = QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName());
    if (!connection.registerVirtualObject(Root, this, QDBusConnection::SubPath) ||
        !connection.registerService(Service))
        qFatal("The fake GeoClue cannot appear on the bus");
}

void FakeGeoClue::vanish()
{
    bus().unregisterObject(Root, QDBusConnection::UnregisterTree);
    leaveBus(connectionName());
    m_waiting.clear();
    m_lateReplies.clear();
    m_clients.clear();
}

void FakeGeoClue::agentVanishes()
{
    m_hasAgent = false;
}

void FakeGeoClue::agentAppears()
{
    m_hasAgent = true;
    for (const QDBusMessage &call : std::exchange(m_waiting, {}))
        createClient(call);
}

void FakeGeoClue::becomeSilent()
{
    m_silent = true;
}

void FakeGeoClue::refuseStart(const QString &errorName)
{
    m_refusal = errorName;
}

void FakeGeoClue::switchOff()
{
    m_refusal = AccessDenied;
    for (auto client = m_clients.begin(); client != m_clients.end(); ++client) {
        if (client->active)
            setActive(client.key(), *client, false);
    }
}

void FakeGeoClue::answerLate(const QString &method)
{
    m_lateMethod = method;
}

void FakeGeoClue::releaseAnswers()
{
    m_lateMethod.clear();
    for (const QDBusMessage &reply : std::exchange(m_lateReplies, {}))
        bus().send(reply);
}

void FakeGeoClue::cache(const Location &location)
{
    m_cached = location;
}

void FakeGeoClue::locate(const Location &location)
{
    for (auto client = m_clients.begin(); client != m_clients.end(); ++client) {
        if (client->active)
            tell(client.key(), *client, location);
    }
}

void FakeGeoClue::announce(const QString &path)
{
    for (auto client = m_clients.begin(); client != m_clients.end(); ++client)
        tellOf(client.key(), *client, path);
}

QStringList FakeGeoClue::takeCalls()
{
    return std::exchange(m_calls, {});
}

int FakeGeoClue::activeCount() const
{
    int count = 0;
    for (const Client &client : m_clients)
        count += client.active ? 1 : 0;
    return count;
}

QString FakeGeoClue::introspect(const QString &) const
{
    return {};
}

bool FakeGeoClue::handleMessage(const QDBusMessage &message, const QDBusConnection &)
{
    m_calls << describe(message);
    message.setDelayedReply(true);
    if (m_silent)
        return true;
    const QString path = message.path();
    if (path == Root + u"/Manager"_s)
        handleManager(message);
    else if (m_locations.contains(path))
        handleLocation(message);
    else if (!m_clients.contains(path))
        answer(message, message.createErrorReply(UnknownMethod, u"No such object"_s));
    else if (m_clients[path].owner != message.service())
        answer(message, message.createErrorReply(AccessDenied, u"Not yours"_s));
    else
        handleClient(message, m_clients[path]);
    return true;
}

void FakeGeoClue::handleManager(const QDBusMessage &call)
{
    if (call.member() == "CreateClient"_L1 && m_hasAgent) {
        createClient(call);
    } else if (call.member() == "CreateClient"_L1) {
        m_waiting << call;
    } else if (call.member() == "DeleteClient"_L1) {
        m_clients.remove(call.arguments().at(0).value<QDBusObjectPath>().path());
        answer(call, call.createReply());
    } else {
        answer(call, call.createErrorReply(UnknownMethod, u"No such method"_s));
    }
}

void FakeGeoClue::createClient(const QDBusMessage &call)
{
    const QString path = Root + u"/Client/%1"_s.arg(++m_created);
    m_clients[path].owner = call.service();
    answer(call, call.createReply(QVariant::fromValue(QDBusObjectPath(path))));
}

void FakeGeoClue::handleClient(const QDBusMessage &call, Client &client)
{
    if (call.interface() == Properties && call.member() == "Set"_L1) {
        const QString name = call.arguments().at(1).toString();
        client.properties[name] = call.arguments().at(2).value<QDBusVariant>().variant();
        answer(call, call.createReply());
    } else if (call.member() == "Start"_L1) {
        start(call, client);
    } else {
        answer(call, call.createErrorReply(UnknownMethod, u"No such method"_s));
    }
}

// A location it remembers is told even before the reply.
void FakeGeoClue::start(const QDBusMessage &call, Client &client)
{
    const bool named = !client.properties.value(u"DesktopId"_s).toString().isEmpty();
    const QVariant level = client.properties.value(u"RequestedAccuracyLevel"_s);
    if (m_refusal || !named) {
        answer(call, call.createErrorReply(m_refusal.value_or(AccessDenied), u"Access denied"_s));
    } else if (level.metaType() != QMetaType::fromType<quint32>()) {
        answer(call, call.createErrorReply(u"org.freedesktop.DBus.Error.InvalidArgs"_s, u"No level"_s));
    } else {
        if (m_cached)
            tell(call.path(), client, *m_cached);
        answer(call, call.createReply());
        setActive(call.path(), client, true);
    }
}

void FakeGeoClue::tell(const QString &path, Client &client, const Location &location)
{
    const QString object = path + u"/Location/%1"_s.arg(client.locations++);
    m_locations[object] = location;
    tellOf(path, client, object);
}

void FakeGeoClue::tellOf(const QString &path, Client &client, const QString &location)
{
    auto signal = QDBusMessage::createTargetedSignal(client.owner, path, u"org.freedesktop.GeoClue2.Client"_s,
                                                     u"LocationUpdated"_s);
    signal << QVariant::fromValue(QDBusObjectPath(std::exchange(client.location, location)))
           << QVariant::fromValue(QDBusObjectPath(location));
    bus().send(signal);
}

void FakeGeoClue::setActive(const QString &path, Client &client, bool active)
{
    client.active = active;
    auto signal = QDBusMessage::createTargetedSignal(client.owner, path, Properties, u"PropertiesChanged"_s);
    signal << u"org.freedesktop.GeoClue2.Client"_s << QVariantMap{{u"Active"_s, active}} << QStringList();
    bus().send(signal);
}

void FakeGeoClue::handleLocation(const QDBusMessage &call)
{
    const Location &location = m_locations[call.path()];
    const QVariantMap properties{
        {u"Latitude"_s, location.latitude},
        {u"Longitude"_s, location.longitude},
        {u"Accuracy"_s, location.accuracy},
        {u"Altitude"_s, location.altitude},
        {u"Speed"_s, -1.0},
        {u"Heading"_s, -1.0},
        {u"Description"_s, QString()},
        {u"Timestamp"_s, QVariant::fromValue(Timestamp{location.seconds, location.microseconds})}};
    answer(call, call.createReply(properties));
}

void FakeGeoClue::answer(const QDBusMessage &call, const QDBusMessage &reply)
{
    if (call.member() == m_lateMethod)
        m_lateReplies << reply;
    else
        bus().send(reply);
}
