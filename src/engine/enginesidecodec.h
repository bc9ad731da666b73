#pragma once

#include "engine/messages.h"
#include "engine/packetview.h"
#include "engine/packetwriter.h"

#include <QByteArray>
#include <QStringView>

#include <optional>
#include <span>
#include <variant>

// The engine's side of the protocol, for programs and tests that play the engine.
namespace engineside {
using Request =
    std::variant<GnssRequest, SuplRequest, DeleteAssistance, RegisterPrivacy, LocationReply, SuplServers>;

// Nothing for an id that a daemon never sends, a GNSS command beyond stop, and a packet that is too
// short for what it claims to hold.
std::optional<Request> readRequest(PacketView packet);

QByteArray gnssResponse(const GnssResponse &response);
QByteArray assistanceDeleted(bool deleted);
QByteArray privacyRegistered(bool registered);

// Writes a message with sub-blocks: begin with the message, add the sub-blocks in the order they
// shall have, take the bytes. A sub-block that would make the message longer than the daemon's
// receive buffer, or is one more than the count can say, is left out and false returned.
class ReportWriter
{
public:
    explicit ReportWriter(const GnssNotification &notification);
    explicit ReportWriter(const SuplResponse &response);
    explicit ReportWriter(const LocationRequest &request);

    bool add(const PositionBlock &block);
    bool add(const TimeBlock &block);
    bool add(const VelocityBlock &block);
    bool addSatellites(std::span<const SatelliteRecord> records); // at most 255
    bool addClientName(QStringView name);                         // at most 255 code units
    bool addClientId(QStringView id);
    bool addDefaultAnswer(bool accept);
    bool addBlock(quint16 id, QByteArrayView body); // any other sub-block, without its header

    const QByteArray &bytes() const { return m_message.bytes(); }

private:
    bool append(const PacketWriter &subBlock);

    PacketWriter m_message;
    int m_blocks = 0;
};
} // namespace engineside
