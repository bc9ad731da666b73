#include "core/magneticvariation.h"

#include <cmath>
#include <limits>

using namespace std::chrono_literals;

namespace {

constexpr auto LookAgain = 1000ms;

} // namespace

std::optional<int> wholeVariation(const QGeoPositionInfo &fix)
{
    if (!fix.hasAttribute(QGeoPositionInfo::MagneticVariation))
        return std::nullopt;
    const double degrees = fix.attribute(QGeoPositionInfo::MagneticVariation) + 0.5;
    if (!(std::abs(degrees) <= std::numeric_limits<int>::max())) // not a number, or none that fits
        return std::nullopt;
    return int(degrees);
}

bool WrittenVariation::isDue(int degrees, std::chrono::milliseconds now)
{
    if (m_degrees == degrees && now - m_since < LookAgain)
        return false;
    m_degrees = degrees;
    m_since = now;
    return true;
}
