#pragma once

#include "orvd-gpsd/reports.h"

#include <QtGlobal>

#include <chrono>
#include <optional>
#include <vector>

// The GNSS sessions of one connection, and which of them an epoch is for. Time is the receiver's own,
// so that a recording fed faster than it was made is thinned as it would have been then; where the
// receiver has no time, the time of arrival counts.
namespace orvdgpsd {
class SessionTable
{
public:
    using Milliseconds = std::chrono::milliseconds;
    // A receiver's seconds are not all equally long.
    static constexpr Milliseconds Tolerance{100};

    void start(quint16 id, quint16 intervalSeconds);       // an id that runs already starts over
    void setInterval(quint16 id, quint16 intervalSeconds); // an unknown id is started
    bool stop(quint16 id);                                 // false for an unknown id
    bool isEmpty() const { return m_sessions.empty(); }

    struct Delivery {
        quint16 sessionId;
        bool withSky; // this session has not had the latest sky yet
        bool operator==(const Delivery &) const = default;
    };
    // Who gets this epoch. `skyNumber` counts the skies that came so far. An epoch without a fix is for
    // the sky only.
    std::vector<Delivery> take(const Epoch &epoch, quint64 skyNumber, Milliseconds arrival);

private:
    struct Moment {
        std::optional<ReceiverTime> receiver;
        Milliseconds arrival;
    };
    struct Session {
        quint16 id;
        quint16 intervalSeconds;
        std::optional<Moment> lastFix;
        std::optional<Moment> lastSky; // sent without a fix
        quint64 skyNumber = 0;
    };
    static bool isDue(const std::optional<Moment> &last, const Moment &now, quint16 intervalSeconds);
    Session *find(quint16 id);

    std::vector<Session> m_sessions;
};
} // namespace orvdgpsd
