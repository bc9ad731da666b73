#include "engine/fixconversion.h"
#include "engine/fixwatchdog.h"
#include "engine/messagereader.h"
#include "engine/msgsockclient.h"
#include "engine/orvcomm.h"

#include <QDebug>
#include <QLoggingCategory>
#include <QTimer>

#include <algorithm>

namespace {

// Reports come once a second and more: a text that nobody will see is not formatted.
bool isDebugSeen()
{
    return QLoggingCategory::defaultCategory()->isDebugEnabled();
}

} // namespace

void ORVComm::orvInbox(const char *msg)
{
    const auto packet = client->received();
    if (!packet.empty() && static_cast<const void *>(packet.data()) == msg)
        handlePacket(packet);
}

void ORVComm::handlePacket(std::span<const std::byte> packet)
{
    const PacketView message(packet);
    const Header header = wire::readHeader(message).value_or(Header{});
    if (isDebugSeen())
        qDebug("ORV Message received. id: 0x%4.4x length: %d", unsigned(header.id), int(header.length));

    switch (MessageId(header.id)) {
    case MessageId::GnssResponse:
        return handleGNSSResponse(message);
    case MessageId::GnssNotification:
        return handleGNSSNotification(message);
    case MessageId::SuplResponse:
        return handleSUPLResponse(message);
    case MessageId::AssistanceDeleted:
        return handleAstncDelResponse(message);
    case MessageId::PrivacyRegistered:
        return handlePrivacyRegistrationResponse(message);
    case MessageId::LocationRequest:
        return handleLocationRequest(message);
    default:
        return; // nothing that an engine has to say
    }
}

void ORVComm::handleGNSSResponse(PacketView message)
{
    if (const auto response = wire::readGnssResponse(message)) {
        qDebug("ORVComm::handleGNSSResponse() session id: %d, status: 0x%x", int(response->sessionId),
               unsigned(response->status));
    }
}

void ORVComm::handleGNSSNotification(PacketView message)
{
    const auto notification = wire::readGnssNotification(message);
    if (!notification)
        return;
    if (isDebugSeen()) {
        qDebug("ORVComm::handleGNSSNotification() session id: %d, status: 0x%x", int(notification->sessionId),
               unsigned(notification->status));
    }
    // Idle: a late report after the last stop.
    if (gnssState == Idle || !notification->isToBeProcessed())
        return;

    // The engine's own time is not used: a fix is stamped with its arrival.
    gnssInfo = QGeoPositionInfo();
    gnssInfo.setTimestamp(m_clock.now());
    RawFix raw;
    if (!processSubBlocks(gnssInfo, message, notification->hasFix(), &raw))
        return;
    // A receiver of the satellites may have stopped the last session: then this report is late too.
    if (gnssState == Idle)
        return;

    if (gnssState != Tracking)
        setState(Tracking);

    const auto session = findSession(notification->sessionId);
    if (session != sessions.end()) {
        session->timer->start(FixWatchdog::timeout(session->interval));
        emit positionUpdateGNSS(notification->sessionId, gnssInfo);
    }
    if (veskUpdatesEnabled) {
        emit updateVESK(raw.lat, raw.lon, raw.alt, raw.u_along, raw.u_ortho, raw.u_angle, raw.u_alt,
                        raw.g_speed, raw.year, raw.month, raw.day, raw.hours, raw.minutes, raw.mseconds);
    }
}

void ORVComm::handleSUPLResponse(PacketView message)
{
    const auto response = wire::readSuplResponse(message);
    if (!response)
        return;

    suplInfo = QGeoPositionInfo();
    switch (response->status) {
    case SuplStatus::Success:
        suplInfo.setTimestamp(m_clock.now());
        if (!processSubBlocks(suplInfo, message, true, nullptr))
            suplInfo = QGeoPositionInfo();
        break;
    case SuplStatus::ConnectionError:
        qWarning("ORVComm::%s: SUPL connection error", __func__);
        break;
    case SuplStatus::Timeout:
        qWarning("ORVComm::%s: SUPL timeout", __func__);
        break;
    }
    // A failure too: an invalid fix is the answer to whoever waits.
    emit positionUpdateSUPL(suplInfo);
}

void ORVComm::handleAstncDelResponse(PacketView message)
{
    const auto response = wire::readAssistanceDeleted(message);
    if (!response)
        return;
    if (response->deleted)
        qDebug("ORVComm::%s assistance deletion OK", __func__);
    else
        qDebug("ORVCOMM::%s assistance deletion FAILED", __func__);
}

void ORVComm::handlePrivacyRegistrationResponse(PacketView message)
{
    const auto response = wire::readPrivacyRegistered(message);
    if (!response)
        return;
    if (response->registered)
        qDebug("ORVComm::%s privacy reg OK", __func__);
    else
        qCritical("ORVComm::%s privacy req FAILED", __func__);
}

void ORVComm::handleLocationRequest(PacketView message)
{
    const auto request = wire::readLocationRequest(message);
    if (!request)
        return;
    qDebug("Got location request");

    QString name;
    QString id;
    bool defaultAccept = false;
    for (const SubBlock &block : wire::subBlocks(message)) {
        switch (BlockId(block.id)) {
        case BlockId::ClientName:
            if (const auto read = wire::readClientName(block.block)) {
                name = *read;
                qDebug() << "Client name:" << name;
            }
            break;
        case BlockId::ClientId:
            if (const auto read = wire::readClientId(block.block)) {
                id = *read;
                qDebug() << "Client ID:" << id;
            }
            break;
        case BlockId::DefaultAnswer:
            if (const auto read = wire::readDefaultAnswer(block.block))
                defaultAccept = *read;
            break;
        default:
            qDebug() << "Unknown subBlock Id:" << block.id;
        }
    }

    if (request->type <= 1)
        emit locationRequest(request->transactionId, request->type, defaultAccept, name, id);
    else if (request->type == layout::locationRequest::typeWithdrawn)
        emit locationRequestTimeout(request->transactionId);
    else
        qWarning("Unknown location request type!");
}

// True when a position or a velocity went into info.
bool ORVComm::processSubBlocks(QGeoPositionInfo &info, PacketView message, bool fixFlag, RawFix *raw)
{
    bool applied = false;
    for (const SubBlock &block : wire::subBlocks(message)) {
        switch (BlockId(block.id)) {
        case BlockId::Position:
            if (const auto position = wire::readPosition(block.block); position && fixFlag) {
                fixconversion::applyPosition(*position, info, raw);
                applied = true;
                if (isDebugSeen())
                    qDebug().noquote() << fixconversion::positionText(*position);
            }
            break;
        case BlockId::Velocity:
            if (const auto velocity = wire::readVelocity(block.block); velocity && fixFlag) {
                fixconversion::applyVelocity(*velocity, info, raw);
                applied = true;
                if (isDebugSeen())
                    qDebug().noquote() << fixconversion::velocityText(*velocity);
            }
            break;
        case BlockId::Time:
            if (const auto time = wire::readTime(block.block)) {
                if (isDebugSeen())
                    qDebug().noquote() << fixconversion::timeText(*time);
                if (raw)
                    fixconversion::applyTime(*time, *raw);
            }
            break;
        case BlockId::Satellites:
            satellitesUpdateMessage(block.block, fixFlag);
            break;
        case BlockId::Skipped06:
        case BlockId::Skipped15:
            break;
        default:
            qDebug("processSubBlocks(): Ignored block 0x%4.4x.", unsigned(block.id));
        }
    }
    return applied;
}

void ORVComm::satellitesUpdateMessage(PacketView block, bool fixFlag)
{
    const auto records = wire::readSatellites(block);
    if (!records)
        return;
    const int withSignal =
        fixconversion::splitSatellites(*records, satellitesInViewList, satellitesInUseList);
    const fixconversion::SatelliteCounts counts{.inUse = int(satellitesInUseList.size()),
                                                .withSignal = withSignal,
                                                .inView = int(satellitesInViewList.size())};
    if (counts.inView > 0)
        emit satellitesInView(satellitesInViewList);
    if (counts.inUse > 0 && fixFlag)
        emit satellitesInUse(satellitesInUseList);
    if (isDebugSeen())
        qDebug().noquote() << fixconversion::satellitesText(__func__, counts, *records);
    m_peakSignalSatellites = std::max(m_peakSignalSatellites, withSignal);
}
