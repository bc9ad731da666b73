#include "client/fixfilters.h"

namespace {

constexpr double None = -1.0;

} // namespace

bool LastNetworkFix::isRepeat(const std::optional<Fix> &fix)
{
    if (!fix) {
        const bool toldAlready = m_accuracy == None;
        m_accuracy = None;
        return toldAlready;
    }
    if (fix->accuracy && fix->latitude == m_latitude && fix->longitude == m_longitude &&
        *fix->accuracy == m_accuracy)
        return true;
    m_latitude = fix->latitude;
    m_longitude = fix->longitude;
    m_accuracy = fix->accuracy.value_or(None);
    return false;
}

void LastNetworkFix::reset()
{
    *this = LastNetworkFix();
}

void SpeedHistory::clear()
{
    speedHistory.fill(None);
}

void SpeedHistory::record(std::optional<double> speed)
{
    speedHistory[speedHistoryIndex] = speed.value_or(None);
    speedHistoryIndex = (speedHistoryIndex + 1) % speedHistory.size();
}

std::optional<double> SpeedHistory::guess(int intervalSeconds) const
{
    // Two known neighbours in a row are asked for, so that a single stray speed is never repeated.
    if ((intervalSeconds == 1 || intervalSeconds == 2) && before(1) && before(2))
        return before(1);
    if (intervalSeconds == 1 && before(2) && before(3))
        return before(2);
    return std::nullopt;
}

std::optional<double> SpeedHistory::before(std::size_t places) const
{
    const double speed =
        speedHistory[(speedHistoryIndex + speedHistory.size() - places) % speedHistory.size()];
    return speed == None ? std::nullopt : std::optional(speed);
}

InvalidFixGate::Verdict InvalidFixGate::judge(FixSource source, bool fixValid, bool actGNSS, bool actSUPL)
{
    Verdict verdict;
    if (source == FixSource::Satellite) {
        satelliteFixInvalid = !fixValid;
        verdict.forgetNetworkFix = !fixValid && actSUPL && !networkFixInvalid;
    } else if (source == FixSource::Network) {
        networkFixInvalid = !fixValid;
    }
    verdict.holdBack = !fixValid && actGNSS && actSUPL && !(satelliteFixInvalid && networkFixInvalid);
    return verdict;
}
