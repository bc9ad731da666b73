#include "core/positiondaemon.h"
#include "settings/locationsecuresettings.h"

#include <QDebug>

using namespace Qt::StringLiterals;

void PositionDaemon::privacyDialogFinished(LocationUI::DialogReply result)
{
    qDebug("PositionDaemon::dialogFinished()");
    if (result <= LocationUI::Declined)
        return; // what waits goes on waiting, for another answer

    m_flags.disclaimerAccepted = true;
    startBrisd();
    if (result == LocationUI::AcceptedForGood)
        secureSettings->setSetting(u"LocationDisclaimerAccepted"_s, QDBusVariant(true));
    while (const auto request = m_registry.takeParked()) {
        qDebug("PositionDaemon::dialogFinished() request queue pop");
        configRequest(request->id, request->command, request->method, request->interval);
    }
}

void PositionDaemon::connectDialogs(ORVComm &engine)
{
    connect(&engine, &ORVComm::locationRequest, locationUI.get(), &LocationUI::showLocationRequest);
    connect(&engine, &ORVComm::locationRequestTimeout, locationUI.get(), &LocationUI::closeLocationRequest);
    connect(locationUI.get(), &LocationUI::locationRequestResult, &engine,
            &ORVComm::sendLocationRequestReply);
}
