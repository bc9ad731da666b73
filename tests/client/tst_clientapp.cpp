#include "client/clientapp.h"
#include "client/fakeclient.h"
#include "client/fixstream.h"
#include "support/logcapture.h"

#include <QDBusAbstractInterface>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusServiceWatcher>
#include <QFile>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QLoggingCategory>
#include <QSignalSpy>
#include <QTest>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace {

constexpr int Satellite = 0;
constexpr int Network = 1;
constexpr int Other = 2;

const QString Interface = u"com.varn.qlocation.updates"_s;

QGeoPositionInfo fixAt(double latitude, std::optional<double> speed = {})
{
    QGeoPositionInfo fix(QGeoCoordinate(latitude, 24.938379, 25.5),
                         QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)));
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, double(11.358F));
    if (speed)
        fix.setAttribute(QGeoPositionInfo::GroundSpeed, *speed);
    return fix;
}

QList<QGeoSatelliteInfo> oneSatellite()
{
    QGeoSatelliteInfo satellite;
    satellite.setSatelliteIdentifier(7);
    satellite.setSignalStrength(42);
    satellite.setAttribute(QGeoSatelliteInfo::Elevation, 63.0);
    return {satellite};
}

int send(ClientApp &app, QGeoPositionInfo fix, int type)
{
    return app.sendPositionUpdate(fix, type);
}

} // namespace

class TestClientApp : public QObject
{
    Q_OBJECT
private slots:
    void aNewClientIsStoppedAndWantsAllMethodsEverySecond()
    {
        const ClientApp app(6000, u"com.varn.maps"_s, u"/maps"_s, Interface);
        QCOMPARE(app.id(), 6000);
        QCOMPARE(app.methods(), 0xffffffffU);
        QCOMPARE(app.interval(), 1);
        QVERIFY(app.isStopped());
        QVERIFY(!app.wantsSatelliteInfo());
        QVERIFY(!app.isModified());
        QVERIFY(!app.isGnssActive());
        QVERIFY(!app.isSuplActive());
        QCOMPARE(app.findChildren<QDBusServiceWatcher *>().size(), 1);
        QVERIFY(app.findChildren<QDBusAbstractInterface *>().isEmpty());
    }

    void whatIsSetIsKept()
    {
        ClientApp app(6000, u"com.varn.maps"_s, u"/maps"_s, Interface);
        app.setMethods(0xffffff00);
        app.setInterval(30);
        app.setStopped(false);
        app.setSatelliteInfo(true);
        app.setModified(true);
        app.setGnssActive(true);
        app.setSuplActive(true);
        QCOMPARE(app.methods(), 0xffffff00U);
        QCOMPARE(app.interval(), 30);
        QVERIFY(!app.isStopped());
        QVERIFY(app.wantsSatelliteInfo());
        QVERIFY(app.isModified());
        QVERIFY(app.isGnssActive());
        QVERIFY(app.isSuplActive());
    }

    void aFixReachesTheClient_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("by its well-known name") << u"com.varn.maps"_s;
        QTest::newRow("by its unique name") << QString();
    }
    void aFixReachesTheClient()
    {
        QFETCH(QString, name);
        FakeClient client(name);
        ClientApp app(6000, client.service(), client.path(), Interface);
        QCOMPARE(send(app, fixAt(60.1), Satellite), 0);
        QTRY_COMPARE(client.callCount(), 1);
        const QDBusMessage call = client.takeCalls().constFirst();
        QCOMPARE(call.member(), u"positionUpdate"_s);
        QCOMPARE(call.interface(), Interface);
        QCOMPARE(call.path(), client.path());
        QCOMPARE(call.signature(), u"ay"_s);
        QCOMPARE(call.arguments().constFirst().toByteArray().toHex(),
                 FixStream::writeFix(fixAt(60.1)).toHex());
        QVERIFY(!call.isReplyRequired());
        QVERIFY(!client.wasIntrospected());
    }

    void currentSettingsReachTheClient()
    {
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        QCOMPARE(app.currentSettings(0xffffff00, 1000), 0);
        QTRY_COMPARE(client.callCount(), 1);
        const QDBusMessage call = client.takeCalls().constFirst();
        QCOMPARE(call.member(), u"currentSettings"_s);
        QCOMPARE(call.interface(), Interface);
        QCOMPARE(call.signature(), u"uu"_s);
        QCOMPARE(call.arguments(), (QVariantList{0xffffff00U, 1000U}));
        QVERIFY(!call.isReplyRequired());
    }

    void satelliteListsReachTheClientBeforeTheCallReturns()
    {
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        QCOMPARE(app.satellitesInViewUpdate(oneSatellite()), 0);
        QCOMPARE(client.callCount(), 1);
        QCOMPARE(app.satellitesInUseUpdate({}), 0);
        const auto calls = client.takeCalls();
        QCOMPARE(calls.size(), 2);
        QCOMPARE(calls[0].member(), u"satellitesInViewUpdate"_s);
        QCOMPARE(calls[0].arguments(), QVariantList{FixStream::writeSatellites(oneSatellite())});
        QCOMPARE(calls[1].member(), u"satellitesInUseUpdate"_s);
        QCOMPARE(calls[1].arguments(), QVariantList{QByteArray(4, '\0')});
        for (const QDBusMessage &call : calls) {
            QCOMPARE(call.interface(), Interface);
            QCOMPARE(call.signature(), u"ay"_s);
            QVERIFY(call.isReplyRequired());
        }
        QVERIFY(!client.wasIntrospected());
    }

    void theCallsAreThoseOfTheDocument()
    {
        QFile file(QStringLiteral(LODESTARD_SOURCE_DIR "/docs/dbus/com.varn.qlocation.updates.xml"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QStringList written; // each method and its signature
        QXmlStreamReader document(&file);
        while (!document.atEnd()) {
            if (document.readNext() != QXmlStreamReader::StartElement)
                continue;
            if (document.name() == u"method")
                written.append(document.attributes().value(u"name"_s).toString() + u' ');
            else if (document.name() == u"arg")
                written.last() += document.attributes().value(u"type"_s);
        }
        QVERIFY2(!document.hasError(), qPrintable(document.errorString()));

        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        send(app, fixAt(60.1), Satellite);
        app.satellitesInUseUpdate(oneSatellite());
        app.satellitesInViewUpdate(oneSatellite());
        app.currentSettings(255, 1000);
        QTRY_COMPARE(client.callCount(), 4);
        QStringList made;
        for (const QDBusMessage &call : client.takeCalls())
            made.append(call.member() + u' ' + call.signature());
        QCOMPARE(made, written);
    }

    void callbacksArriveInTheOrderOfTheCalls()
    {
        FakeClient client;
        ClientApp app(6000, client.service(), client.path(), Interface);
        send(app, fixAt(60.1), Satellite);
        app.satellitesInViewUpdate(oneSatellite());
        send(app, fixAt(60.2), Satellite);
        app.satellitesInUseUpdate(oneSatellite());
        QStringList members;
        for (const QDBusMessage &call : client.takeCalls())
            members.append(call.member());
        QCOMPARE(members, (QStringList{u"positionUpdate"_s, u"satellitesInViewUpdate"_s, u"positionUpdate"_s,
                                       u"satellitesInUseUpdate"_s}));
    }

    void aReplyOfAnyKindWillDo()
    {
        FakeClient client;
        client.setAnswer(FakeClient::Answer::Number);
        ClientApp app(6000, client.service(), client.path(), Interface);
        LogCapture log;
        QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), 0);
        QCOMPARE(app.satellitesInViewUpdate(oneSatellite()), 0);
        QCOMPARE(log.takeLines(), QStringList());
    }

    void aSatelliteCallThatFailsIsReported_data()
    {
        QTest::addColumn<FakeClient::Answer>("answer");
        QTest::addColumn<QString>("message"); // empty: whatever the bus says
        QTest::newRow("the client answers with an error")
            << FakeClient::Answer::Error << u"The map is folded."_s;
        QTest::newRow("the client leaves the bus instead of answering")
            << FakeClient::Answer::Leave << QString();
    }
    void aSatelliteCallThatFailsIsReported()
    {
        QFETCH(FakeClient::Answer, answer);
        QFETCH(QString, message);
        FakeClient client;
        client.setAnswer(answer);
        ClientApp app(6001, client.service(), client.path(), Interface);
        QSignalSpy gone(&app, &ClientApp::clientDisconnected);
        LogCapture log;
        QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), -1);
        const QString lastError = QDBusConnection::sessionBus().lastError().message();
        QVERIFY(!lastError.isEmpty());
        if (!message.isEmpty())
            QCOMPARE(lastError, message);
        QCOMPARE(log.takeLines(), (QStringList{u"warning: ClientApp:: client 6001 disconnected."_s,
                                               u"warning: "_s + lastError}));
        QCOMPARE(gone.count(), 0); // only the bus can say that
    }

    void anObjectWithoutTheInterfaceCostsTwoWarningsAList()
    {
        FakeClient client;
        ClientApp app(6002, client.service(), u"/elsewhere"_s, Interface);
        LogCapture log;
        QCOMPARE(send(app, fixAt(60.1), Satellite), 0);
        QCOMPARE(app.currentSettings(255, 1000), 0);
        log.takeLines(); // the line of the fix
        QCOMPARE(app.satellitesInViewUpdate(oneSatellite()), -1);
        QCOMPARE(log.takeLines(), (QStringList{u"warning: ClientApp:: client 6002 disconnected."_s,
                                               u"warning: No such object path '/elsewhere'"_s}));
        QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), -1);
        QCOMPARE(log.takeLines().size(), 2);
        QCOMPARE(client.callCount(), 0);
    }

    void aClientWhoseNameNobodyOwnsIsTriedOnce()
    {
        ClientApp app(6003, u"com.varn.nobody"_s, u"/maps"_s, Interface);
        LogCapture log;
        QCOMPARE(app.currentSettings(255, 1000), 0);
        const QString lastError = QDBusConnection::sessionBus().lastError().message();
        QVERIFY2(lastError.contains(u"com.varn.nobody"), qPrintable(lastError));
        QCOMPARE(log.takeLines(), (QStringList{u"critical: ClientApp::connectClient() failed."_s,
                                               u"critical: "_s + lastError}));
        QCOMPARE(app.findChildren<QDBusAbstractInterface *>().size(), 1); // kept as it is
        QCOMPARE(app.currentSettings(255, 1000), 0);
        QCOMPARE(log.takeLines(), QStringList());
        QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), -1);
        QCOMPARE(log.takeLines().value(0), u"warning: ClientApp:: client 6003 disconnected."_s);
        QCOMPARE(app.findChildren<QDBusAbstractInterface *>().size(), 1);
    }

    void aClientWhoseNameAppearsLateIsServed()
    {
        ClientApp app(6010, u"com.varn.late"_s, u"/com/varn/maps"_s, Interface);
        LogCapture log;
        app.currentSettings(255, 1000);
        QCOMPARE(log.takeLines().size(), 2);
        FakeClient client(u"com.varn.late"_s);
        app.currentSettings(255, 1000);
        QCOMPARE(app.satellitesInUseUpdate({}), 0);
        QCOMPARE(client.callCount(), 2);
        QCOMPARE(log.takeLines(), QStringList());
    }

    void aClientIsNeverStarted()
    {
        // The bus knows how to start this one, and would say why it could not.
        ClientApp app(6009, u"com.varn.sleeper"_s, u"/maps"_s, Interface);
        LogCapture log;
        QCOMPARE(app.satellitesInUseUpdate({}), -1);
        const QStringList lines = log.takeLines();
        QCOMPARE(lines.size(), 4);
        QVERIFY2(lines[3] == u"warning: Name \"com.varn.sleeper\" does not exist", qPrintable(lines[3]));
    }

    void malformedNamesFailQuietlyAfterTheFirstDelivery_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<QString>("path");
        const QString good = QDBusConnection::sessionBus().baseService();
        QTest::newRow("no service") << QString() << u"/maps"_s;
        QTest::newRow("a service of one word") << u"maps"_s << u"/maps"_s;
        QTest::newRow("a wildcard service") << u"com.varn.*"_s << u"/maps"_s;
        QTest::newRow("a service with a quote") << u"com.varn',type='signal"_s << u"/maps"_s;
        QTest::newRow("a service of 300 characters") << u"a."_s + QString(300, u'b') << u"/maps"_s;
        QTest::newRow("no path") << good << QString();
        QTest::newRow("a relative path") << good << u"maps"_s;
        QTest::newRow("a path with an empty element") << good << u"//maps"_s;
        QTest::newRow("a path with a blank") << good << u"/my maps"_s;
        QTest::newRow("neither") << u"\u00e4"_s << u"\u00e4"_s;
    }
    void malformedNamesFailQuietlyAfterTheFirstDelivery()
    {
        QFETCH(QString, service);
        QFETCH(QString, path);
        LogCapture log;
        ClientApp app(6004, service, path, Interface);
        QSignalSpy gone(&app, &ClientApp::clientDisconnected);
        QCOMPARE(log.takeLines(), QStringList());
        QCOMPARE(app.currentSettings(255, 1000), 0);
        const QStringList lines = log.takeLines();
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines[0], u"critical: ClientApp::connectClient() failed."_s);
        QVERIFY(lines[1].startsWith(u"critical: "));

        QCOMPARE(send(app, fixAt(60.1), Satellite), 0);
        QCOMPARE(log.takeLines(), QStringList{u"debug: ClientApp::sendPositionUpdate: clientId=6004, type=0, "
                                              "fix=60.1000000,24.9383790,25.500000,11.358000,-1.000000"_s});
        QCOMPARE(app.currentSettings(255, 1000), 0);
        QCOMPARE(log.takeLines(), QStringList());
        QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), -1);
        QCOMPARE(log.takeLines().value(0), u"warning: ClientApp:: client 6004 disconnected."_s);

        // A wildcard would have seen this one go.
        FakeClient(u"com.varn.maps"_s).leave();
        QTRY_VERIFY(!isOnBus(u"com.varn.maps"_s));
        QCOMPARE(gone.count(), 0);
    }

    void theDaemonsOwnClientsAreNeverCalled_data()
    {
        QTest::addColumn<QString>("service");
        QTest::newRow("context") << u"context"_s;
        QTest::newRow("prestart") << u"prestart"_s;
    }
    void theDaemonsOwnClientsAreNeverCalled()
    {
        QFETCH(QString, service);
        LogCapture log;
        ClientApp app(6005, service, service, Interface);
        for (int round = 0; round < 2; ++round) {
            QCOMPARE(send(app, fixAt(60.1, 2.0), Satellite), 0);
            QCOMPARE(app.satellitesInUseUpdate(oneSatellite()), 0);
            QCOMPARE(app.satellitesInViewUpdate(oneSatellite()), 0);
            QCOMPARE(app.currentSettings(255, 1000), 0);
        }
        QVERIFY(app.findChildren<QDBusAbstractInterface *>().isEmpty());
        QCOMPARE(log.takeLines(), QStringList());
    }

    void leavingTheBusIsToldOnce_data() { aFixReachesTheClient_data(); }
    void leavingTheBusIsToldOnce()
    {
        QFETCH(QString, name);
        FakeClient client(name);
        const QString service = client.service();
        ClientApp app(6006, service, client.path(), Interface);
        QSignalSpy gone(&app, &ClientApp::clientDisconnected);
        FakeClient other; // somebody else's departure is nothing
        other.leave();
        QCOMPARE(app.satellitesInUseUpdate({}), 0);
        QCOMPARE(gone.count(), 0);

        LogCapture log;
        client.leave();
        QTRY_COMPARE(gone.count(), 1);
        QCOMPARE(gone.takeFirst(), QVariantList{6006});
        QCOMPARE(log.takeLines(),
                 QStringList{u"debug: serviceHasJustLeftTheBuilding:  \"%1\""_s.arg(service)});
        QCOMPARE(app.satellitesInUseUpdate({}), -1);
        QCOMPARE(gone.count(), 0);
    }

    void aNameThatAppearsIsNoDeparture()
    {
        ClientApp app(6007, u"com.varn.late"_s, u"/maps"_s, Interface);
        QSignalSpy gone(&app, &ClientApp::clientDisconnected);
        FakeClient client(u"com.varn.late"_s);
        client.leave();
        QTRY_COMPARE(gone.count(), 1);
    }

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

private:
    static bool isOnBus(const QString &name)
    {
        auto call = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/"_s,
                                                   u"org.freedesktop.DBus"_s, u"NameHasOwner"_s);
        call << name;
        return QDBusConnection::sessionBus().call(call).arguments().value(0).toBool();
    }
};

QTEST_GUILESS_MAIN(TestClientApp)
#include "tst_clientapp.moc"
