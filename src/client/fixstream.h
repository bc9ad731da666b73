#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

class QGeoPositionInfo;
class QGeoSatelliteInfo;

// The byte formats in which clients get fixes and satellite lists: big-endian, in the order of Qt
// Mobility's data stream operators. Qt 6's own operators write other layouts.
//
// Fix: u32 Julian day (0 for none), u32 milliseconds of the day (0xFFFFFFFF for none), s8 time
// specification (0 local time), doubles latitude, longitude (degrees) and altitude (m), each NaN
// where not set, u32 N, N times (s32 code, double). The codes are those of
// QGeoPositionInfo::Attribute, 0 to 5; their order says nothing.
//
// Satellite list: s32 count, then for each satellite s32 PRN, s32 signal strength (dB-Hz, -1 not
// known), u32 N, N times (s32 code, double): 0 elevation, 1 azimuth (degrees).
namespace FixStream {

[[nodiscard]] QByteArray writeFix(const QGeoPositionInfo &fix);
[[nodiscard]] QByteArray writeSatellites(const QList<QGeoSatelliteInfo> &satellites);

// Nothing unless the bytes are one whole fix or list, with nothing missing and nothing left over.
[[nodiscard]] std::optional<QGeoPositionInfo> readFix(QByteArrayView bytes);
[[nodiscard]] std::optional<QList<QGeoSatelliteInfo>> readSatellites(QByteArrayView bytes);

} // namespace FixStream
