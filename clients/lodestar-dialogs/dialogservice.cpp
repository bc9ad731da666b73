#include "dialogservice.h"

#include "dialogadaptors.h"
#include "questiondialog.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

using namespace Qt::StringLiterals;

namespace {

constexpr auto ServiceName = "com.varn.location.ui"_L1;
constexpr auto DialogPath = "/com/varn/location/ui"_L1;
constexpr auto ApplicationPath = "/org/sarnel/m"_L1;

constexpr auto Busy = "com.varn.location.ui.Error.Busy";
constexpr auto Withdrawn = "com.varn.location.ui.Error.Withdrawn";
constexpr auto Leaving = "com.varn.location.ui.Error.Leaving";
constexpr auto InvalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";

QDBusMessage busCall(const QString &method)
{
    return QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                          u"org.freedesktop.DBus"_s, method);
}

} // namespace

DialogService::DialogService(const QDBusConnection &bus, const Clock &clock)
    : m_bus(bus)
    , m_clock(clock)
{
    new DialogAdaptor(&m_dialogHost, this);
    new ApplicationAdaptor(&m_applicationHost, this);
    m_callers.setConnection(m_bus);
    m_callers.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_callers, &QDBusServiceWatcher::serviceUnregistered, this, &DialogService::onCallerGone);
    m_bus.connect(QString(), u"/org/freedesktop/DBus/Local"_s, u"org.freedesktop.DBus.Local"_s,
                  u"Disconnected"_s, this, SLOT(onBusLost()));
}

DialogService::~DialogService()
{
    delete m_dialog;
}

QuestionDialog *DialogService::dialog() const
{
    return m_dialog;
}

bool DialogService::start()
{
    // The name last: whoever finds it finds the objects too.
    return m_bus.registerObject(DialogPath, &m_dialogHost, QDBusConnection::ExportAdaptors) &&
           m_bus.registerObject(ApplicationPath, &m_applicationHost, QDBusConnection::ExportAdaptors) &&
           m_bus.registerService(ServiceName);
}

void DialogService::askPrivacy(const QDBusMessage &call)
{
    handle(m_desk.privacyAsked(), DialogDesk::Dialog::Privacy, Questions::privacy(), call);
}

void DialogService::askLocation(int type, bool defaultAccept, const QString &name, const QString &id,
                                const QDBusMessage &call)
{
    handle(m_desk.locationAsked(type), DialogDesk::Dialog::LocationRequest,
           Questions::locationRequest({type, defaultAccept, name, id}), call);
}

void DialogService::handle(DialogDesk::Verdict verdict, DialogDesk::Dialog kind, const Question &question,
                           const QDBusMessage &call)
{
    switch (verdict) {
    case DialogDesk::Verdict::Show:
        show(kind, question, call);
        break;
    case DialogDesk::Verdict::Busy:
        refuse(call, Busy, u"another dialog is open"_s);
        break;
    case DialogDesk::Verdict::Withdraw:
        // An error and no value: a value would be taken for the user's answer to the next request.
        refuseOpen(Withdrawn, u"the request was withdrawn"_s);
        reply(call, {0});
        break;
    case DialogDesk::Verdict::NothingToDo:
        reply(call, {0});
        break;
    case DialogDesk::Verdict::UnknownType:
        refuse(call, InvalidArguments, u"a location request has the type 0, 1 or 2"_s);
        break;
    case DialogDesk::Verdict::Leaving:
        refuse(call, Leaving, u"the dialog service ends"_s);
        break;
    }
}

void DialogService::show(DialogDesk::Dialog kind, const Question &question, const QDBusMessage &call)
{
    if (!call.isReplyRequired())
        return; // nobody would hear the answer
    m_desk.opened(kind);
    m_call = call;
    m_dialog = new QuestionDialog(question, m_clock);
    connect(m_dialog, &QDialog::finished, this, &DialogService::onFinished);
    watchCaller();
    m_dialog->show();
    m_dialog->raise();
    m_dialog->activateWindow();
}

void DialogService::watchCaller()
{
    const QString name = m_call.service();
    m_callers.setWatchedServices({name});
    // It may have left before it was watched.
    QDBusMessage question = busCall(u"NameHasOwner"_s);
    question << name;
    auto *answer = new QDBusPendingCallWatcher(m_bus.asyncCall(question), m_dialog);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer, name] {
        const QDBusPendingReply<bool> isThere = *answer;
        if (isThere.isValid() && !isThere.value())
            onCallerGone(name);
    });
}

void DialogService::onFinished(int result)
{
    const bool accepted = result == QDialog::Accepted;
    const bool isPrivacy = m_desk.open() == DialogDesk::Dialog::Privacy;
    reply(closeOpen(), {isPrivacy ? QVariant(accepted) : QVariant(int(accepted))});
}

void DialogService::onCallerGone(const QString &caller)
{
    if (m_dialog && m_call.service() == caller)
        closeOpen();
}

void DialogService::leave(const QDBusMessage &call)
{
    m_desk.leave();
    // Before the answer: a caller that has it and asks anew gets a new instance, not this one.
    m_bus.unregisterService(ServiceName);
    refuseOpen(Leaving, u"the dialog service ends"_s);
    reply(call, {});
    // Messages keep their order, so with this answer all of the above has been sent.
    m_bus.call(busCall(u"GetId"_s));
    emit left();
}

void DialogService::onBusLost()
{
    if (m_dialog)
        closeOpen();
    emit busLost();
}

void DialogService::refuseOpen(const char *error, const QString &why)
{
    if (m_dialog)
        refuse(closeOpen(), error, why);
}

// Takes the dialog off the screen; returns the call that it was to answer.
QDBusMessage DialogService::closeOpen()
{
    m_desk.closed();
    m_callers.setWatchedServices({});
    m_dialog->disconnect(this);
    m_dialog->hide();
    m_dialog->deleteLater(); // it may be in its own signal
    m_dialog = nullptr;
    return std::exchange(m_call, QDBusMessage());
}

void DialogService::reply(const QDBusMessage &call, const QVariantList &values)
{
    if (call.isReplyRequired())
        m_bus.send(call.createReply(values));
}

void DialogService::refuse(const QDBusMessage &call, const char *error, const QString &why)
{
    if (call.isReplyRequired())
        m_bus.send(call.createErrorReply(QLatin1StringView(error), why));
}
