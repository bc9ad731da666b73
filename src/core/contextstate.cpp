#include "core/contextstate.h"

#include <QGeoCoordinate>

#include <algorithm>

using namespace Qt::StringLiterals;

int contextState(ReceiverState satellite, NetworkState network)
{
    return std::max(int(satellite), int(network));
}

std::optional<QLatin1StringView> contextStateText(int state)
{
    switch (state) {
    case 0:
        return "off"_L1;
    case 1:
        return "search"_L1;
    case 2:
        return "on"_L1;
    default:
        return std::nullopt;
    }
}

std::optional<QLatin1StringView> PublishedState::update(bool subscribed, int state)
{
    if (!subscribed || state == iconState)
        return std::nullopt;
    iconState = state;
    return contextStateText(state);
}

std::optional<QList<double>> contextCoordinates(const QGeoCoordinate &coordinate)
{
    if (!coordinate.isValid())
        return std::nullopt;
    return QList<double>{coordinate.latitude(), coordinate.longitude()};
}
