#pragma once

#include "engine/enginesidecodec.h"
#include "engine/orvrecorder.h"
#include "support/logcapture.h"
#include "support/stillclock.h"

#include <QGeoCoordinate>
#include <QList>
#include <QTest>

#include <memory>

// An engine link without an engine: packets are handed over, what it reports is written down.
class OrvBench
{
public:
    // A session as it runs; what its start said is forgotten.
    void startSession(quint16 id, int interval = 1)
    {
        m_orv.startGNSS(id, interval);
        m_seen.take();
        log();
    }
    void hear(const QByteArray &packet) { feed(m_orv, packet); }
    QStringList log() { return m_log.takeLines(); }
    QStringList seen() { return m_seen.take(); }

    ORVComm &orv() { return m_orv; }
    StillClock &clock() { return m_clock; }
    const OrvRecorder &reports() const { return m_seen; }
    QTimer *watchdog() { return watchdogs(m_orv).first(); } // of the first session

private:
    LogCapture m_log;
    StillClock m_clock;
    ORVComm m_orv{DevicePaths{}, m_clock};
    OrvRecorder m_seen{m_orv};
};

// A test on the bench: every test function has a fresh one.
class OrvBenchTest : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_bench = std::make_unique<OrvBench>(); }
    void cleanup() { m_bench.reset(); }

protected:
    std::unique_ptr<OrvBench> m_bench;
};

// Messages as an engine writes them.
namespace sample {

inline constexpr PositionBlock Position{.latitude = 0x20000000,
                                        .longitude = 0x10000000,
                                        .along = 1000,
                                        .ortho = 500,
                                        .angle = 33,
                                        .altitude = 200,
                                        .altitudeError = 21,
                                        .geoid = 40};
inline constexpr VelocityBlock Velocity{.heading = -9000,
                                        .headingError = 150,
                                        .variation = 325,
                                        .speed = 1000,
                                        .speedError = 25,
                                        .climb = -120,
                                        .climbError = 30};
inline constexpr TimeBlock Time{
    .year = 2009, .month = 11, .day = 30, .hours = 23, .minutes = 59, .milliseconds = 58250};
inline constexpr SatelliteRecord HeardAndUsed{
    .number = 4, .used = 1, .cno = 0x0280, .elevation = 0xFF80, .azimuth = 0xFFFF};
inline constexpr SatelliteRecord PlacedOnly{
    .number = 8, .used = 0, .cno = 0x8000, .elevation = 4500, .azimuth = 27000};
inline constexpr SatelliteRecord Unplaced{
    .number = 30, .used = 1, .cno = 0x000F, .elevation = 4500, .azimuth = 0xFFFF};
inline const QList<SatelliteRecord> Sky{HeardAndUsed, PlacedOnly, Unplaced};

template <typename Message>
engineside::ReportWriter withSky(const Message &message, const QList<SatelliteRecord> &sky = Sky)
{
    engineside::ReportWriter report(message);
    report.addSatellites(std::span(sky.constData(), std::size_t(sky.size())));
    return report;
}

template <typename Message>
QByteArray fullReport(const Message &message)
{
    engineside::ReportWriter report = withSky(message);
    report.add(Time);
    report.add(Position);
    report.add(Velocity);
    return report.bytes();
}

inline QByteArray fullNotification(quint16 session = 7, quint8 status = 0x41)
{
    return fullReport(GnssNotification{session, status});
}

template <typename Block>
QByteArray notificationWith(const Block &block)
{
    engineside::ReportWriter report(GnssNotification{7, 0x41});
    report.add(block);
    return report.bytes();
}

inline QByteArray fullLocationRequest(quint8 type = 1, quint8 transaction = 9)
{
    engineside::ReportWriter report(LocationRequest{type, transaction});
    report.addClientName(u"Müller & Co");
    report.addClientId(u"ABCD");
    report.addDefaultAnswer(true);
    return report.bytes();
}

// A message from hexadecimal digits: fields as a person reads them.
inline QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

inline double attribute(const QGeoPositionInfo &info, QGeoPositionInfo::Attribute which)
{
    return info.hasAttribute(which) ? info.attribute(which) : qQNaN();
}

} // namespace sample
