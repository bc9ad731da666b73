#pragma once

#include "platform/clock.h"

#include <chrono>
#include <limits>
#include <memory>

// Network positioning (WLAN and cells), one request at a time.

namespace vesk {

// Results: of a request call (0 is "accepted"), and of veskRequestFinished().
inline constexpr int Success = 0;
inline constexpr int Cancelled = -2100;
inline constexpr int Busy = -2101;                 // returned: a request is outstanding
inline constexpr int BadArguments = -2102;         // returned: no technology, no time, no observer
inline constexpr int Denied = -2104;               // the user or the system refuses positioning
inline constexpr int UnknownLocation = -2105;      // nothing found in time, or nobody there to find it
inline constexpr int PacketDataNotAllowed = -2107; // the only way out is mobile data or metered
inline constexpr int NotSupported = -2108;         // returned: measurements and their conversion

// Request types, as veskRequestFinished() tells them apart.
inline constexpr int CurrentPosition = 1;
inline constexpr int CurrentMeasurements = 2;
inline constexpr int MeasurementsToPosition = 4;

// Technologies, bits of a mask.
inline constexpr unsigned Wlan = 0x01;
inline constexpr unsigned CellFine = 0x02; // up to 30 km
inline constexpr unsigned Cell = 0x04;
inline constexpr unsigned CellCoarse = 0x08; // beyond 30 km, or accuracy unknown
inline constexpr unsigned Cellular = CellFine | Cell | CellCoarse;

} // namespace vesk

enum class VeskPacketDataUsage : unsigned { Allowed = 1, NotAllowed = 2 };

// Who asked for positions.
class VeskObserver
{
public:
    virtual ~VeskObserver() = default;
    // A request that was accepted has ended: error is vesk::Success or one of the codes above. Called
    // from the event loop, never inside the request call; a new request may be made inside it.
    virtual void veskRequestFinished(int error, int requestType) = 0;
};

// One position. A new record knows nothing.
class VeskPosition
{
public:
    double latitude() const { return m_latitude; }                    // degrees, NaN when unknown
    double longitude() const { return m_longitude; }                  // degrees, NaN when unknown
    float altitude() const { return m_altitude; }                     // m, NaN when unknown
    float horizontalAccuracy() const { return m_horizontal; }         // m, NaN when unknown
    float altitudeAccuracy() const { return m_vertical; }             // m, NaN when unknown
    unsigned timestamp() const { return m_seconds; }                  // s since 1970, 0 for none
    unsigned timestampMicroseconds() const { return m_microseconds; } // the part below a second
    unsigned technologyMask() const { return m_technologies; }        // what produced it

    void setLatitude(double degrees) { m_latitude = degrees; }
    void setLongitude(double degrees) { m_longitude = degrees; }
    void setAltitude(float metres) { m_altitude = metres; }
    void setHorizontalAccuracy(float metres) { m_horizontal = metres; }
    void setAltitudeAccuracy(float metres) { m_vertical = metres; }
    void setTimestamp(unsigned seconds, unsigned microseconds = 0)
    {
        m_seconds = seconds;
        m_microseconds = microseconds;
    }
    void setTechnologyMask(unsigned technologies) { m_technologies = technologies; }

private:
    static constexpr float Unknown = std::numeric_limits<float>::quiet_NaN();

    double m_latitude = std::numeric_limits<double>::quiet_NaN();
    double m_longitude = std::numeric_limits<double>::quiet_NaN();
    float m_altitude = Unknown;
    float m_horizontal = Unknown;
    float m_vertical = Unknown;
    unsigned m_seconds = 0;
    unsigned m_microseconds = 0;
    unsigned m_technologies = 0;
};

// What WLAN and cells look like from here. GeoClue keeps that to itself, so the record stays empty.
class VeskMeasurements
{
};

// The waits of a request; tests make them shorter.
struct VeskTimings {
    using Milliseconds = std::chrono::milliseconds;
    Milliseconds timeoutUnit{1000}; // what a request's time-out counts
    Milliseconds reserve{100};      // a request ends this long before its time-out, so that it keeps it
    Milliseconds settle{2000};      // how long better locations are waited for after the first
};

// Asks GeoClue 2 on the system bus for positions, without ever blocking. Lives on the thread of
// an event loop. An accepted request calls back exactly once, within its time-out; one that
// is outstanding when this object goes calls nobody and is taken back from GeoClue.
class VeskPositioning
{
public:
    explicit VeskPositioning(VeskObserver *observer);
    VeskPositioning(VeskObserver *observer, const VeskTimings &timings, const Clock &clock = Clock::system());
    ~VeskPositioning();
    VeskPositioning(const VeskPositioning &) = delete;
    VeskPositioning &operator=(const VeskPositioning &) = delete;

    // 0 when accepted, else an error. out is written just before a callback that tells of success,
    // and must live until then.
    int currentPositionAsync(VeskPosition &out, unsigned technologyMask, VeskPacketDataUsage usage,
                             unsigned timeoutSeconds);
    // Not supported, either of them.
    int currentMeasurementsAsync(VeskMeasurements &out, unsigned technologyMask, unsigned timeoutSeconds);
    int convertToPositionAsync(VeskPosition &out, const VeskMeasurements &in, VeskPacketDataUsage usage,
                               unsigned timeoutSeconds);

private:
    class Private;
    std::unique_ptr<Private> d;
};
