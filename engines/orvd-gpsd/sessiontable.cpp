#include "orvd-gpsd/sessiontable.h"

#include <algorithm>

namespace orvdgpsd {
namespace {
// The shortest interval means every epoch, also from a receiver that has several in a second.
constexpr quint16 everyEpoch = 1;
} // namespace

void SessionTable::start(quint16 id, quint16 intervalSeconds)
{
    stop(id);
    Session session{};
    session.id = id;
    session.intervalSeconds = intervalSeconds;
    m_sessions.push_back(session);
}

void SessionTable::setInterval(quint16 id, quint16 intervalSeconds)
{
    if (Session *session = find(id))
        session->intervalSeconds = intervalSeconds;
    else
        start(id, intervalSeconds);
}

bool SessionTable::stop(quint16 id)
{
    return std::erase_if(m_sessions, [id](const Session &session) { return session.id == id; }) > 0;
}

std::vector<SessionTable::Delivery> SessionTable::take(const Epoch &epoch, quint64 skyNumber,
                                                       Milliseconds arrival)
{
    std::vector<Delivery> deliveries;
    const Moment now{epoch.time(), arrival};
    for (Session &session : m_sessions) {
        const bool withSky = session.skyNumber != skyNumber;
        auto &last = epoch.fix ? session.lastFix : session.lastSky;
        if ((!epoch.fix && !withSky) || !isDue(last, now, session.intervalSeconds))
            continue;
        last = now;
        session.skyNumber = skyNumber;
        deliveries.push_back({session.id, withSky});
    }
    return deliveries;
}

bool SessionTable::isDue(const std::optional<Moment> &last, const Moment &now, quint16 intervalSeconds)
{
    if (!last || intervalSeconds <= everyEpoch)
        return true;
    const auto least = std::chrono::seconds(intervalSeconds) - Tolerance;
    if (!last->receiver || !now.receiver)
        return now.arrival - last->arrival >= least;
    const auto passed = *now.receiver - *last->receiver;
    // Time that runs backwards is another recording, or the same one from its start.
    return passed < std::chrono::nanoseconds::zero() || passed >= least;
}

SessionTable::Session *SessionTable::find(quint16 id)
{
    const auto found = std::ranges::find(m_sessions, id, &Session::id);
    return found == m_sessions.end() ? nullptr : &*found;
}
} // namespace orvdgpsd
