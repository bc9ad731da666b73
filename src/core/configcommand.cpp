#include "core/configcommand.h"

#include "core/methodselection.h"

namespace {

struct CommandBit {
    int bit;
    ConfigStep step;
};

constexpr CommandBit CommandTable[] = {
    {ConfigCommand::SetMethod, ConfigStep::SetMethod},
    {ConfigCommand::SetInterval, ConfigStep::SetInterval},
    {ConfigCommand::Start, ConfigStep::Start},
    {ConfigCommand::Stop, ConfigStep::Stop},
    {ConfigCommand::SatInfoStart, ConfigStep::SatInfoStart},
    {ConfigCommand::SatInfoStop, ConfigStep::SatInfoStop},
};

} // namespace

std::vector<ConfigStep> configSteps(int command)
{
    std::vector<ConfigStep> steps;
    for (const CommandBit &row : CommandTable) {
        if (command & row.bit)
            steps.push_back(row.step);
    }
    return steps;
}

int intervalSeconds(int intervalMs)
{
    if (intervalMs < 1000)
        return 1;
    return int((qint64(intervalMs) + 500) / 1000);
}

bool asksForFreeFixes(int command, int intervalSeconds)
{
    return (command & ConfigCommand::SetInterval) && intervalSeconds == FreeFixIntervalSeconds;
}

bool waitsForConsent(int command, bool disclaimerAccepted)
{
    return (command & ConfigCommand::Start) && !disclaimerAccepted;
}

std::optional<quint32> prestartMethods(bool satellite, bool nonSatellite)
{
    if (!satellite && !nonSatellite)
        return std::nullopt;
    return (satellite ? Methods::Satellite : 0) | (nonSatellite ? Methods::NonSatellite : 0);
}
