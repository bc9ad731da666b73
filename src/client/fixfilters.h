#pragma once

#include <array>
#include <optional>

// Who made a fix; the number is what stands in the log.
enum class FixSource : int { Satellite = 0, Network = 1, Other = 2 };

// Network fixes are sent only when they say something new.
class LastNetworkFix
{
public:
    // Degrees and metres; a fix need not come with an accuracy.
    struct Fix {
        double latitude;
        double longitude;
        std::optional<double> accuracy;
    };

    // Nothing stands for an invalid fix. Remembers the fix unless it is a repeat.
    [[nodiscard]] bool isRepeat(const std::optional<Fix> &fix);
    void reset();

private:
    // Zeroes count as a fix like any other: 0, 0 with accuracy 0 is a repeat right after a reset.
    double m_latitude = 0.0;
    double m_longitude = 0.0;
    double m_accuracy = 0.0; // -1 after an invalid fix or one without accuracy
};

// Ground speeds (m/s) of the last four fixes; -1 stands for none.
class SpeedHistory
{
public:
    void clear();
    void record(std::optional<double> speed);
    // The speed to lend to a fix that has none, from the fixes recorded before it.
    [[nodiscard]] std::optional<double> guess(int intervalSeconds) const;

private:
    [[nodiscard]] std::optional<double> before(std::size_t places) const;

    std::array<double, 4> speedHistory{-1.0, -1.0, -1.0, -1.0};
    std::size_t speedHistoryIndex = 0; // slot of the next fix
};

// Holds back the invalid fix of one method while the other may still deliver.
class InvalidFixGate
{
public:
    struct Verdict {
        bool holdBack = false;
        bool forgetNetworkFix = false; // the next network fix is news, even when it says the same
        bool operator==(const Verdict &) const = default;
    };

    [[nodiscard]] Verdict judge(FixSource source, bool fixValid, bool actGNSS, bool actSUPL);
    void clearSatellite() { satelliteFixInvalid = false; }
    void clearNetwork() { networkFixInvalid = false; }

private:
    bool satelliteFixInvalid = false;
    bool networkFixInvalid = false;
};
