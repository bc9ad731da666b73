#include "watchsession.h"

#include "client/fixstream.h"
#include "updatesadaptor.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

using namespace Qt::StringLiterals;

namespace {

// Registration in the language of docs/dbus.md.
constexpr int CommandStart = 0x01;
constexpr int CommandSetMethod = 0x04;
constexpr int CommandSetInterval = 0x08;
constexpr int CommandSatInfoStart = 0x10;

QString daemonName()
{
    return u"com.varn.lodestard.client"_s;
}

QDBusMessage daemonCall(const QString &method, const QVariantList &arguments)
{
    auto call =
        QDBusMessage::createMethodCall(daemonName(), u"/com/varn/lodestard/client"_s, daemonName(), method);
    call.setArguments(arguments);
    return call;
}

} // namespace

WatchSession::WatchSession(const Registration &registration)
    : m_registration(registration)
{
    auto *updates = new UpdatesAdaptor(&m_callbackHost);
    connect(updates, &UpdatesAdaptor::fixArrived, this, &WatchSession::onFix);
    connect(updates, &UpdatesAdaptor::settingsArrived, this, &WatchSession::methodsChanged);
    connect(updates, &UpdatesAdaptor::satellitesInViewArrived, this, [this](const QByteArray &bytes) {
        if (const auto satellites = FixStream::readSatellites(bytes))
            emit satellitesInViewArrived(*satellites);
    });
    connect(updates, &UpdatesAdaptor::satellitesInUseArrived, this, [this](const QByteArray &bytes) {
        if (const auto satellites = FixStream::readSatellites(bytes))
            emit satellitesInUseArrived(*satellites);
    });
    connect(&m_daemon, &QDBusServiceWatcher::serviceRegistered, this, &WatchSession::registerListener);
    connect(&m_daemon, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { emit daemonMissing(u"lodestard left the session bus"_s); });
}

void WatchSession::begin()
{
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        emit daemonMissing(u"there is no session bus: "_s + bus.lastError().message());
        return;
    }
    bus.registerObject(m_registration.path, &m_callbackHost, QDBusConnection::ExportAdaptors);
    m_daemon.setConnection(bus);
    m_daemon.addWatchedService(daemonName());
    registerListener();
}

void WatchSession::registerListener()
{
    auto bus = QDBusConnection::sessionBus();
    const auto call = daemonCall(u"registerListener"_s, {bus.baseService(), m_registration.path});
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &WatchSession::onRegistered);
}

void WatchSession::onRegistered(QDBusPendingCallWatcher *call)
{
    call->deleteLater();
    const QDBusPendingReply<int, uint, uint> reply = *call;
    if (reply.isError()) {
        emit daemonMissing(u"lodestard does not answer: "_s + reply.error().message());
        return;
    }
    const int id = reply.argumentAt<0>();
    constexpr int start = CommandStart | CommandSetMethod | CommandSetInterval;
    const int command = m_registration.satelliteInformation ? start | CommandSatInfoStart : start;
    QDBusConnection::sessionBus().asyncCall(daemonCall(
        u"configSession"_s, {id, command, int(m_registration.methods), m_registration.intervalMilliseconds}));
    emit registered(id, reply.argumentAt<1>());
}

void WatchSession::onFix(const QByteArray &bytes)
{
    if (const auto fix = FixStream::readFix(bytes))
        emit fixArrived(*fix);
}
