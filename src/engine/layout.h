#pragma once

#include "engine/packetview.h"

#include <QtGlobal>

// The one table of the engine protocol: where every field stands, in which unit, and which value
// means "not known". Everything is big-endian except clientId::count. Offsets count from the start
// of the message, or from the start of the sub-block. docs/engine-protocol.md tells the same story
// for readers.
namespace layout {

// Factors from wire units to degrees, metres and metres per second.
namespace unit {
inline constexpr double angle32 = 360.0 / 4294967296.0; // a full turn in 2^32 steps
inline constexpr double centimetre = 0.01;
inline constexpr double halfMetre = 0.5;
inline constexpr double hundredth = 0.01;
inline constexpr int carrierToNoiseFractionBits = 4; // 1/16 dB-Hz
inline constexpr double millisecond = 0.001;
} // namespace unit

inline constexpr std::size_t longestMessage = 8192; // an engine sends no longer one

// Messages and sub-blocks begin alike.
namespace header {
inline constexpr Field<quint16> id{0};
inline constexpr Field<quint16> length{2}; // total, header included
inline constexpr std::size_t size = 4;
} // namespace header

// ---- Daemon to engine ----

namespace gnssRequest { // 0xEF01
inline constexpr Field<quint16> sessionId{4};
inline constexpr Field<quint8> command{8};
inline constexpr Field<quint8> mode{9};       // 2 network connectivity allowed, 1 not allowed
inline constexpr Field<quint16> interval{10}; // s, 0 in a stop
inline constexpr std::size_t size = 12;
} // namespace gnssRequest

namespace suplRequest { // 0xEF04
inline constexpr Field<quint16> requestId{4};
inline constexpr Field<quint16> parameter{6};
inline constexpr Field<quint8> constant{8}; // always 2
inline constexpr std::size_t size = 12;
} // namespace suplRequest

namespace deleteAssistance { // 0xEF0A
inline constexpr Field<quint32> mask{4};
inline constexpr std::size_t size = 8;
} // namespace deleteAssistance

namespace registerPrivacy { // 0xEF0C
inline constexpr std::size_t size = 6;
}

namespace locationReply {                   // 0xEF0F
inline constexpr Field<quint8> accepted{4}; // 1 accepted, 0 rejected
inline constexpr std::size_t size = 6;
} // namespace locationReply

namespace suplServers {                         // 0xEF11
inline constexpr Field<quint8> primaryCount{4}; // bytes
inline constexpr Field<quint8> secondaryCount{5};
inline constexpr Field<quint8> primaryUsage{6};
inline constexpr Field<quint8> secondaryUsage{7};
inline constexpr std::size_t names = 8; // primary, then secondary, no terminators
inline constexpr std::size_t alignment = 4;
} // namespace suplServers

// ---- Engine to daemon ----

namespace gnssResponse { // 0xEF02
inline constexpr Field<quint16> sessionId{4};
inline constexpr Field<quint8> status{6};
inline constexpr std::size_t size = 8;
} // namespace gnssResponse

// What the three messages with sub-blocks share.
namespace blocks {
inline constexpr Field<quint8> count{7};
inline constexpr std::size_t first = 8;
} // namespace blocks

namespace gnssNotification { // 0xEF03
inline constexpr Field<quint16> sessionId{4};
inline constexpr Field<quint8> status{6};
inline constexpr quint8 statusProcess = 0x01; // the report is to be looked at
inline constexpr quint8 statusFix = 0x40;     // position and velocity hold a fix
} // namespace gnssNotification

namespace suplResponse { // 0xEF05
inline constexpr Field<quint8> status{6};
}

namespace result { // 0xEF0B and 0xEF0D
inline constexpr Field<quint8> value{4};
inline constexpr quint8 assistanceDeleted = 1; // the two differ on purpose
inline constexpr quint8 privacyRegistered = 0;
inline constexpr std::size_t size = 8;
} // namespace result

namespace locationRequest {             // 0xEF0E
inline constexpr Field<quint8> type{4}; // 0 and 1 are shown to the user, 4 withdraws
inline constexpr Field<quint8> transactionId{5};
inline constexpr quint8 typeWithdrawn = 4;
} // namespace locationRequest

// ---- Sub-blocks ----

namespace position {                               // 0xEF01
inline constexpr Field<qint32> latitude{4};        // 360/2^32 degree
inline constexpr Field<qint32> longitude{8};       // 360/2^32 degree
inline constexpr Field<qint32> along{12};          // cm, uncertainty along the major axis
inline constexpr Field<qint32> ortho{16};          // cm, uncertainty across it
inline constexpr Field<quint8> angle{20};          // orientation of the ellipse, passed on as it is
inline constexpr Field<qint16> altitude{24};       // half metres above the WGS 84 ellipsoid
inline constexpr Field<quint16> altitudeError{26}; // half metres
inline constexpr Field<qint16> geoid{28};          // half metres, added to altitude
inline constexpr std::size_t size = 30;
} // namespace position

namespace time { // 0xEF02
inline constexpr Field<quint16> year{4};
inline constexpr Field<quint8> month{6};
inline constexpr Field<quint8> day{7};
inline constexpr Field<quint8> hours{9};
inline constexpr Field<quint8> minutes{10};
inline constexpr Field<quint16> milliseconds{12}; // within the minute
inline constexpr std::size_t size = 14;
} // namespace time

namespace velocity {                             // 0xEF03, everything in hundredths
inline constexpr Field<qint16> heading{4};       // 0.01 degree, -180.00 to 180.00
inline constexpr Field<quint16> headingError{6}; // 0.01 degree
inline constexpr Field<qint16> variation{8};     // 0.01 degree
inline constexpr Field<qint16> speed{10};        // 0.01 m/s
inline constexpr Field<quint16> speedError{12};  // 0.01 m/s
inline constexpr Field<qint16> climb{14};        // 0.01 m/s
inline constexpr Field<quint16> climbError{16};  // 0.01 m/s
inline constexpr qint16 headingUnknown = -1;
inline constexpr qint16 variationUnknown = -32768;
inline constexpr qint16 speedUnknown = -1;
inline constexpr qint16 climbUnknown = -32768;
inline constexpr std::size_t size = 18;
} // namespace velocity

namespace satellites { // 0xEF04
inline constexpr Field<quint8> count{4};
inline constexpr std::size_t records = 8;
} // namespace satellites

namespace satellite {                         // one record of 0xEF04
inline constexpr Field<quint8> number{0};     // PRN - 1
inline constexpr Field<quint8> used{1};       // 1 used in the fix
inline constexpr Field<quint16> cno{2};       // 1/16 dB-Hz
inline constexpr Field<quint16> elevation{4}; // 0.01 degree, two's complement
inline constexpr Field<quint16> azimuth{6};   // 0.01 degree
inline constexpr quint8 usedInFix = 1;
inline constexpr quint16 cnoUnknown = 0x8000;
inline constexpr quint16 elevationUnknown = 0xFF80;
inline constexpr quint16 azimuthUnknown = 0xFFFF;
inline constexpr std::size_t size = 8;
} // namespace satellite

namespace clientName {                   // 0xEF12
inline constexpr Field<quint8> count{7}; // UTF-16 code units
inline constexpr std::size_t text = 8;
} // namespace clientName

namespace clientId {                      // 0xEF13
inline constexpr Field<quint16> count{6}; // UTF-16 code units, least significant byte first: on purpose
inline constexpr std::size_t text = 8;
} // namespace clientId

namespace defaultAnswer {                 // 0xEF14
inline constexpr Field<quint8> accept{6}; // non-zero: accepted when the user does not answer
inline constexpr std::size_t size = 8;
} // namespace defaultAnswer
} // namespace layout
