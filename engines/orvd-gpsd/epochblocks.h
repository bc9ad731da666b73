#pragma once

#include "engine/messages.h"
#include "orvd-gpsd/reports.h"

#include <optional>
#include <vector>

// From what gpsd reports to the sub-blocks of the engine protocol. What a field cannot hold is
// clamped to its limit or left out, and never wraps.
namespace orvdgpsd {
PositionBlock positionBlock(const FixReport &fix);
std::optional<VelocityBlock> velocityBlock(const FixReport &fix); // nothing when all of it is unknown
TimeBlock timeBlock(ReceiverTime time);                           // UTC
std::vector<SatelliteRecord> satelliteRecords(const SkyReport &sky);
} // namespace orvdgpsd
