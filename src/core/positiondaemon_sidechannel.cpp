#include "core/positiondaemon.h"
#include "core/sidechannelrequest.h"

#include <QDebug>

void PositionDaemon::VESKRequest(int command)
{
    qDebug("PositionDaemon::VESKRequest(0x%x)", unsigned(command));
    const SideChannelAction action = sideChannelAction(command, m_flags);
    switch (action.kind) {
    case SideChannelAction::Kind::Stream:
        if (orvComm)
            orvComm->setVESKUpdatesEnabled(action.stream);
        break;
    case SideChannelAction::Kind::Answer:
        emit settingVESK(action.answer.setting, action.answer.enabled);
        break;
    case SideChannelAction::Kind::Unknown:
        qWarning("Unknown VESK request!");
        break;
    }
}
