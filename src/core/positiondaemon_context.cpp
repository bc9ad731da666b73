#include "client/clientapp.h"
#include "core/busylog.h"
#include "core/configcommand.h"
#include "core/contextpublisher.h"
#include "core/positiondaemon.h"
#include "platform/contextproperty.h"

#include <QDebug>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The screen is watched for so long after power save has ended: a search often starts again soon.
constexpr auto ScreenWatchAfterwards = 150000ms;
constexpr int ContextIntervalMs = 1000;

} // namespace

void PositionDaemon::initContext()
{
    using ContextProvider::Property;
    m_context = std::make_unique<ContextPublisher>(m_clock);
    connect(&m_context->state(), &Property::firstSubscriberAppeared, this,
            &PositionDaemon::addContextFWStateClient);
    connect(&m_context->state(), &Property::lastSubscriberDisappeared, this,
            &PositionDaemon::delContextFWStateClient);
    connect(&m_context->coordinates(), &Property::firstSubscriberAppeared, this,
            &PositionDaemon::addContextFWPositionClient);
    connect(&m_context->coordinates(), &Property::lastSubscriberDisappeared, this,
            &PositionDaemon::delContextFWPositionClient);
    m_context->start();
    qDebug("PositionDaemon::init() ContextProvider init done.");

    powerSaveTimer.setSingleShot(true);
    connect(&powerSaveTimer, &QTimer::timeout, this, [this] { onPowerSaveTimeout(); });
    unsubscribeTimer.setSingleShot(true);
    connect(&unsubscribeTimer, &QTimer::timeout, this, &PositionDaemon::onPowerSaveContextUnsubscribe);
    m_screen = std::make_unique<ContextProperty>(u"Screen.Blanked"_s);
    connect(m_screen.get(), &ContextProperty::valueChanged, this, &PositionDaemon::onScreenBlanked);
    qDebug("PositionDaemon::init() GNSS power save done");
}

void PositionDaemon::contextSetState()
{
    const int tmpState = contextState(receiverState, nonsatelliteState);
    qCDebug(busyLog, "PositionDaemon::%s: satelliteState=%d, nonsatelliteState=%d, tmpState=%d, iconState=%d",
            __func__, int(receiverState), int(nonsatelliteState), tmpState, m_publishedState.last());
    if (const auto text = m_publishedState.update(stateSubscribed, tmpState))
        m_context->publishState(*text);
}

void PositionDaemon::updateContextCoordinates(const QGeoPositionInfo &fix)
{
    if (positionSubscribed)
        m_context->publishCoordinates(fix.coordinate());
}

// The daemon's own client for the subscribers of the coordinates: publishing is its delivery.
bool PositionDaemon::isContextClient(const ClientApp &client) const
{
    return positionSubscribed && client.id() == contextClientId;
}

void PositionDaemon::addContextFWPositionClient(QString)
{
    qDebug("First context fw client for positioinig.");
    if (positionSubscribed)
        return;
    positionSubscribed = true;
    contextClientId = registerListener(ClientApp::ContextService, ClientApp::ContextService);
    constexpr int Command = ConfigCommand::Start | ConfigCommand::SetMethod | ConfigCommand::SetInterval;
    configRequest(contextClientId, Command, int(Methods::Satellite), ContextIntervalMs);
}

void PositionDaemon::delContextFWPositionClient(QString)
{
    qDebug("PositionDaemon::%s()", __func__);
    if (!positionSubscribed)
        return;
    positionSubscribed = false;
    removeClient(contextClientId);
}

void PositionDaemon::addContextFWStateClient(QString)
{
    qDebug("First context fw client for gps state.");
    if (stateSubscribed)
        return;
    stateSubscribed = true;
    contextSetState();
}

void PositionDaemon::delContextFWStateClient(QString)
{
    qDebug("PositionDaemon::%s()", __func__);
    stateSubscribed = false;
}

void PositionDaemon::powerSaveAfterReport(ReceiverState state)
{
    switch (m_powerSave.afterReport(state)) {
    case PowerSaveCycle::Report::Nothing:
        break;
    case PowerSaveCycle::Report::Enable:
        enablePowerSave();
        break;
    case PowerSaveCycle::Report::Disable:
        disablePowerSave();
        break;
    }
}

void PositionDaemon::enablePowerSave()
{
    qDebug("PositionDaemon::%s", __func__);
    m_screen->subscribe();
    m_powerSave.arm();
    if (m_screen->value().toBool())
        onPowerSaveTimeout(false);
}

void PositionDaemon::disablePowerSave()
{
    qDebug("PositionDaemon::%s", __func__);
    if (!unsubscribeTimer.isActive())
        unsubscribeTimer.start(ScreenWatchAfterwards);
    m_powerSave.disable();
    powerSaveTimer.stop();
}

void PositionDaemon::resetPowerSave()
{
    qDebug("PositionDaemon::%s", __func__);
    if (!m_powerSave.rearm())
        return;
    powerSaveTimer.stop();
    onPowerSaveTimeout(false);
}

void PositionDaemon::onPowerSaveTimeout(bool doAssignClients)
{
    qDebug("PositionDaemon::%s: powerSaveRound=%d", __func__, m_powerSave.round() + 1);
    const auto round = m_powerSave.next(orvComm ? orvComm->peakSignalSatellites() : 0);
    if (!round)
        return;
    if (round->countSatellitesAfresh && orvComm)
        orvComm->resetPeakSignalSatellites();
    powerSaveTimer.start(round->length);
    if (round->replan && doAssignClients)
        assignClients();
}

void PositionDaemon::onPowerSaveContextUnsubscribe()
{
    qDebug("PositionDaemon::%s", __func__);
    if (m_powerSave.isOff())
        m_screen->unsubscribe();
}

void PositionDaemon::onScreenBlanked()
{
    const bool blanked = m_screen->value().toBool();
    qDebug("PositionDaemon::%s screenBlanked=%d", __func__, blanked);
    switch (m_powerSave.afterScreen(blanked)) {
    case PowerSaveCycle::Screen::Nothing:
        return;
    case PowerSaveCycle::Screen::Rearm:
        m_powerSave.rearm();
        powerSaveTimer.stop();
        break;
    case PowerSaveCycle::Screen::Begin:
        onPowerSaveTimeout(false);
        break;
    }
    assignClients();
}
