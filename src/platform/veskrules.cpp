#include "platform/veskrules.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float NotKnown = std::numeric_limits<float>::quiet_NaN();
constexpr float FinestWlanOnly = 1000.0F; // m; a coarser location may come from cells as well
constexpr float CoarsestCell = 30000.0F;  // m; beyond, it is a country rather than a place

// GeoClue says "unknown" with the most negative double, which no float can hold.
float toFloat(double value)
{
    return std::abs(value) <= double(std::numeric_limits<float>::max()) ? float(value) : NotKnown;
}

unsigned microsecondsOf(const NetworkLocation &location)
{
    return unsigned(std::min<quint64>(location.microseconds, 999999));
}

VeskPosition toPosition(const NetworkLocation &location, unsigned technologyMask)
{
    VeskPosition position;
    position.setLatitude(location.latitude);
    position.setLongitude(location.longitude);
    position.setAltitude(toFloat(location.altitude));
    position.setHorizontalAccuracy(location.accuracy >= 0.0 ? toFloat(location.accuracy) : NotKnown);
    position.setTimestamp(unsigned(location.seconds), microsecondsOf(location));
    position.setTechnologyMask(vesk::resultTechnology(technologyMask, position.horizontalAccuracy()));
    return position;
}

} // namespace

LocationChoice::LocationChoice(unsigned technologyMask, Milliseconds requestedAt)
    : m_technologies(technologyMask)
    , m_requestedAt(requestedAt)
{
}

LocationChoice::Verdict LocationChoice::weigh(const NetworkLocation &location)
{
    if (!isUseful(location))
        return Verdict::Useless;
    const bool first = !m_best.has_value();
    const VeskPosition position = toPosition(location, m_technologies);
    const float accuracy = position.horizontalAccuracy();
    if (first || isBetter(accuracy))
        m_best = position;
    if (accuracy <= ((m_technologies & vesk::Wlan) ? GoodForWlan : GoodForCells))
        return Verdict::GoodEnough;
    return first ? Verdict::First : Verdict::Useful;
}

// A location without a time may be from last week: it is not used.
bool LocationChoice::isUseful(const NetworkLocation &location) const
{
    if (!(std::abs(location.latitude) <= 90.0) || !(std::abs(location.longitude) <= 180.0))
        return false;
    if (location.seconds == 0 || location.seconds > std::numeric_limits<unsigned>::max())
        return false;
    const Milliseconds found{qint64(location.seconds) * 1000 + microsecondsOf(location) / 1000};
    return found >= m_requestedAt - OldestUseful;
}

bool LocationChoice::isBetter(float accuracy) const
{
    const float bestAccuracy = m_best->horizontalAccuracy();
    return std::isnan(bestAccuracy) || accuracy <= bestAccuracy;
}

int vesk::refusal(const VeskObserver *observer, unsigned technologyMask, VeskPacketDataUsage usage,
                  unsigned timeoutSeconds)
{
    const bool knownUsage = usage == VeskPacketDataUsage::Allowed || usage == VeskPacketDataUsage::NotAllowed;
    const bool canAnswer = observer != nullptr && timeoutSeconds != 0;
    return canAnswer && knownUsage && (technologyMask & (Wlan | Cellular)) != 0 ? Success : BadArguments;
}

quint32 vesk::accuracyLevel(unsigned technologyMask)
{
    return (technologyMask & Wlan) ? StreetLevel : NeighbourhoodLevel;
}

unsigned vesk::resultTechnology(unsigned technologyMask, float accuracy)
{
    const bool wlan = (technologyMask & Wlan) != 0;
    const bool cellular = (technologyMask & Cellular) != 0;
    if (wlan && accuracy <= (cellular ? FinestWlanOnly : CoarsestCell))
        return Wlan;
    return cellular && accuracy <= CoarsestCell ? CellFine : CellCoarse;
}

std::chrono::milliseconds vesk::workingTime(unsigned timeoutSeconds, const VeskTimings &timings)
{
    const std::chrono::milliseconds timeout =
        timings.timeoutUnit * std::chrono::milliseconds::rep(timeoutSeconds);
    const std::chrono::milliseconds working = timeout - std::min(timings.reserve, timeout / 2);
    // As long as a timer can wait: 24 days.
    return std::min(working, std::chrono::milliseconds(std::numeric_limits<int>::max()));
}

int vesk::codeOf(QStringView errorName)
{
    return errorName == u"org.freedesktop.DBus.Error.AccessDenied" ? Denied : UnknownLocation;
}

bool vesk::usesPacketData(QStringView connectionType, quint32 metered)
{
    constexpr quint32 Yes = 1;
    constexpr quint32 GuessYes = 3;
    return connectionType == u"gsm" || connectionType == u"cdma" || metered == Yes || metered == GuessYes;
}
