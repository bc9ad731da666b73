#include "client/locationui.h"

#include "client/dialogreply.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDebug>

using namespace Qt::StringLiterals;

namespace {

constexpr int AnswerTimeoutMs = 320000; // long enough for a user to answer
constexpr int WithdrawType = 2;         // the type of a location request that closes the open one

// The reply's arguments, or nothing after an error, which is logged.
std::optional<QVariantList> takeReply(QDBusPendingCallWatcher *call)
{
    call->deleteLater();
    if (call->isError()) {
        qWarning("LocationUI::dialogDone() : Dbus Error:");
        qWarning("%s", qPrintable(call->error().message()));
        return std::nullopt;
    }
    return call->reply().arguments();
}

} // namespace

LocationUI::LocationUI()
{
    if (!QDBusConnection::sessionBus().isConnected())
        qCritical("Cannot connect to the D-Bus session bus.");
}

bool LocationUI::privacyDialog()
{
    return callDialog({}, Kind::Privacy);
}

void LocationUI::showLocationRequest(quint8 transactionId, int type, bool defaultAccept, const QString &name,
                                     const QString &id)
{
    if (callDialog({type, defaultAccept, name, id}, Kind::LocationRequest))
        m_request = LocationRequest{transactionId, defaultAccept, name};
}

void LocationUI::closeLocationRequest(quint8 transactionId)
{
    if (!dialogOpen || !m_request || m_request->transactionId != transactionId) {
        qDebug() << "Could not close dialog with transaction id:" << int(transactionId);
        return;
    }
    callDialog({WithdrawType, m_request->defaultAccept, m_request->name, QString()}, Kind::Withdrawal);
    closeDialogService();
}

bool LocationUI::callDialog(const QVariantList &arguments, Kind kind)
{
    if (dialogOpen && kind != Kind::Withdrawal) {
        qDebug("There is already another dialog open!");
        return false;
    }
    auto call = QDBusMessage::createMethodCall(
        u"com.varn.location.ui"_s, u"/com/varn/location/ui"_s, u"com.varn.location.ui"_s,
        kind == Kind::Privacy ? u"privacyDialog"_s : u"locationRequest"_s);
    call.setArguments(arguments);
    // A service that has ended meanwhile shows nothing that could be withdrawn.
    call.setAutoStartService(kind != Kind::Withdrawal);
    const auto pending = QDBusConnection::sessionBus().asyncCall(call, AnswerTimeoutMs);
    if (kind == Kind::Withdrawal)
        return false;

    auto *watcher = new QDBusPendingCallWatcher(pending, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            kind == Kind::Privacy ? &LocationUI::privacyDialogDone : &LocationUI::locationRequestDone);
    m_question = watcher;
    dialogOpen = true;
    return true;
}

void LocationUI::privacyDialogDone(QDBusPendingCallWatcher *call)
{
    const auto reply = takeReply(call);
    if (!reply)
        return;
    const auto accepted = readBoolean(*reply);
    if (!accepted)
        qWarning("LocationUI::%s: no boolean in the reply, taken as declined", __func__);
    emit privacyDialogResult(accepted.value_or(false) ? Accepted : Declined);
    closeDialogService();
}

void LocationUI::locationRequestDone(QDBusPendingCallWatcher *call)
{
    const auto reply = takeReply(call);
    if (!reply)
        return;
    // Handed on, it would answer whatever the engine asks next: answers name no transaction.
    if (call != m_question) {
        qDebug("LocationUI::%s: answer to a withdrawn request dropped", __func__);
        return;
    }
    const auto accepted = readInteger(*reply);
    if (!accepted)
        qWarning("LocationUI::%s: no integer in the reply, taken as declined", __func__);
    emit locationRequestResult(accepted.value_or(0) != 0);
    closeDialogService();
}

// Waits for the reply, so that the next dialog is not shown by a program that is about to end.
void LocationUI::closeDialogService()
{
    auto call = QDBusMessage::createMethodCall(u"com.varn.location.ui"_s, u"/org/sarnel/m"_s,
                                               u"com.varn.MApplicationIf"_s, u"exit"_s);
    call.setAutoStartService(false); // it need not be started to be ended
    QDBusConnection::sessionBus().call(call, QDBus::Block);
    m_request.reset();
    m_question = nullptr;
    dialogOpen = false;
}
