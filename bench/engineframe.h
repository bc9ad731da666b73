#pragma once

#include "engine/enginesidecodec.h"
#include "engine/layout.h"

#include <cstddef>
#include <cstdint>

// The few bytes of the engine protocol that the measuring programs touch themselves.
namespace bench {

inline constexpr std::uint16_t NotificationId = std::uint16_t(MessageId::GnssNotification);
// A fix with coordinate, altitude and six attributes, as clients get it.
inline constexpr std::size_t FixBytes = 37 + 6 * 12;
inline constexpr std::size_t LatitudeOffset = layout::blocks::first + layout::position::latitude.offset;

inline std::uint16_t bigEndian16(const std::uint8_t *bytes)
{
    return std::uint16_t(bytes[0] << 8 | bytes[1]);
}

inline std::uint16_t messageId(const std::uint8_t *packet)
{
    return bigEndian16(packet + layout::header::id.offset);
}

inline std::uint16_t sessionId(const std::uint8_t *packet)
{
    return bigEndian16(packet + layout::gnssNotification::sessionId.offset);
}

// A listening socket in the engine's place, and one that is connected to it; each ends the program when
// that cannot be.
int listenAsEngine();
int connectToEngine();

// A notification with position and velocity, everything known.
QByteArray fixNotification(std::uint16_t session);
// The same with twelve satellites.
QByteArray fullNotification(std::uint16_t session);

} // namespace bench
