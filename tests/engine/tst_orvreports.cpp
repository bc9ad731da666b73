#include "engine/orvbench.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using engineside::ReportWriter;

// Fix and satellite reports, packet by packet: no socket, no event loop.
class TestOrvReports : public OrvBenchTest
{
    Q_OBJECT
private slots:
    void aFixMovesTheStateAndReachesItsSession();
    void aReportWithoutTheFixBitOnlyShowsSatellites();
    void aReportWithoutTheProcessBitIsDropped();
    void aReportWhileIdleIsDropped();
    void aFixIsDroppedWhenItsSatellitesEndTheLastSession_data();
    void aFixIsDroppedWhenItsSatellitesEndTheLastSession();
    void aReportWithoutPositionOrVelocityIsNoFix();
    void aVelocityAloneIsAFixWithoutACoordinate();
    void aFixForAnUnknownSessionOnlyMovesTheState();
    void aFixIsStampedWithItsArrival();
    void attributesDoNotCarryOver();
    void positionsAreConverted();
    void velocitiesAreConverted();
    void unknownVelocitiesAreLeftOut();
    void aLaterBlockOfTheSameKindOverwrites();
    void everyRawValueReachesTheNetworkSide();
    void withoutASubscriberThereIsNoRawFix();
    void withoutASpeedTheRawFixSaysSo();
    void satellitesAreSorted_data();
    void satellitesAreSorted();
    void satelliteValuesAreConverted();
    void anEmptySatelliteListIsNotAnnounced();
    void satellitesComeBeforeTheFix();
    void thePeakIsTheMostSatellitesHeard();
    void aWholeReportIsLogged();
    void unknownVelocitiesAreLoggedAsTheyAre();
    void satellitesAreLoggedSixToALine();
    void unknownBlocksAreLoggedAndSteppedOver();
    void nothingIsFormattedThatNobodySees();
};

void TestOrvReports::aFixMovesTheStateAndReachesItsSession()
{
    m_bench->startSession(7);
    m_bench->startSession(8);
    m_bench->hear(positionReport(8));
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 8"_s}));
    m_bench->hear(positionReport(7));
    QCOMPARE(m_bench->seen(), QStringList(u"fix 7"_s)); // tracking is told once
}

void TestOrvReports::aReportWithoutTheFixBitOnlyShowsSatellites()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(sample::fullNotification(7, 0x01));
    QCOMPARE(m_bench->seen(), QStringList(u"view 2"_s));
    QCOMPARE(m_bench->watchdog()->interval(), 120000);

    // The state was kept: the next fix is the one that is told.
    m_bench->hear(sample::fullNotification(7, 0x41));
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"state 2"_s, u"fix 7"_s, u"vesk"_s}));
}

void TestOrvReports::aReportWithoutTheProcessBitIsDropped()
{
    m_bench->startSession(7);
    m_bench->hear(sample::fullNotification(7, 0x40));
    QCOMPARE(m_bench->seen(), QStringList());
    QCOMPARE(m_bench->log(),
             QStringList({u"debug: ORV Message received. id: 0xef03 length: 102"_s,
                          u"debug: ORVComm::handleGNSSNotification() session id: 7, status: 0x40"_s}));
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 0);

    m_bench->hear(sample::fullNotification(7, 0xFF)); // any other bit means nothing
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"state 2"_s, u"fix 7"_s}));
}

void TestOrvReports::aReportWhileIdleIsDropped()
{
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->seen(), QStringList());
    QCOMPARE(m_bench->log().size(), 2);
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 0);
}

void TestOrvReports::aFixIsDroppedWhenItsSatellitesEndTheLastSession_data()
{
    QTest::addColumn<bool>("again");
    QTest::addColumn<QStringList>("seen");
    QTest::newRow("the receiver only stops it")
        << false << QStringList({u"view 2"_s, u"state 0"_s, u"use 1"_s});
    QTest::newRow("the receiver starts another one")
        << true
        << QStringList({u"view 2"_s, u"state 0"_s, u"state 1"_s, u"use 1"_s, u"state 2"_s, u"vesk"_s});
}

void TestOrvReports::aFixIsDroppedWhenItsSatellitesEndTheLastSession()
{
    QFETCH(bool, again);
    m_bench->startSession(7);
    ORVComm &orv = m_bench->orv();
    orv.setVESKUpdatesEnabled(true);
    connect(&orv, &ORVComm::satellitesInView, &orv, [&orv, again] {
        orv.stopGNSS(7);
        if (again)
            orv.startGNSS(8, 1);
    });
    m_bench->hear(sample::fullNotification(7));
    QTEST(m_bench->seen(), "seen");
}

void TestOrvReports::aReportWithoutPositionOrVelocityIsNoFix()
{
    m_bench->startSession(7);
    ReportWriter report = sample::withSky(GnssNotification{7, 0x41});
    report.add(sample::Time);
    m_bench->hear(report.bytes());
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s}));
    QCOMPARE(m_bench->watchdog()->interval(), 120000);

    m_bench->hear(ReportWriter(GnssNotification{7, 0x41}).bytes()); // no sub-block at all
    QCOMPARE(m_bench->seen(), QStringList());
}

void TestOrvReports::aVelocityAloneIsAFixWithoutACoordinate()
{
    m_bench->startSession(7);
    m_bench->hear(sample::notificationWith(sample::Velocity));
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
    QVERIFY(!m_bench->reports().fix.coordinate().isValid());
    QCOMPARE(m_bench->reports().fix.timestamp(), m_bench->clock().time);
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::GroundSpeed), 10.0);
}

void TestOrvReports::aFixForAnUnknownSessionOnlyMovesTheState()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(positionReport(99));
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"vesk"_s}));
    QCOMPARE(m_bench->watchdog()->interval(), 120000);
}

void TestOrvReports::aFixIsStampedWithItsArrival()
{
    m_bench->startSession(7);
    m_bench->clock().time = QDateTime(QDate(2026, 5, 4), QTime(12, 34, 56, 789));
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->reports().fix.timestamp(), m_bench->clock().time);
    QCOMPARE(m_bench->reports().fix.timestamp().timeSpec(), Qt::LocalTime);
    m_bench->clock().time = m_bench->clock().time.addSecs(1);
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->reports().fix.timestamp(), m_bench->clock().time);
}

void TestOrvReports::attributesDoNotCarryOver()
{
    m_bench->startSession(7);
    m_bench->hear(sample::fullNotification());
    QVERIFY(m_bench->reports().fix.hasAttribute(QGeoPositionInfo::GroundSpeed));
    m_bench->hear(sample::notificationWith(sample::Position));
    QVERIFY(!m_bench->reports().fix.hasAttribute(QGeoPositionInfo::GroundSpeed));
    QVERIFY(m_bench->reports().fix.coordinate().isValid());
    m_bench->hear(sample::notificationWith(sample::Velocity));
    QVERIFY(!m_bench->reports().fix.hasAttribute(QGeoPositionInfo::HorizontalAccuracy));
    QVERIFY(!m_bench->reports().fix.coordinate().isValid());
}

void TestOrvReports::positionsAreConverted()
{
    m_bench->startSession(7);
    m_bench->hear(sample::notificationWith(sample::Position));
    const QGeoCoordinate coordinate = m_bench->reports().fix.coordinate();
    QCOMPARE(coordinate.latitude(), 45.0);
    QCOMPARE(coordinate.longitude(), 22.5);
    QCOMPARE(coordinate.altitude(), 120.0);
    // Attributes travel in single precision, rounded once.
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::HorizontalAccuracy),
             double(11.358F));
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::VerticalAccuracy), 10.5);
}

void TestOrvReports::velocitiesAreConverted()
{
    m_bench->startSession(7);
    m_bench->hear(sample::notificationWith(sample::Velocity));
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::Direction), -90.0);
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::MagneticVariation), 3.25);
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::GroundSpeed), 10.0);
    QCOMPARE(sample::attribute(m_bench->reports().fix, QGeoPositionInfo::VerticalSpeed), double(-1.2F));
}

void TestOrvReports::unknownVelocitiesAreLeftOut()
{
    m_bench->startSession(7);
    m_bench->hear(sample::notificationWith(
        VelocityBlock{.heading = -1, .variation = -32768, .speed = -1, .climb = -32768}));
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
    for (const auto which : {QGeoPositionInfo::Direction, QGeoPositionInfo::MagneticVariation,
                             QGeoPositionInfo::GroundSpeed, QGeoPositionInfo::VerticalSpeed})
        QVERIFY(!m_bench->reports().fix.hasAttribute(which));
}

void TestOrvReports::aLaterBlockOfTheSameKindOverwrites()
{
    m_bench->startSession(7);
    ReportWriter report(GnssNotification{7, 0x41});
    report.add(PositionBlock{.latitude = 1, .longitude = 1});
    report.add(sample::Position);
    m_bench->hear(report.bytes());
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
    QCOMPARE(m_bench->reports().fix.coordinate().latitude(), 45.0);
}

void TestOrvReports::everyRawValueReachesTheNetworkSide()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->seen().last(), u"vesk"_s);
    const RawFix &raw = m_bench->reports().raw;
    QCOMPARE(raw.lat, 45.0);
    QCOMPARE(raw.lon, 22.5);
    QCOMPARE(raw.alt, 120.0);
    QCOMPARE(raw.u_along, 10.0);
    QCOMPARE(raw.u_ortho, 5.0);
    QCOMPARE(raw.u_angle, uchar{33});
    QCOMPARE(raw.u_alt, ushort{10});
    QCOMPARE(raw.g_speed, ushort{36});
    QCOMPARE(raw.year, ushort{2009});
    QCOMPARE(raw.month, uchar{11});
    QCOMPARE(raw.day, uchar{30});
    QCOMPARE(raw.hours, uchar{23});
    QCOMPARE(raw.minutes, uchar{59});
    QCOMPARE(raw.mseconds, ushort{58250});

    // A block that is missing leaves nothing of the report before.
    m_bench->hear(sample::notificationWith(sample::Position));
    QCOMPARE(m_bench->reports().raw.g_speed, ushort{0});
    QCOMPARE(m_bench->reports().raw.year, ushort{0});
    QCOMPARE(m_bench->reports().raw.lat, 45.0);
}

void TestOrvReports::withoutASubscriberThereIsNoRawFix()
{
    m_bench->startSession(7);
    m_bench->hear(sample::fullNotification());
    QVERIFY(!m_bench->seen().contains(u"vesk"_s));
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(sample::fullNotification());
    QVERIFY(m_bench->seen().contains(u"vesk"_s));
    m_bench->orv().setVESKUpdatesEnabled(false);
    m_bench->hear(sample::fullNotification());
    QVERIFY(!m_bench->seen().contains(u"vesk"_s));
}

void TestOrvReports::withoutASpeedTheRawFixSaysSo()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(sample::notificationWith(VelocityBlock{.speed = -1}));
    QCOMPARE(m_bench->reports().raw.g_speed, ushort{0xFFFF});
    m_bench->hear(sample::notificationWith(VelocityBlock{.speed = 499})); // 17.964 km/h
    QCOMPARE(m_bench->reports().raw.g_speed, ushort{17});
}

void TestOrvReports::satellitesAreSorted_data()
{
    QTest::addColumn<SatelliteRecord>("record");
    QTest::addColumn<QStringList>("signalled");
    const QStringList none;
    const QStringList view{u"view 1"_s};
    const QStringList both{u"view 1"_s, u"use 1"_s};

    QTest::newRow("heard and used") << sample::HeardAndUsed << both;
    QTest::newRow("placed, neither heard nor used") << sample::PlacedOnly << view;
    QTest::newRow("used, but with an elevation only") << sample::Unplaced << none;
    QTest::newRow("used, but with an azimuth only")
        << SatelliteRecord{.number = 1, .used = 1, .elevation = 0xFF80, .azimuth = 10} << none;
    QTest::newRow("the faintest signal that counts")
        << SatelliteRecord{.number = 1, .used = 0, .cno = 0x0010} << view;
    QTest::newRow("a used byte of 2 is not used")
        << SatelliteRecord{.number = 1, .used = 2, .cno = 0x0280} << view;
    QTest::newRow("placed and used without a signal")
        << SatelliteRecord{.number = 1, .used = 1, .elevation = 0, .azimuth = 0} << both;
}

void TestOrvReports::satellitesAreSorted()
{
    QFETCH(SatelliteRecord, record);
    m_bench->startSession(7);
    m_bench->hear(sample::withSky(GnssNotification{7, 0x41}, {record}).bytes());
    QTEST(m_bench->seen(), "signalled");
}

void TestOrvReports::satelliteValuesAreConverted()
{
    m_bench->startSession(7);
    m_bench->hear(sample::withSky(
                      GnssNotification{7, 0x41},
                      {sample::HeardAndUsed,
                       {.number = 0, .used = 1, .cno = 0x02FF, .elevation = quint16(-550), .azimuth = 35999}})
                      .bytes());
    QCOMPARE(m_bench->reports().inView.size(), 2);
    const QGeoSatelliteInfo &heard = m_bench->reports().inView.at(0);
    QCOMPARE(heard.satelliteIdentifier(), 5);
    QCOMPARE(heard.signalStrength(), 40);
    QVERIFY(!heard.hasAttribute(QGeoSatelliteInfo::Elevation));
    QVERIFY(!heard.hasAttribute(QGeoSatelliteInfo::Azimuth));
    const QGeoSatelliteInfo &placed = m_bench->reports().inView.at(1);
    QCOMPARE(placed.satelliteIdentifier(), 1);
    QCOMPARE(placed.signalStrength(), 47);
    QCOMPARE(placed.attribute(QGeoSatelliteInfo::Elevation), -5.5);
    QCOMPARE(placed.attribute(QGeoSatelliteInfo::Azimuth), double(359.99F));
    QCOMPARE(m_bench->reports().inUse, m_bench->reports().inView);

    m_bench->hear(sample::withSky(GnssNotification{7, 0x41}, {sample::PlacedOnly}).bytes());
    QCOMPARE(m_bench->reports().inView.size(), 1); // nothing of the list before
    QCOMPARE(m_bench->reports().inView.first().signalStrength(), -1);
}

void TestOrvReports::anEmptySatelliteListIsNotAnnounced()
{
    m_bench->startSession(7);
    m_bench->hear(sample::withSky(GnssNotification{7, 0x41}, {}).bytes());
    QCOMPARE(m_bench->seen(), QStringList());
    QCOMPARE(m_bench->log().last(),
             u"debug: ORVComm::satellitesUpdateMessage: sat: 0/0/0, (id,used,cno,elev,azim):"_s);
}

void TestOrvReports::satellitesComeBeforeTheFix()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    ReportWriter report(GnssNotification{7, 0x41});
    report.add(sample::Position);
    report.addSatellites(std::span(sample::Sky.constData(), std::size_t(sample::Sky.size())));
    m_bench->hear(report.bytes());
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"state 2"_s, u"fix 7"_s, u"vesk"_s}));
}

void TestOrvReports::thePeakIsTheMostSatellitesHeard()
{
    const auto heard = [](quint8 number) {
        return SatelliteRecord{.number = number, .used = 0, .cno = 0x0100};
    };
    m_bench->startSession(7);
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 0);
    m_bench->hear(sample::withSky(GnssNotification{7, 0x01},
                                  {heard(1), heard(2), heard(3), sample::PlacedOnly, sample::Unplaced})
                      .bytes());
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 3);
    m_bench->hear(sample::withSky(GnssNotification{7, 0x01}, {heard(1)}).bytes());
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 3);
    m_bench->orv().resetPeakSignalSatellites();
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 0);
    m_bench->hear(sample::withSky(SuplResponse{}, {heard(1), heard(2)}).bytes());
    QCOMPARE(m_bench->orv().peakSignalSatellites(), 2);
}

void TestOrvReports::aWholeReportIsLogged()
{
    m_bench->startSession(7);
    m_bench->hear(sample::fullNotification());
    QCOMPARE(m_bench->log(),
             QStringList({
                 u"debug: ORV Message received. id: 0xef03 length: 102"_s,
                 u"debug: ORVComm::handleGNSSNotification() session id: 7, status: 0x41"_s,
                 u"debug: ORVComm::satellitesUpdateMessage: sat: 1/1/2, (id,used,cno,elev,azim):"
                 "\nSATDBG: 4,1,640,65408,65535 8,0,32768,4500,27000 30,1,15,4500,65535"_s,
                 u"debug: processSubBlocks(): Time: 23:59:58.250"_s,
                 u"debug: POSDBG: lat=45.0000000, lon=22.5000000, unc_alo=10.00, unc_ort=5.00, "
                 "unc_ang=33, alt_w84=100.0, alt_unc=10.5, geo_sep=20.0"_s,
                 u"debug: VELDBG: head=-90.00+-1.50, magn=3.25, speed=10.00+-0.25, climb=-1.20+-0.30"_s,
             }));
}

void TestOrvReports::unknownVelocitiesAreLoggedAsTheyAre()
{
    m_bench->startSession(7);
    m_bench->hear(sample::notificationWith(VelocityBlock{}));
    QCOMPARE(m_bench->log().last(), u"debug: VELDBG: head=-0.01+-0.00, magn=-327.68, speed=-0.01+-0.00, "
                                    "climb=-327.68+-0.00"_s);
}

void TestOrvReports::satellitesAreLoggedSixToALine()
{
    m_bench->startSession(7);
    const QList<SatelliteRecord> sky(
        13, SatelliteRecord{.number = 1, .used = 0, .cno = 16, .elevation = 2, .azimuth = 3});
    m_bench->hear(sample::withSky(GnssNotification{7, 0x01}, sky).bytes());
    const QString record = u" 1,0,16,2,3"_s;
    QCOMPARE(m_bench->log().last(),
             u"debug: ORVComm::satellitesUpdateMessage: sat: 0/13/13, (id,used,cno,elev,azim):"_s +
                 u"\nSATDBG:"_s + record.repeated(6) + u"\nSATDBG:"_s + record.repeated(6) + u"\nSATDBG:"_s +
                 record);
}

void TestOrvReports::unknownBlocksAreLoggedAndSteppedOver()
{
    m_bench->startSession(7);
    ReportWriter report(GnssNotification{7, 0x41});
    report.addBlock(0xEF06, "silent");
    report.addBlock(0xEF09, "1234567");
    report.addBlock(0xEF15, "");
    report.addBlock(0x0012, "x");
    report.add(PositionBlock{});
    m_bench->hear(report.bytes());
    QCOMPARE(m_bench->seen(), QStringList({u"state 2"_s, u"fix 7"_s}));
    const QStringList lines = m_bench->log();
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.at(2), u"debug: processSubBlocks(): Ignored block 0xef09."_s);
    QCOMPARE(lines.at(3), u"debug: processSubBlocks(): Ignored block 0x0012."_s);
    QVERIFY(lines.at(4).startsWith(u"debug: POSDBG:"_s));
}

void TestOrvReports::nothingIsFormattedThatNobodySees()
{
    m_bench->startSession(7);
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);
    m_bench->hear(sample::fullNotification());
    m_bench->hear(sample::fullLocationRequest());
    m_bench->hear(sample::fullReport(SuplResponse{SuplStatus::Timeout}));
    QLoggingCategory::setFilterRules({});
    QCOMPARE(m_bench->log(), QStringList(u"warning: ORVComm::handleSUPLResponse: SUPL timeout"_s));
    QCOMPARE(m_bench->seen(),
             QStringList({u"view 2"_s, u"use 1"_s, u"state 2"_s, u"fix 7"_s,
                          u"request 9 type 1 default 1 name 'Müller & Co' id 'ABCD'"_s, u"supl"_s}));
}

QTEST_GUILESS_MAIN(TestOrvReports)
#include "tst_orvreports.moc"
