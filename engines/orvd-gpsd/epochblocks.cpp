#include "orvd-gpsd/epochblocks.h"

#include "engine/layout.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <numbers>

namespace orvdgpsd {
namespace {
constexpr int highestPrn = 256; // the field holds PRN - 1 in a byte
constexpr std::size_t mostSatellites = 255;

// The daemon adds the two uncertainties as 32-bit integers: the sum must fit too.
constexpr qint32 largestUncertainty = std::numeric_limits<qint32>::max() / 2;

template <typename T>
T inUnits(double value, double unit, T lowest = std::numeric_limits<T>::min(),
          T highest = std::numeric_limits<T>::max())
{
    const double units = std::round(value / unit);
    return T(std::clamp(units, double(lowest), double(highest)));
}

// An error estimate that is not known must not look like a good one.
template <typename T>
T errorInUnits(Known error, double unit, T largest = std::numeric_limits<T>::max())
{
    return error ? inUnits<T>(*error, unit, 0, largest) : largest;
}

// The axes of the error ellipse are those of gpsd's estimates: north and east.
struct Ellipse {
    Known along; // m, the longer half axis
    Known ortho;
    quint8 angle = 0; // degrees from north
};

Ellipse errorEllipse(const FixReport &fix)
{
    if (fix.eastError && fix.northError) {
        const bool eastIsLonger = *fix.eastError > *fix.northError;
        return {std::max(*fix.eastError, *fix.northError), std::min(*fix.eastError, *fix.northError),
                quint8(eastIsLonger ? 90 : 0)};
    }
    if (fix.horizontalError) {
        const double each = *fix.horizontalError / std::numbers::sqrt2;
        return {each, each, 0};
    }
    return {};
}

// Clients get altitude + geoid: half metres are rounded once, in the height above sea level.
struct Heights {
    double ellipsoid = 0.0; // whole half metres
    double separation = 0.0;
};

Heights heights(const FixReport &fix)
{
    Known ellipsoid = fix.heightAboveEllipsoid;
    Known seaLevel = fix.heightAboveSeaLevel;
    if (ellipsoid && !seaLevel)
        seaLevel = *ellipsoid - fix.geoidSeparation.value_or(0.0);
    if (seaLevel && !ellipsoid)
        ellipsoid = *seaLevel + fix.geoidSeparation.value_or(0.0);
    const auto halfMetres = [](Known height) {
        return std::round(height.value_or(0.0) / layout::unit::halfMetre);
    };
    return {halfMetres(ellipsoid), halfMetres(seaLevel) - halfMetres(ellipsoid)};
}

// -180.00 to 180.00; the value that stands for "not known" is a hundredth beside north.
qint16 headingField(Known track)
{
    if (!track)
        return layout::velocity::headingUnknown;
    const auto heading = inUnits<qint16>(std::remainder(*track, 360.0), layout::unit::hundredth);
    return heading == layout::velocity::headingUnknown ? qint16(0) : heading;
}

// For fields whose lowest value stands for "not known".
qint16 hundredthsOrLowest(Known value)
{
    constexpr auto unknown = std::numeric_limits<qint16>::min();
    return value ? inUnits<qint16>(*value, layout::unit::hundredth, unknown + 1) : unknown;
}

quint16 signalField(Known signal)
{
    if (!signal || *signal < 0.0)
        return layout::satellite::cnoUnknown;
    constexpr double unit = 1.0 / (1 << layout::unit::carrierToNoiseFractionBits);
    return inUnits<quint16>(*signal, unit, 0, layout::satellite::cnoUnknown - 1);
}

quint16 elevationField(Known elevation)
{
    if (!elevation || std::abs(*elevation) > 90.0)
        return layout::satellite::elevationUnknown;
    const auto field = quint16(inUnits<qint16>(*elevation, layout::unit::hundredth));
    // "Not known" lies within the range: a hundredth higher says as much.
    return field == layout::satellite::elevationUnknown ? quint16(field + 1) : field;
}

quint16 azimuthField(Known azimuth)
{
    if (!azimuth || *azimuth < 0.0 || *azimuth > 360.0)
        return layout::satellite::azimuthUnknown;
    return inUnits<quint16>(*azimuth, layout::unit::hundredth);
}
} // namespace

PositionBlock positionBlock(const FixReport &fix)
{
    using namespace layout::unit;
    const Ellipse ellipse = errorEllipse(fix);
    const Heights height = heights(fix);
    PositionBlock block;
    block.latitude = inUnits<qint32>(fix.latitude, angle32);
    block.longitude = inUnits<qint32>(fix.longitude, angle32);
    block.along = errorInUnits<qint32>(ellipse.along, centimetre, largestUncertainty);
    block.ortho = errorInUnits<qint32>(ellipse.ortho, centimetre, largestUncertainty);
    block.angle = ellipse.angle;
    block.altitude = inUnits<qint16>(height.ellipsoid, 1.0);
    block.altitudeError = errorInUnits<quint16>(fix.verticalError, halfMetre);
    block.geoid = inUnits<qint16>(height.separation, 1.0);
    return block;
}

std::optional<VelocityBlock> velocityBlock(const FixReport &fix)
{
    using namespace layout::unit;
    if (!fix.track && !fix.speed && !fix.climb && !fix.magneticVariation)
        return std::nullopt;
    VelocityBlock block;
    block.heading = headingField(fix.track);
    block.headingError = errorInUnits<quint16>(fix.trackError, hundredth);
    block.variation = hundredthsOrLowest(fix.magneticVariation);
    block.speed = fix.speed ? inUnits<qint16>(*fix.speed, hundredth, 0) : layout::velocity::speedUnknown;
    block.speedError = errorInUnits<quint16>(fix.speedError, hundredth);
    block.climb = hundredthsOrLowest(fix.climb);
    block.climbError = errorInUnits<quint16>(fix.climbError, hundredth);
    return block;
}

TimeBlock timeBlock(ReceiverTime time)
{
    const auto midnight = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date{midnight};
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - midnight).count();
    TimeBlock block;
    block.year = quint16(std::clamp(int(date.year()), 0, int(std::numeric_limits<quint16>::max())));
    block.month = quint8(unsigned(date.month()));
    block.day = quint8(unsigned(date.day()));
    block.hours = quint8(milliseconds / 3600000);
    block.minutes = quint8(milliseconds / 60000 % 60);
    block.milliseconds = quint16(milliseconds % 60000);
    return block;
}

std::vector<SatelliteRecord> satelliteRecords(const SkyReport &sky)
{
    std::vector<SatelliteRecord> records;
    for (const Satellite &satellite : sky.satellites) {
        if (satellite.prn < 1 || satellite.prn > highestPrn || records.size() == mostSatellites)
            continue;
        records.push_back({quint8(satellite.prn - 1),
                           quint8(satellite.used ? layout::satellite::usedInFix : 0),
                           signalField(satellite.signal), elevationField(satellite.elevation),
                           azimuthField(satellite.azimuth)});
    }
    return records;
}
} // namespace orvdgpsd
