#pragma once

#include "watchstate.h"

#include <QStringList>

// Draws the state as text lines; pure, so that a test can read the screen.
struct ScreenStyle {
    int columns = 80;
    int rows = 24;
    bool colour = true;
    bool unicode = true;
};

// `network` is the network client beside it, null when there is none.
QStringList drawScreen(const WatchState &state, const WatchState *network, const ScreenStyle &style,
                       const QDateTime &now);

// One plain line a report, for an output that is no terminal.
QString plainLine(const QGeoPositionInfo &fix, qsizetype inView, qsizetype used);
// The same for the network client beside it.
QString networkPlainLine(const QGeoPositionInfo &fix);
