#include "engine/wirechecks.h"

#include "engine/enginesidecodec.h"
#include "engine/fixconversion.h"
#include "engine/layout.h"
#include "engine/messagebuilder.h"
#include "engine/messagereader.h"

#include <QGeoPositionInfo>

#include <algorithm>
#include <cmath>

#define HOLDS(condition, sentence)                                                                           \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            return sentence;                                                                                 \
    } while (false)

namespace {
using wirechecks::Bytes;

bool lies(Bytes part, Bytes whole)
{
    return part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size();
}

const char *position(PacketView block)
{
    const auto read = wire::readPosition(block);
    HOLDS(read.has_value() == (block.size() >= layout::position::size),
          "a position is read exactly when all of it is there");
    if (!read)
        return nullptr;
    QGeoPositionInfo info;
    RawFix raw;
    fixconversion::applyPosition(*read, info, &raw);
    HOLDS(std::abs(raw.lat) <= 180 && std::abs(raw.lon) <= 180, "angles stay within a turn");
    HOLDS(info.coordinate().isValid() == (std::abs(raw.lat) <= 90), "a latitude on Earth makes it valid");
    for (auto which : {QGeoPositionInfo::HorizontalAccuracy, QGeoPositionInfo::VerticalAccuracy}) {
        const double value = info.attribute(which);
        HOLDS(value == double(float(value)), "attributes are single precision");
    }
    HOLDS(fixconversion::positionText(*read).startsWith(QLatin1String("POSDBG: ")),
          "the text is a position's");
    return nullptr;
}

const char *velocity(PacketView block)
{
    const auto read = wire::readVelocity(block);
    HOLDS(read.has_value() == (block.size() >= layout::velocity::size),
          "a velocity is read exactly when all of it is there");
    if (!read)
        return nullptr;
    QGeoPositionInfo info;
    RawFix raw;
    fixconversion::applyVelocity(*read, info, &raw);
    HOLDS(info.hasAttribute(QGeoPositionInfo::GroundSpeed) == (raw.g_speed != RawFix::NoSpeed),
          "both records know the speed or neither does");
    HOLDS(fixconversion::velocityText(*read).startsWith(QLatin1String("VELDBG: ")),
          "the text is a velocity's");
    return nullptr;
}

const char *time(PacketView block)
{
    const auto read = wire::readTime(block);
    HOLDS(read.has_value() == (block.size() >= layout::time::size),
          "a time is read exactly when all of it is there");
    if (!read)
        return nullptr;
    RawFix raw;
    fixconversion::applyTime(*read, raw);
    HOLDS(raw.year == read->year && raw.mseconds == read->milliseconds, "times pass unchanged");
    HOLDS(!fixconversion::timeText(*read).isEmpty(), "a time has a text");
    return nullptr;
}

const char *satellites(PacketView block)
{
    const auto records = wire::readSatellites(block);
    if (!records)
        return nullptr;
    const std::size_t claimed = block.get(layout::satellites::count);
    const auto there = block.from(layout::satellites::records).size() / layout::satellite::size;
    HOLDS(records->size() == std::min(claimed, there), "records are clamped to what is there");
    std::size_t walked = 0;
    for ([[maybe_unused]] const SatelliteRecord &record : *records)
        ++walked;
    HOLDS(walked == records->size(), "as many records are walked as there are");

    QList<QGeoSatelliteInfo> inView;
    QList<QGeoSatelliteInfo> inUse;
    const int heard = fixconversion::splitSatellites(*records, inView, inUse);
    HOLDS(heard <= inView.size(), "what is heard is in view");
    HOLDS(inUse.size() <= inView.size(), "what is used is in view");
    HOLDS(std::size_t(inView.size()) <= records->size(), "what is in view was reported");
    const auto text =
        fixconversion::satellitesText("fuzz", {int(inUse.size()), heard, int(inView.size())}, *records);
    HOLDS(std::size_t(text.count(u'\n')) == (records->size() + 5) / 6, "six records fill a line");
    return nullptr;
}

const char *text(const std::optional<QString> &text, std::size_t claimed, std::size_t blockSize)
{
    if (!text)
        return nullptr;
    const auto units = std::size_t(text->size());
    HOLDS(units <= claimed, "a text is no longer than its count");
    HOLDS(units * 2 <= blockSize, "a text is no longer than its sub-block");
    HOLDS(!text->contains(QChar::Null), "a text ends at its first zero");
    return nullptr;
}

const char *subBlock(const SubBlock &sub)
{
    switch (BlockId{sub.id}) {
    case BlockId::Position:
        return position(sub.block);
    case BlockId::Time:
        return time(sub.block);
    case BlockId::Velocity:
        return velocity(sub.block);
    case BlockId::Satellites:
        return satellites(sub.block);
    case BlockId::ClientName:
    case BlockId::ClientId:
    case BlockId::DefaultAnswer:
        return wirechecks::texts(sub.block.all());
    default:
        return nullptr;
    }
}

const char *walk(const SubBlocks &blocks, Bytes rest, std::size_t count)
{
    for (const SubBlock &sub : blocks) {
        HOLDS(count-- > 0, "there are no more sub-blocks than counted");
        HOLDS(sub.block.size() >= layout::header::size, "a sub-block holds its own header");
        HOLDS(lies(sub.block.all(), rest), "a sub-block lies within the packet");
        HOLDS(sub.block.all().data() == rest.data(), "sub-blocks follow each other");
        rest = rest.subspan(sub.block.size());
        if (const auto *broken = subBlock(sub))
            return broken;
    }
    return nullptr;
}

QByteArray rebuild(const engineside::Request &request)
{
    struct Build {
        QByteArray operator()(const GnssRequest &r) const { return wire::gnssRequest(r); }
        QByteArray operator()(const SuplRequest &r) const { return wire::suplRequest(r); }
        QByteArray operator()(const DeleteAssistance &r) const { return wire::deleteAssistance(r.mask); }
        QByteArray operator()(const RegisterPrivacy &) const { return wire::registerPrivacy(); }
        QByteArray operator()(const LocationReply &r) const { return wire::locationReply(r.accepted); }
        QByteArray operator()(const SuplServers &r) const { return wire::suplServers(r); }
    };
    return std::visit(Build{}, request);
}
} // namespace

namespace wirechecks {
const char *packet(Bytes packet)
{
    const PacketView message(packet);
    const auto header = wire::readHeader(message);
    HOLDS(header.has_value() == (packet.size() >= layout::header::size), "four bytes are a header");
    if (!header)
        return nullptr;
    const auto size = packet.size();
    switch (MessageId{header->id}) {
    case MessageId::GnssResponse:
        HOLDS(wire::readGnssResponse(message).has_value() == (size >= 7),
              "a response is read when it is whole");
        return nullptr;
    case MessageId::AssistanceDeleted:
        HOLDS(wire::readAssistanceDeleted(message).has_value() == (size >= 5),
              "a deletion is read when it is whole");
        return nullptr;
    case MessageId::PrivacyRegistered:
        HOLDS(wire::readPrivacyRegistered(message).has_value() == (size >= 5),
              "a registration is read when it is whole");
        return nullptr;
    case MessageId::GnssNotification:
        HOLDS(wire::readGnssNotification(message).has_value() == (size >= 8),
              "a report is read when it is whole");
        break;
    case MessageId::SuplResponse:
        HOLDS(wire::readSuplResponse(message).has_value() == (size >= 8),
              "a position is read when it is whole");
        break;
    case MessageId::LocationRequest:
        HOLDS(wire::readLocationRequest(message).has_value() == (size >= 8),
              "a request is read when it is whole");
        break;
    default:
        return nullptr;
    }
    if (size < layout::blocks::first)
        return walk(wire::subBlocks(message), {}, 0);
    return walk(wire::subBlocks(message), packet.subspan(layout::blocks::first),
                std::to_integer<std::size_t>(packet[layout::blocks::count.offset]));
}

const char *subBlocks(Bytes countAndSubBlocks)
{
    if (countAndSubBlocks.empty())
        return nullptr;
    const auto count = std::to_integer<unsigned>(countAndSubBlocks.front());
    const auto blocks = countAndSubBlocks.subspan(1);
    return walk(SubBlocks(blocks, count), blocks, count);
}

const char *texts(Bytes block)
{
    PacketView view(block);
    if (const auto *broken =
            text(wire::readClientName(view), view.get(layout::clientName::count), block.size()))
        return broken;
    if (const auto *broken =
            text(wire::readClientId(view), view.getLittleEndian(layout::clientId::count), block.size()))
        return broken;
    HOLDS(wire::readDefaultAnswer(PacketView(block)).has_value() == (block.size() >= 7),
          "a default answer is read when it is there");
    return nullptr;
}

const char *request(Bytes packet)
{
    const auto read = engineside::readRequest(PacketView(packet));
    if (!read)
        return nullptr;
    const auto built = rebuild(*read);
    HOLDS(engineside::readRequest(PacketView::of(built)) == read,
          "a request that is built again reads the same");
    return nullptr;
}
} // namespace wirechecks
