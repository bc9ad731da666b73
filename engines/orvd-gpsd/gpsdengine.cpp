#include "orvd-gpsd/gpsdengine.h"

#include "engine/layout.h"
#include "orvd-gpsd/daemonconnection.h"
#include "orvd-gpsd/epochblocks.h"

#include <QDebug>
#include <QSocketNotifier>

#include <algorithm>
#include <utility>
#include <variant>

namespace orvdgpsd {
using namespace std::chrono_literals;
namespace {
// gpsd on this machine answers or refuses at once; one that starts later shall lose nothing.
constexpr auto firstReconnectDelay = 100ms;
constexpr auto longestReconnectDelay = 1000ms;
// A daemon that plans anew stops its sessions and starts them again.
constexpr auto lingerTime = 10s;
// So long a daemon waits to be accepted when this process has no descriptor left for it.
constexpr auto acceptPause = 1s;
// A receiver this slow within an epoch cannot keep up with one epoch a second.
constexpr auto longestSettleTime = 1600ms;
// A single fix may be this old, and is waited for this long.
constexpr auto freshFix = 3s;
constexpr auto singleFixPatience = 5s;

constexpr quint8 sessionAccepted = 0;
constexpr quint8 sessionUnknown = 1;

QByteArray notification(const SessionTable::Delivery &delivery, const Epoch &epoch,
                        const std::optional<SkyReport> &sky)
{
    using namespace layout::gnssNotification;
    const auto status = quint8(epoch.fix ? statusProcess | statusFix : statusProcess);
    engineside::ReportWriter writer(GnssNotification{delivery.sessionId, status});
    if (epoch.fix) {
        writer.add(positionBlock(*epoch.fix));
        if (epoch.fix->time)
            writer.add(timeBlock(*epoch.fix->time));
        if (const auto velocity = velocityBlock(*epoch.fix))
            writer.add(*velocity);
    }
    if (delivery.withSky && sky)
        writer.addSatellites(satelliteRecords(*sky));
    return writer.bytes();
}

QByteArray singleFixAnswer(const FixReport &fix)
{
    engineside::ReportWriter writer(SuplResponse{SuplStatus::Success});
    writer.add(positionBlock(fix));
    if (fix.time)
        writer.add(timeBlock(*fix.time));
    if (const auto velocity = velocityBlock(fix))
        writer.add(*velocity);
    return writer.bytes();
}
} // namespace

GpsdEngine::GpsdEngine(GpsdAddress address, std::chrono::milliseconds settleTime, const Clock &clock)
    : m_clock(clock)
    , m_gpsd(std::move(address))
    , m_settleTime(settleTime)
    , m_reconnectDelay(firstReconnectDelay)
{
    for (QTimer *timer : {&m_acceptAgain, &m_settle, &m_reconnect, &m_linger, &m_singleFixTimer}) {
        timer->setSingleShot(true);
        timer->setTimerType(Qt::CoarseTimer);
    }
    connect(&m_acceptAgain, &QTimer::timeout, this, [this] { m_newDaemon->setEnabled(true); });
    connect(&m_settle, &QTimer::timeout, this, &GpsdEngine::onSettled);
    connect(&m_reconnect, &QTimer::timeout, this, &GpsdEngine::openGpsd);
    connect(&m_linger, &QTimer::timeout, this, &GpsdEngine::leaveGpsd);
    connect(&m_singleFixTimer, &QTimer::timeout, this, &GpsdEngine::onSingleFixTimeout);
    connect(&m_gpsd, &GpsdClient::fixReported, this,
            [this](const FixReport &report) { onReported(m_assembler.add(report)); });
    connect(&m_gpsd, &GpsdClient::skyReported, this,
            [this](const SkyReport &report) { onReported(m_assembler.add(report)); });
    connect(&m_gpsd, &GpsdClient::lost, this, &GpsdEngine::onGpsdLost);
}

GpsdEngine::~GpsdEngine() = default;

bool GpsdEngine::listen(const QString &path)
{
    if (!m_listener.listen(path))
        return false;
    m_newDaemon = std::make_unique<QSocketNotifier>(m_listener.fd(), QSocketNotifier::Read);
    connect(m_newDaemon.get(), &QSocketNotifier::activated, this, &GpsdEngine::acceptDaemons);
    return true;
}

// ---- Daemons ----

void GpsdEngine::acceptDaemons()
{
    for (;;) {
        auto [socket, error] = m_listener.accept();
        if (error != 0)
            acceptLater(error);
        if (!socket.isValid())
            return;
        auto &daemon =
            *m_daemons.emplace_back(std::make_unique<DaemonConnection>(std::move(socket), m_clock));
        connect(&daemon, &DaemonConnection::requested, this,
                [this, &daemon](const engineside::Request &request) { answer(daemon, request); });
        connect(&daemon, &DaemonConnection::closed, this, [this, &daemon] { dropDaemon(&daemon); });
        qInfo("A daemon has connected");
    }
}

// The one who waits would wake this process again at once, and for as long as it waits.
void GpsdEngine::acceptLater(int error)
{
    qWarning("A daemon cannot be accepted (%s), trying again in a second",
             qPrintable(qt_error_string(error)));
    m_newDaemon->setEnabled(false);
    m_acceptAgain.start(acceptPause);
}

void GpsdEngine::dropDaemon(DaemonConnection *daemon)
{
    const auto found = std::ranges::find(m_daemons, daemon, [](const auto &owned) { return owned.get(); });
    if (found == m_daemons.end())
        return;
    found->release()->deleteLater(); // its signal is on the stack
    m_daemons.erase(found);
    std::erase_if(m_singleFixes, [daemon](const SingleFix &waiting) { return waiting.daemon == daemon; });
    qInfo("A daemon has gone");
    connectWhenNeeded();
}

void GpsdEngine::answer(DaemonConnection &daemon, const engineside::Request &request)
{
    std::visit([this, &daemon](const auto &message) { answer(daemon, message); }, request);
}

void GpsdEngine::answer(DaemonConnection &daemon, const GnssRequest &request)
{
    SessionTable &sessions = daemon.sessions();
    quint8 status = sessionAccepted;
    switch (request.command) {
    case GnssCommand::Start:
        sessions.start(request.sessionId, request.intervalSeconds);
        break;
    case GnssCommand::ChangeInterval:
        sessions.setInterval(request.sessionId, request.intervalSeconds);
        break;
    case GnssCommand::Stop:
        status = sessions.stop(request.sessionId) ? sessionAccepted : sessionUnknown;
        break;
    }
    qDebug("Session %d: command %d, interval %d s, status %d", request.sessionId, int(request.command),
           request.intervalSeconds, status);
    daemon.send(engineside::gnssResponse({request.sessionId, status}));
    connectWhenNeeded();
}

void GpsdEngine::answer(DaemonConnection &daemon, const SuplRequest &)
{
    const Milliseconds now = m_clock.monotonic();
    m_singleFixes.push_back({&daemon, now + singleFixPatience});
    connectWhenNeeded();
    if (m_fix && now - m_fixArrival <= freshFix)
        answerSingleFixes();
    else if (!m_singleFixTimer.isActive())
        m_singleFixTimer.start(singleFixPatience);
}

void GpsdEngine::answer(DaemonConnection &daemon, const DeleteAssistance &request)
{
    qInfo("gpsd cannot delete assistance data (mask 0x%x)", request.mask);
    daemon.send(engineside::assistanceDeleted(false));
}

void GpsdEngine::answer(DaemonConnection &daemon, const RegisterPrivacy &)
{
    daemon.send(engineside::privacyRegistered(true));
}

void GpsdEngine::answer(DaemonConnection &, const LocationReply &)
{
    qDebug("Nobody on the network asked for a position, the user's answer is ignored");
}

void GpsdEngine::answer(DaemonConnection &, const SuplServers &)
{
    qDebug("gpsd knows no SUPL servers, their names are ignored");
}

// ---- gpsd ----

bool GpsdEngine::isNeeded() const
{
    return !m_singleFixes.empty() ||
           std::ranges::any_of(m_daemons, [](const auto &daemon) { return !daemon->sessions().isEmpty(); });
}

void GpsdEngine::connectWhenNeeded()
{
    if (!isNeeded()) {
        if (!m_linger.isActive() && (m_gpsd.isOpen() || m_reconnect.isActive()))
            m_linger.start(lingerTime);
        return;
    }
    m_linger.stop();
    if (!m_gpsd.isOpen() && !m_reconnect.isActive())
        openGpsd();
}

void GpsdEngine::openGpsd()
{
    if (m_gpsd.open()) {
        qInfo("Connected to gpsd");
        m_unreachable = false;
        m_assembler = EpochAssembler();
        return;
    }
    if (!std::exchange(m_unreachable, true))
        qWarning("gpsd cannot be reached (%s), trying again until it can", qPrintable(m_gpsd.errorText()));
    openGpsdLater();
}

void GpsdEngine::openGpsdLater()
{
    qDebug("Trying gpsd again in %lld ms", qlonglong(m_reconnectDelay.count()));
    m_reconnect.start(m_reconnectDelay);
    m_reconnectDelay = std::min<Milliseconds>(2 * m_reconnectDelay, longestReconnectDelay);
}

void GpsdEngine::leaveGpsd()
{
    qInfo("Nobody waits for a position, leaving gpsd");
    m_gpsd.close();
    m_settle.stop();
    m_reconnect.stop();
    m_reconnectDelay = firstReconnectDelay;
    m_unreachable = false;
}

void GpsdEngine::onGpsdLost()
{
    qWarning("gpsd has ended the connection");
    m_settle.stop();
    if (const auto last = m_assembler.end())
        deliver(*last);
    // Whoever got the last epoch may have had gpsd opened again already.
    if (isNeeded() && !m_gpsd.isOpen() && !m_reconnect.isActive())
        openGpsdLater();
}

void GpsdEngine::onReported(const std::optional<Epoch> &done)
{
    m_reconnectDelay = firstReconnectDelay; // a connection that lasts
    if (done)
        deliver(*done);
    if (m_assembler.wasLate() && m_settleTime < longestSettleTime) {
        m_settleTime = std::min<Milliseconds>(2 * m_settleTime, longestSettleTime);
        qInfo("The receiver is slow to complete an epoch, waiting %lld ms now",
              qlonglong(m_settleTime.count()));
    }
    if (m_assembler.isSkyWaiting())
        m_settle.start(std::max<Milliseconds>(m_settleTime, longestSettleTime));
    else if (m_assembler.isPending())
        m_settle.start(m_settleTime);
    else
        m_settle.stop();
}

void GpsdEngine::onSettled()
{
    // Reports may wait to be read when this process, and not the receiver, was slow.
    m_gpsd.readAvailable();
    if (m_settle.isActive())
        return;
    if (const auto done = m_assembler.end())
        deliver(*done);
}

// ---- From one to the other ----

void GpsdEngine::deliver(const Epoch &epoch)
{
    const Milliseconds now = m_clock.monotonic();
    if (epoch.sky) {
        m_sky = epoch.sky;
        ++m_skyNumber;
    }
    if (!epoch.isSkyAlone) {
        m_fix = epoch.fix;
        m_fixArrival = now;
    }
    for (const auto &daemon : m_daemons) {
        for (const auto &delivery : daemon->sessions().take(epoch, m_skyNumber, now))
            daemon->send(notification(delivery, epoch, m_sky));
    }
    if (epoch.fix)
        answerSingleFixes();
}

void GpsdEngine::answerSingleFixes()
{
    const QByteArray message = singleFixAnswer(*m_fix);
    for (const SingleFix &waiting : std::exchange(m_singleFixes, {}))
        waiting.daemon->send(message);
    m_singleFixTimer.stop();
    connectWhenNeeded();
}

void GpsdEngine::onSingleFixTimeout()
{
    const Milliseconds now = m_clock.monotonic();
    const QByteArray message = engineside::ReportWriter(SuplResponse{SuplStatus::Timeout}).bytes();
    std::erase_if(m_singleFixes, [&message, now](const SingleFix &waiting) {
        if (waiting.deadline > now)
            return false;
        waiting.daemon->send(message);
        return true;
    });
    if (!m_singleFixes.empty())
        m_singleFixTimer.start(std::max<Milliseconds>(m_singleFixes.front().deadline - now, 1ms));
    connectWhenNeeded();
}
} // namespace orvdgpsd
