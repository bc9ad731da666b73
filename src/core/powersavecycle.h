#pragma once

#include "core/methodselection.h"

#include <chrono>
#include <optional>

// The rounds of GNSS power save, without timers: while a receiver only searches and the screen is
// dark, odd rounds allow satellites and even rounds withhold them. The caller owns the timer, and
// reports when it runs out.
class PowerSaveCycle
{
public:
    struct Round {
        std::chrono::milliseconds length{};
        bool countSatellitesAfresh = false; // an allowed round begins
        bool replan = false;                // satellites are allowed or withheld from now on

        bool operator==(const Round &) const = default;
    };

    // -1 off, 0 armed (waiting for a dark screen), otherwise the number of the running round
    int round() const { return powerSaveRound; }
    bool isOff() const { return powerSaveRound == -1; }
    bool withholdsSatellites() const { return powerSaveRound > 0 && powerSaveRound % 2 == 0; }

    // What is to be done about a report of the engine.
    enum class Report { Nothing, Enable, Disable };
    Report afterReport(ReceiverState state) const;
    // What is to be done about the screen going dark or lighting up.
    enum class Screen { Nothing, Rearm, Begin };
    Screen afterScreen(bool blanked) const;

    void arm();
    void disable();
    bool rearm(); // back to waiting; false when there was no round to leave
    // The timer ran out, or round 1 is due. `peakSatellites` is the most satellites heard in one
    // report since the counting began: each buys a round that is to withhold them 20 s of delay, once.
    std::optional<Round> next(int peakSatellites);

private:
    int powerSaveRound = -1;
    bool powerSaveExtended = false; // the round about to begin has been delayed
};
