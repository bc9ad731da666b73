#pragma once

#include "core/methodselection.h"
#include "core/sessionplan.h"

#include <QLatin1StringView>
#include <QList>

#include <optional>

class QGeoCoordinate;

// The state of positioning as a status bar shows it, the better one of satellites and network: 0 off,
// 1 searching, 2 a fix.
int contextState(ReceiverState satellite, NetworkState network);
// "off", "search", "on"; nothing for a state that is none of these.
std::optional<QLatin1StringView> contextStateText(int state);

// What was told last, so that each state is told once.
class PublishedState
{
public:
    int last() const { return iconState; }
    // The text to publish, when somebody listens and the state (of contextState()) is news.
    std::optional<QLatin1StringView> update(bool subscribed, int state);

private:
    int iconState = 0;
};

// Latitude and longitude in degrees; nothing for an invalid coordinate.
std::optional<QList<double>> contextCoordinates(const QGeoCoordinate &coordinate);
