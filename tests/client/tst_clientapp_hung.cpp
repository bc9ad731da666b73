#include "client/clientapp.h"
#include "client/fakeclient.h"
#include "support/logcapture.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QElapsedTimer>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QTest>

using namespace Qt::StringLiterals;

// A client that takes calls and never answers. Runs on a clock that is much too fast, so that the
// time-out passes in a moment; the seconds here are that clock's.
class TestHungClient : public QObject
{
    Q_OBJECT
private slots:
    void aSatelliteCallEndsWithTheBusLibrarysTimeOut()
    {
        FakeClient client;
        client.setAnswer(FakeClient::Answer::None);
        ClientApp app(6000, client.service(), u"/com/varn/maps"_s, u"com.varn.qlocation.updates"_s);
        LogCapture log;
        QElapsedTimer elapsed;
        elapsed.start();
        QCOMPARE(app.satellitesInViewUpdate({}), -1);
        QVERIFY2(elapsed.elapsed() >= 24000, QByteArray::number(elapsed.elapsed()).constData());
        const QString lastError = QDBusConnection::sessionBus().lastError().message();
        QCOMPARE(QDBusConnection::sessionBus().lastError().type(), QDBusError::NoReply);
        QCOMPARE(log.takeLines(), (QStringList{u"warning: ClientApp:: client 6000 disconnected."_s,
                                               u"warning: "_s + lastError}));
        QCOMPARE(client.callCount(), 1);
    }

    void aFixDoesNotWait()
    {
        FakeClient client;
        client.setAnswer(FakeClient::Answer::None);
        ClientApp app(6000, client.service(), u"/com/varn/maps"_s, u"com.varn.qlocation.updates"_s);
        app.currentSettings(255, 1000);
        LogCapture log;
        QElapsedTimer elapsed;
        elapsed.start();
        QGeoPositionInfo fix;
        QCOMPARE(app.sendPositionUpdate(fix, 0), 0);
        QCOMPARE(app.currentSettings(255, 1000), 0);
        QVERIFY2(elapsed.elapsed() < 20000, QByteArray::number(elapsed.elapsed()).constData());
        QTRY_COMPARE_WITH_TIMEOUT(client.callCount(), 3, 100000);
        QCOMPARE(log.takeLines(),
                 QStringList{u"debug: ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,"_s});
    }
};

QTEST_GUILESS_MAIN(TestHungClient)
#include "tst_clientapp_hung.moc"
