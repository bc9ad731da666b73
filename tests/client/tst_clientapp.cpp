#include "client/clientapp.h"
#include "client/fakeclient.h"
#include "client/fixstream.h"
#include "client/samples.h"
#include "support/logcapture.h"

#include <QDBusAbstractInterface>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusServiceWatcher>
#include <QFile>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QSignalSpy>
#include <QTest>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

using namespace samples;

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
        QCOMPARE(log.takeLines(), QStringList{u"debug: serviceHasJustLeftTheBuilding:  %1"_s.arg(service)});
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
