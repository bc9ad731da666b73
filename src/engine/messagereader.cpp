#include "engine/messagereader.h"

#include "engine/layout.h"

#include <algorithm>

SubBlocks::Iterator::Iterator(std::span<const std::byte> rest, unsigned left)
    : m_rest(rest)
    , m_left(left)
{
    look();
}

SubBlocks::Iterator &SubBlocks::Iterator::operator++()
{
    m_rest = m_rest.subspan(m_current.block.size());
    --m_left;
    look();
    return *this;
}

void SubBlocks::Iterator::look()
{
    if (m_left == 0)
        return;
    PacketView rest(m_rest);
    const auto header = wire::readHeader(rest);
    if (!header || header->length < layout::header::size || header->length > m_rest.size()) {
        m_left = 0;
        return;
    }
    m_current = SubBlock{header->id, PacketView(m_rest.first(header->length))};
}

SatelliteRecord SatelliteRecords::Iterator::operator*() const
{
    using namespace layout::satellite;
    PacketView record(m_rest);
    return SatelliteRecord{record.get(number), record.get(used), record.get(cno), record.get(elevation),
                           record.get(azimuth)};
}

SatelliteRecords::Iterator &SatelliteRecords::Iterator::operator++()
{
    m_rest = m_rest.subspan(layout::satellite::size);
    return *this;
}

std::size_t SatelliteRecords::size() const
{
    return m_bytes.size() / layout::satellite::size;
}

namespace {
// Texts come in as UTF-16 and end at the first zero; unpaired surrogates pass as they are.
QString decodeText(PacketView block, std::size_t offset, std::size_t units)
{
    const auto bytes = block.from(offset).all();
    const auto count = std::min(units, bytes.size() / sizeof(char16_t));
    QString text(qsizetype(count), Qt::Uninitialized);
    qFromBigEndian<char16_t>(bytes.data(), qsizetype(count), text.data());
    const auto zero = text.indexOf(QChar::Null);
    if (zero >= 0)
        text.truncate(zero);
    return text;
}
} // namespace

namespace wire {
std::optional<Header> readHeader(PacketView packet)
{
    using namespace layout::header;
    const Header result{packet.get(id), packet.get(length)};
    return packet.ok() ? std::optional(result) : std::nullopt;
}

std::optional<GnssResponse> readGnssResponse(PacketView message)
{
    using namespace layout::gnssResponse;
    const GnssResponse result{message.get(sessionId), message.get(status)};
    return message.ok() ? std::optional(result) : std::nullopt;
}

std::optional<GnssNotification> readGnssNotification(PacketView message)
{
    using namespace layout::gnssNotification;
    const GnssNotification result{message.get(sessionId), message.get(status)};
    return message.size() >= layout::blocks::first ? std::optional(result) : std::nullopt;
}

std::optional<SuplResponse> readSuplResponse(PacketView message)
{
    const SuplResponse result{SuplStatus{message.get(layout::suplResponse::status)}};
    return message.size() >= layout::blocks::first ? std::optional(result) : std::nullopt;
}

std::optional<AssistanceDeleted> readAssistanceDeleted(PacketView message)
{
    using namespace layout::result;
    const AssistanceDeleted result{message.get(value) == assistanceDeleted};
    return message.ok() ? std::optional(result) : std::nullopt;
}

std::optional<PrivacyRegistered> readPrivacyRegistered(PacketView message)
{
    using namespace layout::result;
    const PrivacyRegistered result{message.get(value) == privacyRegistered};
    return message.ok() ? std::optional(result) : std::nullopt;
}

std::optional<LocationRequest> readLocationRequest(PacketView message)
{
    using namespace layout::locationRequest;
    const LocationRequest result{message.get(type), message.get(transactionId)};
    return message.size() >= layout::blocks::first ? std::optional(result) : std::nullopt;
}

SubBlocks subBlocks(PacketView message)
{
    const auto count = message.get(layout::blocks::count);
    return {message.from(layout::blocks::first).all(), count};
}

std::optional<PositionBlock> readPosition(PacketView block)
{
    using namespace layout::position;
    const PositionBlock result{block.get(latitude),      block.get(longitude), block.get(along),
                               block.get(ortho),         block.get(angle),     block.get(altitude),
                               block.get(altitudeError), block.get(geoid)};
    return block.ok() ? std::optional(result) : std::nullopt;
}

std::optional<TimeBlock> readTime(PacketView block)
{
    using namespace layout::time;
    const TimeBlock result{block.get(year),  block.get(month),   block.get(day),
                           block.get(hours), block.get(minutes), block.get(milliseconds)};
    return block.ok() ? std::optional(result) : std::nullopt;
}

std::optional<VelocityBlock> readVelocity(PacketView block)
{
    using namespace layout::velocity;
    const VelocityBlock result{block.get(heading),   block.get(headingError), block.get(variation),
                               block.get(speed),     block.get(speedError),   block.get(climb),
                               block.get(climbError)};
    return block.ok() ? std::optional(result) : std::nullopt;
}

std::optional<SatelliteRecords> readSatellites(PacketView block)
{
    const std::size_t claimed = block.get(layout::satellites::count);
    if (!block.ok())
        return std::nullopt;
    const auto bytes = block.from(layout::satellites::records).all();
    const auto count = std::min(claimed, bytes.size() / layout::satellite::size);
    return SatelliteRecords(bytes.first(count * layout::satellite::size));
}

std::optional<QString> readClientName(PacketView block)
{
    const auto units = block.get(layout::clientName::count);
    return block.ok() ? std::optional(decodeText(block, layout::clientName::text, units)) : std::nullopt;
}

std::optional<QString> readClientId(PacketView block)
{
    const auto units = block.getLittleEndian(layout::clientId::count);
    return block.ok() ? std::optional(decodeText(block, layout::clientId::text, units)) : std::nullopt;
}

std::optional<bool> readDefaultAnswer(PacketView block)
{
    const auto accept = block.get(layout::defaultAnswer::accept);
    return block.ok() ? std::optional(accept != 0) : std::nullopt;
}
} // namespace wire
