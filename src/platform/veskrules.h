#pragma once

#include "platform/veskpositioning.h"

#include <QStringView>

#include <chrono>
#include <limits>
#include <optional>

// What one of GeoClue's locations says. NaN, and 0 seconds: it does not say.
struct NetworkLocation {
    static constexpr double Unknown = std::numeric_limits<double>::quiet_NaN();

    double latitude = Unknown;  // degrees
    double longitude = Unknown; // degrees
    double accuracy = Unknown;  // m, negative when GeoClue does not know it
    double altitude = Unknown;  // m, hugely negative when GeoClue does not know it
    quint64 seconds = 0;        // since 1970
    quint64 microseconds = 0;   // the part below a second
};

// Picks the answer to one request out of the locations that GeoClue reports.
class LocationChoice
{
public:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds OldestUseful{30000}; // before the request
    static constexpr float GoodForWlan = 100.0F;       // m
    static constexpr float GoodForCells = 3000.0F;     // m

    enum class Verdict {
        Useless,    // not a place, or old news
        First,      // the first useful one: better ones may follow
        Useful,     // another one
        GoodEnough, // no need to wait for a better one
    };

    // technologyMask as in the request; requestedAt counts from 1970.
    LocationChoice(unsigned technologyMask, Milliseconds requestedAt);

    Verdict weigh(const NetworkLocation &location);
    // The most accurate one so far, the latest of equals.
    const std::optional<VeskPosition> &best() const { return m_best; }

private:
    bool isUseful(const NetworkLocation &location) const;
    bool isBetter(float accuracy) const;

    unsigned m_technologies;
    Milliseconds m_requestedAt;
    std::optional<VeskPosition> m_best;
};

namespace vesk {

// GeoClue's accuracy levels.
inline constexpr quint32 NeighbourhoodLevel = 5; // cells
inline constexpr quint32 StreetLevel = 6;        // WLAN

// 0, or the code that refuses a position request.
int refusal(const VeskObserver *observer, unsigned technologyMask, VeskPacketDataUsage usage,
            unsigned timeoutSeconds);
quint32 accuracyLevel(unsigned technologyMask);
// What a location of that accuracy (m, NaN for unknown) was found by.
unsigned resultTechnology(unsigned technologyMask, float accuracy);
// How long a request works before it gives its answer.
std::chrono::milliseconds workingTime(unsigned timeoutSeconds, const VeskTimings &timings);
// The code for a D-Bus call of the request that failed.
int codeOf(QStringView errorName);
// NetworkManager's words for the way out: the primary connection's type, and NMMetered.
bool usesPacketData(QStringView connectionType, quint32 metered);

} // namespace vesk
