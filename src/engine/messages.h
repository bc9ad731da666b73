#pragma once

#include "engine/layout.h"

#include <QByteArray>
#include <QtGlobal>

// The messages and sub-blocks of the engine protocol as plain structs of raw wire values; units and
// "not known" values stand in layout.h, conversions in fixconversion.h.

// Message and sub-block ids share one range and are told apart by where they stand.
enum class MessageId : quint16 {
    GnssRequest = 0xEF01,
    GnssResponse = 0xEF02,
    GnssNotification = 0xEF03,
    SuplRequest = 0xEF04,
    SuplResponse = 0xEF05,
    DeleteAssistance = 0xEF0A,
    AssistanceDeleted = 0xEF0B,
    RegisterPrivacy = 0xEF0C,
    PrivacyRegistered = 0xEF0D,
    LocationRequest = 0xEF0E,
    LocationReply = 0xEF0F,
    SuplServers = 0xEF11,
};

enum class BlockId : quint16 {
    Position = 0xEF01,
    Time = 0xEF02,
    Velocity = 0xEF03,
    Satellites = 0xEF04,
    Skipped06 = 0xEF06, // known, never read
    ClientName = 0xEF12,
    ClientId = 0xEF13,
    DefaultAnswer = 0xEF14,
    Skipped15 = 0xEF15, // known, never read
};

enum class GnssCommand : quint8 { Start = 0, ChangeInterval = 1, Stop = 2 };

struct Header {
    quint16 id = 0;
    quint16 length = 0; // as the sender wrote it; what was received decides
    bool operator==(const Header &) const = default;
};

// ---- Daemon to engine ----

struct GnssRequest {
    quint16 sessionId = 0;
    GnssCommand command = GnssCommand::Start;
    quint8 mode = 2;
    quint16 intervalSeconds = 0;
    bool operator==(const GnssRequest &) const = default;
};

struct SuplRequest {
    quint16 requestId = 0;
    quint16 parameter = 0;
    quint8 constant = 0;
    bool operator==(const SuplRequest &) const = default;
};

struct DeleteAssistance {
    quint32 mask = 0;
    bool operator==(const DeleteAssistance &) const = default;
};

struct RegisterPrivacy {
    bool operator==(const RegisterPrivacy &) const = default;
};

struct LocationReply {
    bool accepted = false;
    bool operator==(const LocationReply &) const = default;
};

struct SuplServer {
    quint8 usage = 0;
    QByteArray name; // ASCII
    bool operator==(const SuplServer &) const = default;
};

struct SuplServers {
    SuplServer primary;
    SuplServer secondary;
    bool operator==(const SuplServers &) const = default;
};

// ---- Engine to daemon ----

struct GnssResponse {
    quint16 sessionId = 0;
    quint8 status = 0;
    bool operator==(const GnssResponse &) const = default;
};

struct GnssNotification {
    quint16 sessionId = 0;
    quint8 status = 0; // bits in layout::gnssNotification
    bool operator==(const GnssNotification &) const = default;

    bool isToBeProcessed() const { return (status & layout::gnssNotification::statusProcess) != 0; }
    bool hasFix() const { return (status & layout::gnssNotification::statusFix) != 0; }
};

enum class SuplStatus : quint8 { Success = 0, ConnectionError = 1, Timeout = 2 };

struct SuplResponse {
    SuplStatus status = SuplStatus::Success; // other values happen
    bool operator==(const SuplResponse &) const = default;
};

struct AssistanceDeleted {
    bool deleted = false;
    bool operator==(const AssistanceDeleted &) const = default;
};

struct PrivacyRegistered {
    bool registered = false;
    bool operator==(const PrivacyRegistered &) const = default;
};

struct LocationRequest {
    quint8 type = 0;
    quint8 transactionId = 0;
    bool operator==(const LocationRequest &) const = default;
};

// ---- Sub-blocks ----

struct PositionBlock {
    qint32 latitude = 0;
    qint32 longitude = 0;
    qint32 along = 0;
    qint32 ortho = 0;
    quint8 angle = 0;
    qint16 altitude = 0;
    quint16 altitudeError = 0;
    qint16 geoid = 0;
    bool operator==(const PositionBlock &) const = default;
};

struct TimeBlock {
    quint16 year = 0;
    quint8 month = 0;
    quint8 day = 0;
    quint8 hours = 0;
    quint8 minutes = 0;
    quint16 milliseconds = 0; // within the minute
    bool operator==(const TimeBlock &) const = default;
};

struct VelocityBlock {
    qint16 heading = -1;
    quint16 headingError = 0;
    qint16 variation = -32768;
    qint16 speed = -1;
    quint16 speedError = 0;
    qint16 climb = -32768;
    quint16 climbError = 0;
    bool operator==(const VelocityBlock &) const = default;
};

struct SatelliteRecord {
    quint8 number = 0; // PRN - 1
    quint8 used = 0;
    quint16 cno = 0x8000;
    quint16 elevation = 0xFF80;
    quint16 azimuth = 0xFFFF;
    bool operator==(const SatelliteRecord &) const = default;
};
