#include "platform/geoclueclients.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

QDBusMessage managerCall(const QString &service, const QString &method)
{
    return QDBusMessage::createMethodCall(service, u"/org/freedesktop/GeoClue2/Manager"_s,
                                          u"org.freedesktop.GeoClue2.Manager"_s, method);
}

} // namespace

GeoClueClients::GeoClueClients(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
}

// A question outlives this object, so that its client is given back whenever it comes.
void GeoClueClients::request()
{
    m_waiting = true;
    m_ownQuestion = 0;
    if (m_openQuestions >= MostOpenQuestions)
        return;
    ++m_openQuestions;
    const quint64 question = m_ownQuestion = ++m_questions;
    const auto call = m_bus.asyncCall(managerCall(u"org.freedesktop.GeoClue2"_s, u"CreateClient"_s),
                                      std::numeric_limits<int>::max());
    auto *watcher = new QDBusPendingCallWatcher(call, QCoreApplication::instance());
    connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
            [self = QPointer(this), bus = m_bus, question](QDBusPendingCallWatcher *finished) {
                finished->deleteLater();
                const QDBusPendingReply<QDBusObjectPath> reply = *finished;
                if (reply.isError()) {
                    if (self)
                        self->onFailed(question, reply.error());
                    return;
                }
                const GeoClueClient client{reply.reply().service(), reply.value().path()};
                if (self)
                    self->onCreated(client);
                else
                    giveBack(bus, client);
            });
}

void GeoClueClients::stopWaiting()
{
    m_waiting = false;
}

void GeoClueClients::giveBack(const QDBusConnection &bus, const GeoClueClient &client)
{
    auto call = managerCall(client.service, u"DeleteClient"_s);
    call.setArguments({QVariant::fromValue(QDBusObjectPath(client.path))});
    bus.send(call);
}

void GeoClueClients::onCreated(const GeoClueClient &client)
{
    --m_openQuestions;
    if (!m_waiting) {
        giveBack(m_bus, client);
        return;
    }
    m_waiting = false;
    emit created(client);
}

void GeoClueClients::onFailed(quint64 question, const QDBusError &error)
{
    --m_openQuestions;
    if (!m_waiting || (question != m_ownQuestion && m_openQuestions > 0))
        return;
    m_waiting = false;
    emit failed(error);
}
