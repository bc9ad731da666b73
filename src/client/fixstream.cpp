#include "client/fixstream.h"

#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QTimeZone>
#include <QtEndian>

#include <array>
#include <cstdint>
#include <utility>

namespace {

constexpr quint32 NoJulianDay = 0;
constexpr quint32 NoTimeOfDay = 0xFFFFFFFF;
constexpr qint64 MillisecondsPerDay = 86400000;

constexpr qsizetype FixBytes = 37;       // without attributes
constexpr qsizetype SatelliteBytes = 12; // without attributes
constexpr qsizetype AttributeBytes = 12;

constexpr std::array FixAttributes{QGeoPositionInfo::Direction,          QGeoPositionInfo::GroundSpeed,
                                   QGeoPositionInfo::VerticalSpeed,      QGeoPositionInfo::MagneticVariation,
                                   QGeoPositionInfo::HorizontalAccuracy, QGeoPositionInfo::VerticalAccuracy};
constexpr std::array SatelliteAttributes{QGeoSatelliteInfo::Elevation, QGeoSatelliteInfo::Azimuth};

// Writes big-endian values one behind the other into a buffer that was made once.
class Writer
{
public:
    explicit Writer(qsizetype atMost)
        : m_bytes(atMost, Qt::Uninitialized)
    {
    }

    template <typename T>
    void put(T value)
    {
        Q_ASSERT(m_bytes.size() - m_used >= qsizetype(sizeof value));
        qToBigEndian(value, m_bytes.data() + m_used);
        m_used += qsizetype(sizeof value);
    }
    template <typename Info, typename Codes>
    void putAttributes(const Info &info, const Codes &codes)
    {
        const qsizetype place = m_used;
        quint32 count = 0;
        put(count);
        for (const auto code : codes) {
            if (!info.hasAttribute(code))
                continue;
            put(qint32(code));
            // Attributes are single precision, in a double's clothes.
            put(double(float(info.attribute(code))));
            ++count;
        }
        qToBigEndian(count, m_bytes.data() + place);
    }
    QByteArray take()
    {
        m_bytes.truncate(m_used);
        return std::move(m_bytes);
    }

private:
    QByteArray m_bytes;
    qsizetype m_used = 0;
};

// Reads big-endian values. A value that is not there reads as 0 and clears ok(), for good.
class Reader
{
public:
    explicit Reader(QByteArrayView bytes)
        : m_rest(bytes)
    {
    }

    template <typename T>
    T get()
    {
        if (m_rest.size() < qsizetype(sizeof(T)))
            m_ok = false;
        if (!m_ok)
            return T{};
        const auto value = qFromBigEndian<T>(m_rest.data());
        m_rest = m_rest.sliced(qsizetype(sizeof(T)));
        return value;
    }
    template <typename Info, typename Codes>
    void getAttributes(Info &info, const Codes &codes)
    {
        // The count is not believed: what is not there ends the loop.
        for (auto left = get<quint32>(); left > 0 && m_ok; --left) {
            const auto code = get<qint32>();
            const auto value = get<double>();
            if (code < 0 || code >= qint32(codes.size()))
                m_ok = false;
            if (m_ok)
                info.setAttribute(codes[std::size_t(code)], value);
        }
    }
    void fail() { m_ok = false; }
    [[nodiscard]] bool ok() const { return m_ok; }
    [[nodiscard]] bool isWhole() const { return m_ok && m_rest.isEmpty(); }

private:
    QByteArrayView m_rest;
    bool m_ok = true;
};

quint32 julianDay(QDate date)
{
    const qint64 day = date.isValid() ? date.toJulianDay() : NoJulianDay;
    return day > 0 && day <= qint64(UINT32_MAX) ? quint32(day) : NoJulianDay;
}

quint32 timeOfDay(QTime time)
{
    return time.isValid() ? quint32(time.msecsSinceStartOfDay()) : NoTimeOfDay;
}

} // namespace

QByteArray FixStream::writeFix(const QGeoPositionInfo &fix)
{
    // Already local, with or without its offset: converting it would look the zone up once more.
    const bool isUtc = fix.timestamp().timeSpec() == Qt::UTC;
    const QDateTime stamp = isUtc ? fix.timestamp().toLocalTime() : fix.timestamp();
    const QGeoCoordinate coordinate = fix.coordinate();
    Writer out(FixBytes + qsizetype(FixAttributes.size()) * AttributeBytes);
    out.put(julianDay(stamp.date()));
    out.put(timeOfDay(stamp.time()));
    out.put(qint8(0)); // local time, which it always is
    out.put(coordinate.latitude());
    out.put(coordinate.longitude());
    out.put(coordinate.altitude());
    out.putAttributes(fix, FixAttributes);
    return out.take();
}

QByteArray FixStream::writeSatellites(const QList<QGeoSatelliteInfo> &satellites)
{
    constexpr qsizetype fullRow = SatelliteBytes + qsizetype(SatelliteAttributes.size()) * AttributeBytes;
    Writer out(qsizetype(sizeof(qint32)) + satellites.size() * fullRow);
    out.put(qint32(satellites.size()));
    for (const QGeoSatelliteInfo &satellite : satellites) {
        out.put(qint32(satellite.satelliteIdentifier()));
        out.put(qint32(satellite.signalStrength()));
        out.putAttributes(satellite, SatelliteAttributes);
    }
    return out.take();
}

std::optional<QGeoPositionInfo> FixStream::readFix(QByteArrayView bytes)
{
    Reader in(bytes);
    const auto day = in.get<quint32>();
    const auto milliseconds = in.get<quint32>();
    const auto specification = in.get<qint8>();
    QGeoCoordinate coordinate;
    coordinate.setLatitude(in.get<double>());
    coordinate.setLongitude(in.get<double>());
    coordinate.setAltitude(in.get<double>());

    QGeoPositionInfo fix;
    in.getAttributes(fix, FixAttributes);
    if (milliseconds >= MillisecondsPerDay && milliseconds != NoTimeOfDay)
        in.fail();
    if (specification != 0 && specification != 1)
        in.fail();
    if (!in.isWhole())
        return std::nullopt;

    if (day != NoJulianDay && milliseconds != NoTimeOfDay) {
        const QDate date = QDate::fromJulianDay(day);
        const QTime time = QTime::fromMSecsSinceStartOfDay(int(milliseconds));
        fix.setTimestamp(specification == 0 ? QDateTime(date, time)
                                            : QDateTime(date, time, QTimeZone::utc()));
    }
    fix.setCoordinate(coordinate);
    return fix;
}

std::optional<QList<QGeoSatelliteInfo>> FixStream::readSatellites(QByteArrayView bytes)
{
    Reader in(bytes);
    QList<QGeoSatelliteInfo> satellites;
    auto left = in.get<qint32>();
    if (left < 0)
        in.fail();
    for (; left > 0 && in.ok(); --left) {
        QGeoSatelliteInfo satellite;
        satellite.setSatelliteIdentifier(in.get<qint32>());
        satellite.setSignalStrength(in.get<qint32>());
        in.getAttributes(satellite, SatelliteAttributes);
        satellites.append(satellite);
    }
    if (!in.isWhole())
        return std::nullopt;
    return satellites;
}
