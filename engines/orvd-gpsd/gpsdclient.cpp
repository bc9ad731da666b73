#include "orvd-gpsd/gpsdclient.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

#include <gps.h>

// From this version on libgps gives the raw message, both altitudes, and times without loss.
#if GPSD_API_MAJOR_VERSION < 9
#error "libgps of gpsd 3.20 or later is needed (API version 9)"
#endif

namespace orvdgpsd {
namespace {
// gpsd promises no longer one; a sky of 140 satellites takes about this much.
constexpr std::size_t longestMessage = 65536;

Known known(double value)
{
    return std::isfinite(value) ? Known(value) : std::nullopt;
}

std::optional<ReceiverTime> receiverTime(const timespec &time)
{
    if (time.tv_sec <= 0)
        return std::nullopt;
    return ReceiverTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

FixReport fixReport(const gps_data_t &gps)
{
    const gps_fix_t &fix = gps.fix;
    FixReport report;
    if ((gps.set & TIME_SET) != 0)
        report.time = receiverTime(fix.time);
    if (fix.mode < MODE_2D || !std::isfinite(fix.latitude) || !std::isfinite(fix.longitude))
        return report; // what else it says is left over from the last fix
    report.hasFix = true;
    report.latitude = fix.latitude;
    report.longitude = fix.longitude;
    report.heightAboveEllipsoid = known(fix.altHAE);
    report.heightAboveSeaLevel = known(fix.altMSL);
    report.geoidSeparation = known(fix.geoid_sep);
    report.eastError = known(fix.epx);
    report.northError = known(fix.epy);
    report.horizontalError = known(fix.eph);
    report.verticalError = known(fix.epv);
    report.track = known(fix.track);
    report.trackError = known(fix.epd);
    report.magneticVariation = known(fix.magnetic_var);
    report.speed = known(fix.speed);
    report.speedError = known(fix.eps);
    report.climb = known(fix.climb);
    report.climbError = known(fix.epc);
    return report;
}

SkyReport skyReport(const gps_data_t &gps)
{
    SkyReport report;
    report.time = receiverTime(gps.skyview_time);
    for (int i = 0; i < gps.satellites_visible && i < MAXCHANNELS; ++i) {
        const satellite_t &satellite = gps.skyview[i];
        if (satellite.PRN > 0)
            report.satellites.push_back({satellite.PRN, satellite.used, known(satellite.ss),
                                         known(satellite.elevation), known(satellite.azimuth)});
    }
    return report;
}
} // namespace

GpsdClient::GpsdClient(GpsdAddress address)
    : m_address(std::move(address))
{
}

GpsdClient::~GpsdClient()
{
    close();
}

bool GpsdClient::open()
{
    close();
    auto gps = std::make_unique<gps_data_t>();
    const int status = gps_open(m_address.host.constData(), m_address.port.constData(), gps.get());
    if (status != 0) {
        // The reason is the result, or behind a plain -1 what errno holds.
        m_error = QString::fromLocal8Bit(gps_errstr(status == -1 ? errno : status));
        return false;
    }
    m_gps = std::move(gps);
    unsigned flags = WATCH_ENABLE | WATCH_JSON;
    if (!m_address.device.isEmpty())
        flags |= WATCH_DEVICE;
    if (gps_stream(m_gps.get(), flags, m_address.device.isEmpty() ? nullptr : m_address.device.data()) != 0) {
        m_error = QStringLiteral("gpsd does not take the watch request");
        close();
        return false;
    }
    m_notifier = std::make_unique<QSocketNotifier>(qintptr(m_gps->gps_fd), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &GpsdClient::readAvailable);
    return true;
}

void GpsdClient::close()
{
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier.release()->deleteLater(); // it may be what called us
    }
    if (m_gps) {
        gps_close(m_gps.get());
        m_gps.reset();
    }
}

void GpsdClient::readAvailable()
{
    static std::array<char, longestMessage> message;
    while (m_gps && gps_waiting(m_gps.get(), 0)) {
        m_gps->set = 0; // or what the message before said would seem to be in this one too
        if (gps_read(m_gps.get(), message.data(), int(message.size())) < 0) {
            close();
            emit lost();
            return;
        }
        dispatch();
    }
}

void GpsdClient::dispatch()
{
    if ((m_gps->set & SATELLITE_SET) != 0)
        emit skyReported(skyReport(*m_gps));
    else if ((m_gps->set & MODE_SET) != 0)
        emit fixReported(fixReport(*m_gps));
}
} // namespace orvdgpsd
