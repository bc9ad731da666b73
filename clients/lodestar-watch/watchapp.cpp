#include "watchapp.h"

#include "jsonline.h"

#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

void writeLine(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, std::size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

WatchApp::WatchApp(const WatchOptions &options)
    : m_options(options)
    , m_session({.path = u"/com/varn/lodestar/watch"_s,
                 .methods = options.methods,
                 .intervalMilliseconds = options.intervalMilliseconds,
                 .satelliteInformation = true})
{
    connect(&m_session, &WatchSession::registered, this, [this](int id, quint32 methods) {
        m_state.daemon = u"client %1 of lodestard"_s.arg(id);
        m_state.methods = methodNames(methods);
        draw();
    });
    connect(&m_session, &WatchSession::daemonMissing, this, &WatchApp::onDaemonMissing);
    connect(&m_session, &WatchSession::methodsChanged, this, [this](quint32 methods) {
        m_state.methods = methodNames(methods);
        draw();
    });
    connect(&m_session, &WatchSession::fixArrived, this, &WatchApp::onFix);
    connect(&m_session, &WatchSession::satellitesInViewArrived, this,
            [this](const QList<QGeoSatelliteInfo> &satellites) {
                m_state.takeSatellitesInView(satellites);
                draw();
            });
    connect(&m_session, &WatchSession::satellitesInUseArrived, this,
            [this](const QList<QGeoSatelliteInfo> &satellites) {
                m_state.takeSatellitesInUse(satellites);
                draw();
            });
    if (m_options.networkMilliseconds > 0)
        watchNetwork();
    m_end.setSingleShot(true);
    connect(&m_end, &QTimer::timeout, this, &WatchApp::leave);
    connect(&m_redraw, &QTimer::timeout, this, &WatchApp::draw); // the age of the last fix grows
}

void WatchApp::watchNetwork()
{
    // Any bit of the network methods stands for them all. A client with all of the bits would be
    // served from the satellite fix that runs for the other one, to spare the network; one bit alone
    // shows what the network knows meanwhile.
    constexpr quint32 networkWhateverSatellitesSay = 0x00000100U;
    m_networkSession =
        std::make_unique<WatchSession>(Registration{.path = u"/com/varn/lodestar/watch/network"_s,
                                                    .methods = networkWhateverSatellitesSay,
                                                    .intervalMilliseconds = m_options.networkMilliseconds});
    connect(m_networkSession.get(), &WatchSession::fixArrived, this, &WatchApp::onNetworkFix);
}

void WatchApp::begin()
{
    m_state.daemon = u"looking for lodestard"_s;
    m_state.methods = u"--"_s;
    if (m_options.output == WatchOptions::Output::Automatic && Terminal::isInteractive()) {
        m_terminal = std::make_unique<Terminal>();
        m_redraw.start(500ms);
    }
    if (m_options.seconds > 0)
        m_end.start(std::chrono::seconds(m_options.seconds));
    draw();
    m_session.begin();
    if (m_networkSession)
        m_networkSession->begin();
}

void WatchApp::leave()
{
    m_terminal.reset();
    const bool arrived = m_state.fixes > 0 && (!m_networkSession || m_networkState.fixes > 0);
    QCoreApplication::exit(int(arrived ? WatchStatus::FixesArrived : WatchStatus::NoFix));
}

void WatchApp::onFix(const QGeoPositionInfo &fix)
{
    m_state.takeFix(fix, QDateTime::currentDateTime());
    if (m_options.output == WatchOptions::Output::Json)
        writeLine(jsonLine(fix, m_state, m_options.satellitesInJson));
    else if (!m_terminal)
        writeLine(plainLine(fix, m_state.inView.size(), m_state.usedPrns.size()).toLocal8Bit());
    draw();
    if (m_options.count > 0 && m_state.fixes >= m_options.count)
        leave();
}

void WatchApp::onNetworkFix(const QGeoPositionInfo &fix)
{
    m_networkState.takeFix(fix, QDateTime::currentDateTime());
    if (m_options.output == WatchOptions::Output::Json)
        writeLine(networkJsonLine(fix));
    else if (!m_terminal)
        writeLine(networkPlainLine(fix).toLocal8Bit());
    draw();
}

void WatchApp::onDaemonMissing(const QString &why)
{
    m_state.daemon = why;
    m_state.methods = u"--"_s;
    complain(why);
    draw();
    if (!m_options.wait) {
        m_terminal.reset();
        QCoreApplication::exit(int(WatchStatus::NoDaemon));
    }
}

void WatchApp::complain(const QString &text)
{
    if (m_terminal && m_options.wait)
        return; // the screen says it
    m_terminal.reset();
    std::fprintf(stderr, "lodestar-watch: %s\n", qPrintable(text));
}

void WatchApp::draw()
{
    if (!m_terminal)
        return;
    if (m_end.isActive())
        m_state.secondsLeft = int((m_end.remainingTime() + 999) / 1000);
    const WatchState *network = m_networkSession ? &m_networkState : nullptr;
    m_terminal->show(drawScreen(m_state, network, Terminal::style(), QDateTime::currentDateTime()));
}
