#pragma once

#include <QDateTime>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QList>
#include <QString>

#include <optional>

// What this application knows of the daemon, the receiver and itself at one moment.
struct WatchState {
    QString daemon;                      // "registered as 6000", "waiting for lodestard"
    QString methods;                     // what the daemon offers now: "satellite, network"
    std::optional<QGeoPositionInfo> fix; // the last valid one
    bool fixLost = false;                // the newest report said: no position
    int fixes = 0;                       // valid ones so far
    QDateTime lastReport;                // local time of the newest report
    double travelledMetres = 0.0;        // along the valid fixes
    QList<QGeoSatelliteInfo> inView;
    QList<int> usedPrns;
    std::optional<int> secondsLeft; // with --seconds

    void takeFix(const QGeoPositionInfo &fix, const QDateTime &now);
    void takeSatellitesInView(const QList<QGeoSatelliteInfo> &satellites);
    void takeSatellitesInUse(const QList<QGeoSatelliteInfo> &satellites);
    bool isUsed(const QGeoSatelliteInfo &satellite) const;
};

// The names of an offered-method mask, "none" for 0.
QString methodNames(quint32 mask);
// A heading in [0, 360), whatever turn the receiver counts from; both in degrees.
double normalisedHeading(double degrees);
// "N", "NNE", ... of a heading in degrees.
QString compassPoint(double degrees);
