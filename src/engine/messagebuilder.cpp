#include "engine/messagebuilder.h"

#include "engine/layout.h"
#include "engine/packetwriter.h"

namespace {
PacketWriter message(MessageId id, std::size_t length)
{
    return PacketWriter(quint16(id), length);
}
} // namespace

namespace wire {
QByteArray gnssRequest(const GnssRequest &request)
{
    using namespace layout::gnssRequest;
    return message(MessageId::GnssRequest, size)
        .set(sessionId, request.sessionId)
        .set(command, quint8(request.command))
        .set(mode, request.mode)
        .set(interval, request.intervalSeconds)
        .take();
}

QByteArray suplRequest(const SuplRequest &request)
{
    using namespace layout::suplRequest;
    return message(MessageId::SuplRequest, size)
        .set(requestId, request.requestId)
        .set(parameter, request.parameter)
        .set(constant, request.constant)
        .take();
}

QByteArray deleteAssistance(quint32 mask)
{
    return message(MessageId::DeleteAssistance, layout::deleteAssistance::size)
        .set(layout::deleteAssistance::mask, mask)
        .take();
}

QByteArray registerPrivacy()
{
    return message(MessageId::RegisterPrivacy, layout::registerPrivacy::size).take();
}

QByteArray locationReply(bool accepted)
{
    return message(MessageId::LocationReply, layout::locationReply::size)
        .set(layout::locationReply::accepted, quint8(accepted ? 1 : 0))
        .take();
}

QByteArray suplServers(const SuplServers &servers)
{
    using namespace layout::suplServers;
    const auto primary = quint8(servers.primary.name.size());
    const auto secondary = quint8(servers.secondary.name.size());
    const std::size_t end = names + primary + secondary;
    const std::size_t padded = (end + alignment - 1) / alignment * alignment;
    return message(MessageId::SuplServers, padded)
        .set(primaryCount, primary)
        .set(secondaryCount, secondary)
        .set(primaryUsage, servers.primary.usage)
        .set(secondaryUsage, servers.secondary.usage)
        .setBytes(names, QByteArrayView(servers.primary.name).first(primary))
        .setBytes(names + primary, QByteArrayView(servers.secondary.name).first(secondary))
        .take();
}
} // namespace wire
