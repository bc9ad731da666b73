#include "engine/orvcomm.h"

#include "engine/fixwatchdog.h"
#include "engine/messagebuilder.h"
#include "engine/msgsockclient.h"

#include <QDebug>
#include <QTimer>

#include <algorithm>
#include <limits>

namespace {

constexpr quint8 SuplRequestConstant = 2;
constexpr quint32 SuplRequestIdMask = 0xFFF;

// The masks that the daemon itself deletes by; any other goes out without a line.
constexpr bool isWellKnownMask(quint32 mask)
{
    return mask == 0x01 || mask == 0xFD || mask == 0xFF;
}

// What the protocol's field can hold of an interval in seconds: the nearest.
constexpr quint16 sessionInterval(int seconds)
{
    return quint16(std::clamp(seconds, 0, int(std::numeric_limits<quint16>::max())));
}

} // namespace

ORVComm::ORVComm(const DevicePaths &paths, const Clock &clock)
    : client(std::make_unique<MsgSockClient>())
    , m_paths(paths)
    , m_clock(clock)
{
}

ORVComm::~ORVComm() = default;

int ORVComm::startGNSS(quint16 sessionId, int interval)
{
    qDebug() << "ORVComm::startGNSS(" << sessionId << "," << interval << ")";
    const quint16 seconds = sessionInterval(interval);
    send(wire::gnssRequest({sessionId, GnssCommand::Start, gnssMode, seconds}));
    if (gnssState == Idle)
        setState(Search);

    QTimer *timer = appendSession(sessionId, seconds).timer;
    timer->start(gnssState == Search ? FixWatchdog::FirstFix : FixWatchdog::timeout(seconds));
    return 0;
}

int ORVComm::setGNSSInterval(quint16 sessionId, int interval)
{
    qDebug() << "ORVComm::setGNSSInterval(" << sessionId << "," << interval << ")";
    const quint16 seconds = sessionInterval(interval);
    send(wire::gnssRequest({sessionId, GnssCommand::ChangeInterval, gnssMode, seconds}));

    // Either way the session's next fix starts the watchdog with the new interval.
    const auto session = findSession(sessionId);
    if (session != sessions.end())
        session->interval = seconds;
    else
        appendSession(sessionId, seconds);
    return 0;
}

int ORVComm::stopGNSS(quint16 sessionId)
{
    qDebug() << "ORVComm::stopGNSS(" << sessionId << ")";
    send(wire::gnssRequest({sessionId, GnssCommand::Stop, gnssMode, 0}));

    const auto session = findSession(sessionId);
    if (session != sessions.end()) {
        session->timer->stop();
        session->timer->deleteLater(); // its time-out may be what led here
        sessions.erase(session);
    }
    // Told every time, also when it was known before.
    if (sessions.empty())
        setState(Idle);
    return 0;
}

int ORVComm::deleteAssistanceData(quint32 mask)
{
    if (isWellKnownMask(mask))
        qDebug() << "deleteAssistanceData 0x" << Qt::bin << mask; // binary digits behind 0x: kept
    send(wire::deleteAssistance(mask));
    return 0;
}

int ORVComm::sendSUPLLocationRequest(quint16 parameter)
{
    suplRequestId = (suplRequestId + 1) & SuplRequestIdMask;
    send(wire::suplRequest({quint16(suplRequestId), parameter, SuplRequestConstant}));
    return 0;
}

int ORVComm::sendSUPLServerInfo(int primaryUsage, QString primary, int secondaryUsage, QString secondary)
{
    qDebug("Sending SUPL server information to ORV");
    qDebug() << "Primary SUPL server: " << primary << " usage:" << primaryUsage;
    qDebug() << "Secondary SUPL server: " << secondary << "usage: " << secondaryUsage;
    qDebug("Sending SUPL server information to ORV");
    send(wire::suplServers({.primary = {quint8(primaryUsage), primary.toLatin1()},
                            .secondary = {quint8(secondaryUsage), secondary.toLatin1()}}));
    return 0;
}

void ORVComm::sendLocationRequestReply(bool reply)
{
    qDebug() << "Sending location request reply:" << reply;
    send(wire::locationReply(reply));
}

void ORVComm::timeoutGNSS()
{
    if (gnssState != Search)
        setState(Search);

    // Receivers may start and stop sessions.
    std::vector<quint16> silent;
    for (const GnssSession &session : sessions) {
        if (!session.timer->isActive())
            silent.push_back(session.sessionId);
    }
    for (const quint16 sessionId : silent) {
        if (findSession(sessionId) != sessions.end())
            emit updateTimeoutGNSS(sessionId);
    }
}

// A lost engine shows elsewhere; the transport logs what it could not send.
void ORVComm::send(const QByteArray &message)
{
    client->send(message.constData());
}

std::vector<ORVComm::GnssSession>::iterator ORVComm::findSession(quint16 sessionId)
{
    return std::find_if(sessions.begin(), sessions.end(),
                        [sessionId](const GnssSession &session) { return session.sessionId == sessionId; });
}

// A second record for the same id is possible: the first one in order is the one that counts.
ORVComm::GnssSession &ORVComm::appendSession(quint16 sessionId, quint16 intervalSeconds)
{
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, this, &ORVComm::timeoutGNSS);
    sessions.push_back({sessionId, intervalSeconds, timer});
    return sessions.back();
}

// The state first: whoever hears of it may start and stop sessions at once.
void ORVComm::setState(GNSSState state)
{
    gnssState = state;
    emit GNSSStateUpdated(state);
}
