#include "client/clientapp.h"
#include "client/fakeclient.h"
#include "client/fixstream.h"
#include "client/samples.h"
#include "support/logcapture.h"

#include <QDBusAbstractInterface>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace samples;

// Which fixes a client gets, and what is in them.
class TestClientFixes : public QObject
{
    Q_OBJECT
private slots:
    void invalidFixesWaitForTheOtherMethod()
    {
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        app.setGnssActive(true);
        app.setSuplActive(true);
        const auto arrived = [&] {
            app.satellitesInUseUpdate({}); // whatever was sent before it has arrived when it returns
            return client.takeCalls().size() - 1;
        };
        send(app, {}, Satellite);
        QCOMPARE(arrived(), 0);
        send(app, {}, Network);
        QCOMPARE(arrived(), 1);
        send(app, fixAt(60.1), Network);
        QCOMPARE(arrived(), 1);
        send(app, {}, Satellite);
        send(app, {}, Other);
        QCOMPARE(arrived(), 0);
        app.setSuplActive(false); // satellites only: nobody else could deliver
        send(app, {}, Satellite);
        QCOMPARE(arrived(), 1);
    }

    void startingAMethodClearsItsInvalidFix()
    {
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        app.setGnssActive(true);
        send(app, {}, Satellite);
        app.setSuplActive(true);
        app.setGnssActive(true);
        send(app, {}, Network); // the satellites' invalid fix is forgotten: held back
        app.satellitesInUseUpdate({});
        QCOMPARE(client.takeCalls().size(), 2);
        send(app, {}, Satellite);
        app.setSuplActive(true);
        send(app, {}, Satellite); // the network's is forgotten now
        app.satellitesInUseUpdate({});
        QCOMPARE(client.takeCalls().size(), 2);
    }

    void anInvalidFixHeldBackLeavesNoTrace()
    {
        LogCapture log;
        ClientApp app(6000, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        app.setGnssActive(true);
        app.setSuplActive(true);
        QCOMPARE(send(app, {}, Network), 0);
        QCOMPARE(log.takeLines(), QStringList());
        QVERIFY(app.findChildren<QDBusAbstractInterface *>().isEmpty());
    }

    void aLostSatelliteFixMakesTheNetworkFixNewsAgain()
    {
        ClientApp app(6000, u"context"_s, u"context"_s, Interface);
        QVERIFY(!app.isRepeatedFix(fixAt(60.1)));
        QVERIFY(app.isRepeatedFix(fixAt(60.1)));
        send(app, {}, Satellite); // no network positioning runs
        QVERIFY(app.isRepeatedFix(fixAt(60.1)));
        app.setSuplActive(true);
        send(app, {}, Network);
        send(app, {}, Satellite); // the network has nothing either
        QVERIFY(app.isRepeatedFix(fixAt(60.1)));
        send(app, fixAt(60.1), Network);
        send(app, {}, Satellite);
        QVERIFY(!app.isRepeatedFix(fixAt(60.1)));
    }

    void repeatedNetworkFixes()
    {
        ClientApp app(6000, u"com.varn.maps"_s, u"/maps"_s, Interface);
        QVERIFY(!app.isRepeatedFix({}));
        QVERIFY(app.isRepeatedFix({}));
        QVERIFY(!app.isRepeatedFix(fixAt(60.1)));
        QVERIFY(app.isRepeatedFix(fixAt(60.1, 3.0))); // its speed is not looked at
        QVERIFY(!app.isRepeatedFix(fixAt(60.2)));
        QGeoPositionInfo coarse = fixAt(60.2);
        coarse.removeAttribute(QGeoPositionInfo::HorizontalAccuracy);
        QVERIFY(!app.isRepeatedFix(coarse));
        QVERIFY(!app.isRepeatedFix(coarse));
        QVERIFY(app.isRepeatedFix({})); // an absent accuracy counts as -1
        app.resetLastNetworkFix();
        QGeoPositionInfo gulfOfGuinea(QGeoCoordinate(0.0, 0.0), fixAt(0).timestamp());
        gulfOfGuinea.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 0.0);
        QVERIFY(app.isRepeatedFix(gulfOfGuinea));
    }

    void aFixWithoutTimeStampCountsAsInvalid()
    {
        ClientApp app(6000, u"com.varn.maps"_s, u"/maps"_s, Interface);
        const QGeoPositionInfo fix(QGeoCoordinate(60.1, 24.9), {});
        QVERIFY(!app.isRepeatedFix(fix));
        QVERIFY(app.isRepeatedFix(fix));
    }

    void groundSpeedIsLent_data()
    {
        QTest::addColumn<int>("interval");
        QTest::addColumn<QList<double>>("speeds"); // of the fixes before; -1: none, -2: the fix is invalid
        QTest::addColumn<double>("lent");
        QTest::newRow("every second, two speeds known") << 1 << QList<double>{4.0, 5.5} << 5.5;
        QTest::newRow("every second, one gap") << 1 << QList<double>{4.0, 5.5, -1.0} << 5.5;
        QTest::newRow("every second, an invalid fix is a gap") << 1 << QList<double>{4.0, 5.5, -2.0} << 5.5;
        QTest::newRow("every second, two gaps") << 1 << QList<double>{4.0, 5.5, -1.0, -1.0} << -1.0;
        QTest::newRow("every two seconds, two speeds known") << 2 << QList<double>{4.0, 5.5} << 5.5;
        QTest::newRow("every two seconds, one gap") << 2 << QList<double>{4.0, 5.5, -1.0} << -1.0;
        QTest::newRow("every three seconds") << 3 << QList<double>{4.0, 5.5} << -1.0;
    }
    void groundSpeedIsLent()
    {
        QFETCH(int, interval);
        QFETCH(QList<double>, speeds);
        QFETCH(double, lent);
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        app.setInterval(interval);
        LogCapture log;
        for (const double speed : speeds)
            send(app,
                 speed == -2.0 ? QGeoPositionInfo()
                               : fixAt(60.1, speed < 0 ? std::nullopt : std::optional(speed)),
                 Satellite);
        app.satellitesInUseUpdate({});
        client.takeCalls();
        const QStringList before = log.takeLines();

        QGeoPositionInfo fix = fixAt(60.2);
        app.sendPositionUpdate(fix, Satellite);
        app.satellitesInUseUpdate({});
        const auto sent =
            FixStream::readFix(client.takeCalls().constFirst().arguments().constFirst().toByteArray());
        QVERIFY(sent);
        const QStringList lines = log.takeLines();
        if (lent < 0) {
            QVERIFY(!sent->hasAttribute(QGeoPositionInfo::GroundSpeed));
            QVERIFY(!fix.hasAttribute(QGeoPositionInfo::GroundSpeed));
            QCOMPARE(lines.size(), 1);
            return;
        }
        QCOMPARE(sent->attribute(QGeoPositionInfo::GroundSpeed), lent);
        QCOMPARE(fix.attribute(QGeoPositionInfo::GroundSpeed), lent); // whoever gets it next sees it too
        QCOMPARE(lines,
                 (QStringList{u"debug: PositionDaemon::sendPositionUpdate: faking ground speed=5.500000"_s,
                              u"debug: ClientApp::sendPositionUpdate: clientId=6000, type=0, "
                              "fix=60.2000000,24.9383790,25.500000,11.358000,-1.000000"_s}));
    }

    void aLentSpeedIsNotLentOn()
    {
        ClientApp app(6000, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        LogCapture log; // the name has no owner
        send(app, fixAt(60.1, 4.0), Satellite);
        send(app, fixAt(60.1, 5.0), Satellite);
        for (const bool expected : {true, true, false, false}) { // two gaps are bridged, no more
            QGeoPositionInfo fix = fixAt(60.1);
            app.sendPositionUpdate(fix, Satellite);
            QCOMPARE(fix.hasAttribute(QGeoPositionInfo::GroundSpeed), expected);
        }
    }

    void aLentSpeedIsSinglePrecision()
    {
        ClientApp app(6000, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        LogCapture log;
        send(app, fixAt(60.1, 0.1), Satellite);
        send(app, fixAt(60.1, 0.1), Satellite);
        QGeoPositionInfo fix = fixAt(60.1);
        app.sendPositionUpdate(fix, Satellite);
        QCOMPARE(fix.attribute(QGeoPositionInfo::GroundSpeed), double(0.1F));
    }

    void aNewConfigurationForgetsTheSpeeds_data()
    {
        QTest::addColumn<bool>("modified");
        QTest::newRow("when it is set") << true;
        QTest::newRow("when it is cleared") << false;
    }
    void aNewConfigurationForgetsTheSpeeds()
    {
        QFETCH(bool, modified);
        ClientApp app(6000, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        LogCapture log;
        send(app, fixAt(60.1, 4.0), Satellite);
        send(app, fixAt(60.1, 5.0), Satellite);
        app.setModified(modified);
        QGeoPositionInfo fix = fixAt(60.1);
        app.sendPositionUpdate(fix, Satellite);
        QVERIFY(!fix.hasAttribute(QGeoPositionInfo::GroundSpeed));
    }

    void fixesAreLogged_data()
    {
        QTest::addColumn<QGeoPositionInfo>("fix");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("line");
        const QString front = u"debug: ClientApp::sendPositionUpdate: clientId=6008, type="_s;
        QGeoPositionInfo fix = fixAt(-60.169856);
        fix.setAttribute(QGeoPositionInfo::VerticalAccuracy, 7.0);
        QTest::newRow("three dimensions")
            << fix << Satellite << front + u"0, fix=-60.1698560,24.9383790,25.500000,11.358000,7.000000"_s;
        QGeoPositionInfo flat(QGeoCoordinate(60.1, 24.9), fix.timestamp());
        QTest::newRow("two dimensions without accuracy")
            << flat << Network << front + u"1, fix=60.1000000,24.9000000,,-1.000000,"_s;
        flat.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 500.0);
        QTest::newRow("two dimensions")
            << flat << Network << front + u"1, fix=60.1000000,24.9000000,,500.000000,"_s;
        QTest::newRow("invalid") << QGeoPositionInfo() << Other << front + u"2, fix=,,,,"_s;
        QGeoPositionInfo velocity({}, fix.timestamp());
        velocity.setAttribute(QGeoPositionInfo::GroundSpeed, 2.0);
        QTest::newRow("a velocity without position is invalid")
            << velocity << Satellite << front + u"0, fix=,,,,"_s;
    }
    void fixesAreLogged()
    {
        QFETCH(QGeoPositionInfo, fix);
        QFETCH(int, type);
        QFETCH(QString, line);
        FakeClient client;
        ClientApp app(6008, client.service(), client.path(), Interface);
        LogCapture log;
        app.sendPositionUpdate(fix, type);
        QCOMPARE(log.takeLines(), QStringList{line});
    }

    void theSpeedOfAnInvalidFixIsNotRemembered()
    {
        ClientApp app(6000, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        LogCapture log;
        QGeoPositionInfo velocity({}, fixAt(60.1).timestamp());
        velocity.setAttribute(QGeoPositionInfo::GroundSpeed, 2.0);
        send(app, velocity, Satellite);
        send(app, velocity, Satellite);
        QGeoPositionInfo fix = fixAt(60.1);
        app.sendPositionUpdate(fix, Satellite);
        QVERIFY(!fix.hasAttribute(QGeoPositionInfo::GroundSpeed));
    }
};

QTEST_GUILESS_MAIN(TestClientFixes)
#include "tst_clientapp_fixes.moc"
