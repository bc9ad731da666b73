#include "platform/screensaver.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

using namespace Qt::StringLiterals;

ScreenSaver::ScreenSaver(const QDBusConnection &bus, const QString &name, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_name(name)
    , m_path(u'/' + QString(name).replace(u'.', u'/'))
{
    auto *watcher = new QDBusServiceWatcher(name, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &owner) {
                m_ownerTold = true;
                follow(owner);
            });

    auto question = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                                   u"org.freedesktop.DBus"_s, u"GetNameOwner"_s);
    question << name;
    ask(question, [this](const QDBusMessage &reply) {
        if (!m_ownerTold && reply.signature() == "s"_L1)
            follow(reply.arguments().constFirst().toString());
    });
}

// Everything goes to the unique name: a well-known one would be looked up first, which blocks.
void ScreenSaver::follow(const QString &owner)
{
    const QString signal = u"ActiveChanged"_s;
    if (!m_owner.isEmpty())
        m_bus.disconnect(m_owner, m_path, m_name, signal, this, SLOT(onActiveChanged(bool)));
    m_owner = owner;
    setActive(std::nullopt);
    if (owner.isEmpty())
        return;

    m_bus.connect(owner, m_path, m_name, signal, this, SLOT(onActiveChanged(bool)));
    ask(QDBusMessage::createMethodCall(owner, m_path, m_name, u"GetActive"_s),
        [this, owner](const QDBusMessage &reply) {
            // A signal heard meanwhile is at least as new.
            if (owner == m_owner && !m_active && reply.signature() == "b"_L1)
                setActive(reply.arguments().constFirst().toBool());
        });
}

void ScreenSaver::setActive(std::optional<bool> active)
{
    if (m_active == active)
        return;
    m_active = active;
    emit changed();
}

void ScreenSaver::ask(const QDBusMessage &question, const std::function<void(const QDBusMessage &)> &heed)
{
    auto *answer = new QDBusPendingCallWatcher(m_bus.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [answer, heed] {
        answer->deleteLater();
        const QDBusMessage reply = QDBusPendingReply<>(*answer).reply();
        if (reply.type() == QDBusMessage::ReplyMessage)
            heed(reply);
    });
}
