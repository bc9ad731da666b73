#include "engine/enginesidecodec.h"

#include "engine/layout.h"
#include "engine/messagereader.h"

#include <algorithm>
#include <limits>

namespace {
using Request = engineside::Request;

std::optional<Request> readGnssRequest(PacketView packet)
{
    using namespace layout::gnssRequest;
    const auto code = packet.get(command);
    const GnssRequest request{packet.get(sessionId), GnssCommand{code}, packet.get(mode),
                              packet.get(interval)};
    return packet.ok() && code <= quint8(GnssCommand::Stop) ? std::optional<Request>(request) : std::nullopt;
}

std::optional<Request> readSuplRequest(PacketView packet)
{
    using namespace layout::suplRequest;
    const SuplRequest request{packet.get(requestId), packet.get(parameter), packet.get(constant)};
    return packet.ok() ? std::optional<Request>(request) : std::nullopt;
}

std::optional<Request> readDeleteAssistance(PacketView packet)
{
    const DeleteAssistance request{packet.get(layout::deleteAssistance::mask)};
    return packet.ok() ? std::optional<Request>(request) : std::nullopt;
}

std::optional<Request> readLocationReply(PacketView packet)
{
    const LocationReply reply{packet.get(layout::locationReply::accepted) != 0};
    return packet.ok() ? std::optional<Request>(reply) : std::nullopt;
}

QByteArray text(std::span<const std::byte> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size())};
}

std::optional<Request> readSuplServers(PacketView packet)
{
    using namespace layout::suplServers;
    const auto primary = packet.get(primaryCount);
    const auto secondary = packet.get(secondaryCount);
    const SuplServers servers{{packet.get(primaryUsage), text(packet.bytes(names, primary))},
                              {packet.get(secondaryUsage), text(packet.bytes(names + primary, secondary))}};
    return packet.ok() ? std::optional<Request>(servers) : std::nullopt;
}

PacketWriter engineMessage(MessageId id, std::size_t length)
{
    return PacketWriter(quint16(id), length);
}
PacketWriter block(BlockId id, std::size_t length)
{
    return PacketWriter(quint16(id), length);
}

QByteArray bigEndian(QStringView text)
{
    QByteArray bytes(text.size() * qsizetype(sizeof(char16_t)), Qt::Uninitialized);
    qToBigEndian<char16_t>(text.utf16(), text.size(), bytes.data());
    return bytes;
}
} // namespace

namespace engineside {
std::optional<Request> readRequest(PacketView packet)
{
    const auto header = wire::readHeader(packet);
    if (!header)
        return std::nullopt;
    switch (MessageId{header->id}) {
    case MessageId::GnssRequest:
        return readGnssRequest(packet);
    case MessageId::SuplRequest:
        return readSuplRequest(packet);
    case MessageId::DeleteAssistance:
        return readDeleteAssistance(packet);
    case MessageId::RegisterPrivacy:
        return RegisterPrivacy{};
    case MessageId::LocationReply:
        return readLocationReply(packet);
    case MessageId::SuplServers:
        return readSuplServers(packet);
    default:
        return std::nullopt;
    }
}

QByteArray gnssResponse(const GnssResponse &response)
{
    using namespace layout::gnssResponse;
    return engineMessage(MessageId::GnssResponse, size)
        .set(sessionId, response.sessionId)
        .set(status, response.status)
        .take();
}

QByteArray assistanceDeleted(bool deleted)
{
    const auto value = quint8(deleted ? layout::result::assistanceDeleted : 0);
    return engineMessage(MessageId::AssistanceDeleted, layout::result::size)
        .set(layout::result::value, value)
        .take();
}

QByteArray privacyRegistered(bool registered)
{
    const auto value = quint8(registered ? layout::result::privacyRegistered : 1);
    return engineMessage(MessageId::PrivacyRegistered, layout::result::size)
        .set(layout::result::value, value)
        .take();
}

ReportWriter::ReportWriter(const GnssNotification &notification)
    : m_message(engineMessage(MessageId::GnssNotification, layout::blocks::first))
{
    m_message.set(layout::gnssNotification::sessionId, notification.sessionId)
        .set(layout::gnssNotification::status, notification.status);
}

ReportWriter::ReportWriter(const SuplResponse &response)
    : m_message(engineMessage(MessageId::SuplResponse, layout::blocks::first))
{
    m_message.set(layout::suplResponse::status, quint8(response.status));
}

ReportWriter::ReportWriter(const LocationRequest &request)
    : m_message(engineMessage(MessageId::LocationRequest, layout::blocks::first))
{
    m_message.set(layout::locationRequest::type, request.type)
        .set(layout::locationRequest::transactionId, request.transactionId);
}

bool ReportWriter::add(const PositionBlock &position)
{
    using namespace layout::position;
    return append(block(BlockId::Position, size)
                      .set(latitude, position.latitude)
                      .set(longitude, position.longitude)
                      .set(along, position.along)
                      .set(ortho, position.ortho)
                      .set(angle, position.angle)
                      .set(altitude, position.altitude)
                      .set(altitudeError, position.altitudeError)
                      .set(geoid, position.geoid));
}

bool ReportWriter::add(const TimeBlock &time)
{
    using namespace layout::time;
    return append(block(BlockId::Time, size)
                      .set(year, time.year)
                      .set(month, time.month)
                      .set(day, time.day)
                      .set(hours, time.hours)
                      .set(minutes, time.minutes)
                      .set(milliseconds, time.milliseconds));
}

bool ReportWriter::add(const VelocityBlock &velocity)
{
    using namespace layout::velocity;
    return append(block(BlockId::Velocity, size)
                      .set(heading, velocity.heading)
                      .set(headingError, velocity.headingError)
                      .set(variation, velocity.variation)
                      .set(speed, velocity.speed)
                      .set(speedError, velocity.speedError)
                      .set(climb, velocity.climb)
                      .set(climbError, velocity.climbError));
}

bool ReportWriter::addSatellites(std::span<const SatelliteRecord> records)
{
    using namespace layout::satellite;
    if (records.size() > std::numeric_limits<quint8>::max())
        return false;
    auto satellites = block(BlockId::Satellites, layout::satellites::records + records.size() * size);
    satellites.set(layout::satellites::count, quint8(records.size()));
    std::size_t start = layout::satellites::records;
    for (const SatelliteRecord &record : records) {
        satellites.set(number.at(start), record.number)
            .set(used.at(start), record.used)
            .set(cno.at(start), record.cno)
            .set(elevation.at(start), record.elevation)
            .set(azimuth.at(start), record.azimuth);
        start += size;
    }
    return append(satellites);
}

bool ReportWriter::addClientName(QStringView name)
{
    using namespace layout::clientName;
    if (name.size() > std::numeric_limits<quint8>::max())
        return false;
    return append(block(BlockId::ClientName, layout::clientName::text)
                      .set(count, quint8(name.size()))
                      .append(bigEndian(name)));
}

bool ReportWriter::addClientId(QStringView id)
{
    using namespace layout::clientId;
    if (std::size_t(id.size()) > layout::longestMessage)
        return false;
    return append(block(BlockId::ClientId, layout::clientId::text)
                      .setLittleEndian(count, quint16(id.size()))
                      .append(bigEndian(id)));
}

bool ReportWriter::addDefaultAnswer(bool accept)
{
    using namespace layout::defaultAnswer;
    return append(
        block(BlockId::DefaultAnswer, size).set(layout::defaultAnswer::accept, quint8(accept ? 1 : 0)));
}

bool ReportWriter::addBlock(quint16 id, QByteArrayView body)
{
    if (std::size_t(body.size()) > layout::longestMessage)
        return false;
    return append(PacketWriter(id, layout::header::size).append(body));
}

bool ReportWriter::append(const PacketWriter &subBlock)
{
    const auto total = std::size_t(m_message.bytes().size() + subBlock.bytes().size());
    if (total > layout::longestMessage || m_blocks == std::numeric_limits<quint8>::max())
        return false;
    m_message.append(subBlock.bytes()).set(layout::blocks::count, quint8(++m_blocks));
    return true;
}
} // namespace engineside
