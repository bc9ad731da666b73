#include "screen.h"

#include "canvas.h"

#include <algorithm>
#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;

namespace {

constexpr int SkyRadiusRows = 7;
constexpr int SkyColumns = 4 * SkyRadiusRows + 5;
constexpr int StrongestSignal = 50; // dB-Hz, a full bar

QString coordinateText(double degrees, QChar positive, QChar negative)
{
    return u"%1%2 %3"_s.arg(std::abs(degrees), 11, 'f', 7)
        .arg(QChar(0x00B0))
        .arg(degrees < 0 ? negative : positive);
}

QString metres(double value, int decimals = 1)
{
    return u"%1 m"_s.arg(value, 0, 'f', decimals);
}

QString attributeText(const QGeoPositionInfo &fix, QGeoPositionInfo::Attribute attribute,
                      const QString &format, int decimals = 1)
{
    return fix.hasAttribute(attribute) ? format.arg(fix.attribute(attribute), 0, 'f', decimals) : u"--"_s;
}

QString accuracyText(const QGeoPositionInfo &fix)
{
    const QString horizontal = attributeText(fix, QGeoPositionInfo::HorizontalAccuracy, u"%1 m"_s);
    const QString vertical = attributeText(fix, QGeoPositionInfo::VerticalAccuracy, u"%1 m"_s);
    return u"%1 across, %2 up"_s.arg(horizontal, vertical);
}

QString speedText(const QGeoPositionInfo &fix)
{
    if (!fix.hasAttribute(QGeoPositionInfo::GroundSpeed))
        return u"--"_s;
    const double speed = fix.attribute(QGeoPositionInfo::GroundSpeed);
    return u"%1 m/s (%2 km/h)"_s.arg(speed, 0, 'f', 2).arg(speed * 3.6, 0, 'f', 1);
}

QString headingText(const QGeoPositionInfo &fix)
{
    if (!fix.hasAttribute(QGeoPositionInfo::Direction))
        return u"--"_s;
    const double heading = normalisedHeading(fix.attribute(QGeoPositionInfo::Direction));
    return u"%1%2 %3"_s.arg(heading, 0, 'f', 1).arg(QChar(0x00B0)).arg(compassPoint(heading));
}

QString ageText(const WatchState &state, const QDateTime &now)
{
    return u"%1 s ago"_s.arg(double(state.lastReport.msecsTo(now)) / 1000.0, 0, 'f', 1);
}

// Where, how exact, how many so far and how old: what the network knows in one line.
QString networkText(const WatchState &state, const QDateTime &now)
{
    if (!state.lastReport.isValid())
        return u"no answer yet"_s;
    if (state.fixLost)
        return u"no position, "_s + ageText(state, now);
    const QGeoCoordinate place = state.fix->coordinate();
    return u"%1 %2  %3 across  fix %4, %5"_s.arg(
        coordinateText(place.latitude(), u'N', u'S'), coordinateText(place.longitude(), u'E', u'W'),
        attributeText(*state.fix, QGeoPositionInfo::HorizontalAccuracy, u"%1 m"_s, 0),
        QString::number(state.fixes), ageText(state, now));
}

QString fixText(const QGeoPositionInfo &fix)
{
    if (!fix.isValid())
        return u"no position"_s;
    const QGeoCoordinate place = fix.coordinate();
    const QString altitude = std::isnan(place.altitude()) ? u"--"_s : metres(place.altitude());
    return u"%1  %2 %3  altitude %4  accuracy %5  speed %6  heading %7"_s.arg(
        fix.timestamp().toString(u"HH:mm:ss"_s), QString::number(place.latitude(), 'f', 7),
        QString::number(place.longitude(), 'f', 7), altitude, accuracyText(fix), speedText(fix),
        headingText(fix));
}

QString statusText(const WatchState &state)
{
    if (state.fixLost)
        return u"no position"_s;
    if (!state.fix)
        return u"searching"_s;
    return state.fix->coordinate().type() == QGeoCoordinate::Coordinate3D ? u"3D fix"_s : u"2D fix"_s;
}

Ink statusInk(const WatchState &state)
{
    if (state.fix && !state.fixLost)
        return Ink::Good;
    return Ink::Warning;
}

void drawHeader(Canvas &canvas, const WatchState &state)
{
    canvas.text(0, 1, u"lodestar-watch"_s, Ink::Strong);
    canvas.text(0, 17, state.daemon, Ink::Faint);
    const QString status = statusText(state);
    canvas.text(0, canvas.columns() - int(status.size()) - 1, status, statusInk(state));
    canvas.rule(1);
}

void drawFix(Canvas &canvas, const WatchState &state, const WatchState *network, const QDateTime &now)
{
    const int right = canvas.columns() / 2 + 2;
    const auto field = [&canvas](int row, int column, const QString &name, const QString &value) {
        canvas.text(row, column, name, Ink::Faint);
        canvas.text(row, column + 11, value, Ink::Plain);
    };
    const QGeoPositionInfo fix = state.fix.value_or(QGeoPositionInfo());
    const QGeoCoordinate place = fix.coordinate();
    const bool known = place.isValid();
    field(2, 1, u"Latitude"_s, known ? coordinateText(place.latitude(), u'N', u'S') : u"--"_s);
    field(3, 1, u"Longitude"_s, known ? coordinateText(place.longitude(), u'E', u'W') : u"--"_s);
    field(4, 1, u"Altitude"_s, std::isnan(place.altitude()) ? u"--"_s : metres(place.altitude()));
    field(5, 1, u"Accuracy"_s, accuracyText(fix));
    field(6, 1, u"Time"_s, known ? fix.timestamp().toString(u"yyyy-MM-dd HH:mm:ss"_s) : u"--"_s);
    field(2, right, u"Speed"_s, speedText(fix));
    field(3, right, u"Heading"_s, headingText(fix));
    field(4, right, u"Climb"_s, attributeText(fix, QGeoPositionInfo::VerticalSpeed, u"%1 m/s"_s, 2));
    field(5, right, u"Travelled"_s, metres(state.travelledMetres, 0));
    QString count = QString::number(state.fixes);
    if (state.lastReport.isValid())
        count += u", last "_s + ageText(state, now);
    field(6, right, u"Fixes"_s, count);
    // In the rule's place, so that the sky still fits into 24 rows.
    if (network)
        field(7, 1, u"Network"_s, networkText(*network, now));
    else
        canvas.rule(7);
}

// The sky as seen lying on one's back would mirror east and west; this is the map's view: north up, east
// right.
void drawSky(Canvas &canvas, const WatchState &state, int top)
{
    const int centreRow = top + SkyRadiusRows;
    const int centreColumn = 2 + 2 * SkyRadiusRows;
    const auto place = [&](double elevation, double azimuth) {
        const double radius = SkyRadiusRows * (90.0 - std::clamp(elevation, 0.0, 90.0)) / 90.0;
        const double angle = azimuth * std::numbers::pi / 180.0;
        return std::pair(centreRow - int(std::lround(radius * std::cos(angle))),
                         centreColumn + int(std::lround(2.0 * radius * std::sin(angle))));
    };
    for (const double elevation : {0.0, 45.0}) {
        for (int azimuth = 0; azimuth < 360; azimuth += 6) {
            const auto [row, column] = place(elevation, azimuth);
            canvas.glyph(row, column, Glyph::Dot, Ink::Faint);
        }
    }
    canvas.text(centreRow - SkyRadiusRows, centreColumn, u"N"_s, Ink::Faint);
    canvas.text(centreRow + SkyRadiusRows, centreColumn, u"S"_s, Ink::Faint);
    canvas.text(centreRow, centreColumn + 2 * SkyRadiusRows, u"E"_s, Ink::Faint);
    canvas.text(centreRow, centreColumn - 2 * SkyRadiusRows, u"W"_s, Ink::Faint);
    for (const auto &satellite : state.inView) {
        if (!satellite.hasAttribute(QGeoSatelliteInfo::Elevation) ||
            !satellite.hasAttribute(QGeoSatelliteInfo::Azimuth))
            continue;
        const auto [row, column] = place(satellite.attribute(QGeoSatelliteInfo::Elevation),
                                         satellite.attribute(QGeoSatelliteInfo::Azimuth));
        const QString prn = QString::number(satellite.satelliteIdentifier());
        canvas.text(row, column, prn, state.isUsed(satellite) ? Ink::Good : Ink::Warning);
    }
}

void drawSignals(Canvas &canvas, const WatchState &state, int top)
{
    const int left = SkyColumns + 3;
    QList<QGeoSatelliteInfo> satellites = state.inView;
    std::stable_sort(satellites.begin(), satellites.end(),
                     [](const auto &a, const auto &b) { return a.signalStrength() > b.signalStrength(); });
    canvas.text(top, left, u"PRN   el   az  C/N0"_s, Ink::Faint);
    const QString summary = u"%1 in view, %2 used"_s.arg(satellites.size()).arg(state.usedPrns.size());
    canvas.text(top, canvas.columns() - int(summary.size()) - 1, summary, Ink::Faint);
    const int room = canvas.rows() - top - 2;
    const int barColumns = std::max(0, canvas.columns() - left - 21);
    for (int i = 0; i < std::min(room, int(satellites.size())); ++i) {
        const auto &satellite = satellites.at(i);
        const auto angle = [&satellite](QGeoSatelliteInfo::Attribute attribute) {
            return satellite.hasAttribute(attribute)
                       ? QString::number(std::lround(satellite.attribute(attribute)))
                       : u"--"_s;
        };
        const int strength = satellite.signalStrength();
        const Ink ink = state.isUsed(satellite) ? Ink::Good : Ink::Warning;
        canvas.text(top + 1 + i, left,
                    u"%1 %2 %3 %4"_s.arg(satellite.satelliteIdentifier(), 3)
                        .arg(angle(QGeoSatelliteInfo::Elevation), 4)
                        .arg(angle(QGeoSatelliteInfo::Azimuth), 4)
                        .arg(strength < 0 ? u"--"_s : QString::number(strength), 5),
                    ink);
        canvas.bar(top + 1 + i, left + 20, barColumns, double(std::max(strength, 0)) / StrongestSignal, ink);
    }
}

void drawFooter(Canvas &canvas, const WatchState &state)
{
    const int row = canvas.rows() - 1;
    QString text = u"On offer: %1    Ctrl-C ends"_s.arg(state.methods);
    if (state.secondsLeft)
        text += u", %1 s left"_s.arg(*state.secondsLeft);
    canvas.text(row, 1, text, Ink::Faint);
}

} // namespace

QStringList drawScreen(const WatchState &state, const WatchState *network, const ScreenStyle &style,
                       const QDateTime &now)
{
    Canvas canvas(style);
    drawHeader(canvas, state);
    drawFix(canvas, state, network, now);
    constexpr int top = 8;
    if (canvas.rows() > top + 2 * SkyRadiusRows + 1)
        drawSky(canvas, state, top);
    drawSignals(canvas, state, top);
    drawFooter(canvas, state);
    return canvas.lines();
}

QString plainLine(const QGeoPositionInfo &fix, qsizetype inView, qsizetype used)
{
    const QString satellites = u"%1 in view, %2 used"_s.arg(inView).arg(used);
    return fixText(fix) + (fix.isValid() ? u"  "_s : u", "_s) + satellites;
}

QString networkPlainLine(const QGeoPositionInfo &fix)
{
    return u"network: "_s + fixText(fix);
}
