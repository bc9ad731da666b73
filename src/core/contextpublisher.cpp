#include "core/contextpublisher.h"

#include "core/contextstate.h"

#include <QDebug>

using namespace Qt::StringLiterals;

ContextPublisher::ContextPublisher(const Clock &clock)
    : m_service(QDBusConnection::sessionBus(), u"com.varn.lodestard.context"_s)
    , m_state(m_service, u"Location.SatPositioningState"_s, clock)
    , m_coordinates(m_service, u"Location.Coordinates"_s, clock)
{
}

// Positions do not depend on it: a daemon whose name is taken serves its clients all the same.
void ContextPublisher::start()
{
    if (!m_service.start())
        qWarning("The context service com.varn.lodestard.context cannot be registered.");
    publishState("off"_L1);
}

void ContextPublisher::publishState(QLatin1StringView text)
{
    m_state.setValue(QString(text));
}

void ContextPublisher::publishCoordinates(const QGeoCoordinate &coordinate)
{
    if (const auto pair = contextCoordinates(coordinate))
        m_coordinates.setValue(QVariant::fromValue(*pair));
}
