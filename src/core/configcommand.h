#pragma once

#include <QtGlobal>

#include <optional>
#include <vector>

// What a client's configuration request asks for. A request may carry several commands.
namespace ConfigCommand {
inline constexpr int Start = 0x01;
inline constexpr int Stop = 0x02;
inline constexpr int SetMethod = 0x04;
inline constexpr int SetInterval = 0x08;
inline constexpr int SatInfoStart = 0x10;
inline constexpr int SatInfoStop = 0x20;
} // namespace ConfigCommand

enum class ConfigStep { SetMethod, SetInterval, Start, Stop, SatInfoStart, SatInfoStop };

// The steps in the order of carrying them out, which is not the order of the bits. Unknown bits mean nothing.
std::vector<ConfigStep> configSteps(int command);

// Whole seconds, at least one: milliseconds rounded to the nearest, halves up.
int intervalSeconds(int intervalMs);

// By this interval a client says that it only wants fixes that other clients' sessions produce anyway.
inline constexpr int FreeFixIntervalSeconds = 666;
bool asksForFreeFixes(int command, int intervalSeconds);

// A start is the only command that needs the user's consent.
bool waitsForConsent(int command, bool disclaimerAccepted);

// The methods that warm up the receivers ahead of an application; nothing when neither is wanted.
std::optional<quint32> prestartMethods(bool satellite, bool nonSatellite);
