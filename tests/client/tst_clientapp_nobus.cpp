#include "client/clientapp.h"
#include "support/logcapture.h"

#include <QDBusAbstractInterface>
#include <QDBusConnection>
#include <QDBusError>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QTest>

using namespace Qt::StringLiterals;

// A process whose session bus is not there.
class TestWithoutBus : public QObject
{
    Q_OBJECT
private slots:
    void theFirstDeliveryReportsItAndNoneIsTriedAgain_data()
    {
        QTest::addColumn<int>("first");
        QTest::newRow("a position first") << 0;
        QTest::newRow("satellites first") << 1;
        QTest::newRow("settings first") << 2;
    }
    void theFirstDeliveryReportsItAndNoneIsTriedAgain()
    {
        QFETCH(int, first);
        QVERIFY(!QDBusConnection::sessionBus().isConnected());
        LogCapture log;
        ClientApp app(6000, u"com.varn.maps"_s, u"/maps"_s, u"com.varn.qlocation.updates"_s);
        QCOMPARE(log.takeLines(), QStringList());

        const QString notConnected = u"critical: ClientApp::Cannot connect to the D-BUS session bus."_s;
        const QStringList warnings{u"warning: ClientApp:: client 6000 disconnected."_s,
                                   u"warning: "_s + QDBusConnection::sessionBus().lastError().message()};
        const QStringList fixLine{u"debug: ClientApp::sendPositionUpdate: clientId=6000, type=0, fix=,,,,"_s};
        for (int round = 0; round < 4; ++round) {
            const QStringList expected = round == 0 ? QStringList{notConnected} : QStringList{};
            QGeoPositionInfo fix;
            switch ((first + round) % 3) {
            case 0:
                QCOMPARE(app.sendPositionUpdate(fix, 0), 0);
                QCOMPARE(log.takeLines(), expected + fixLine);
                break;
            case 1:
                QCOMPARE(app.satellitesInUseUpdate({}), -1);
                QCOMPARE(log.takeLines(), expected + warnings);
                break;
            case 2:
                QCOMPARE(app.currentSettings(255, 1000), 0);
                QCOMPARE(log.takeLines(), expected);
                break;
            }
        }
        QVERIFY(app.findChildren<QDBusAbstractInterface *>().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestWithoutBus)
#include "tst_clientapp_nobus.moc"
