#include "platform/veskstage.h"
#include "support/fakenetworkmanager.h"
#include "support/privatebus.h"

#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

// Network positioning through a GeoClue that works.
class TestVeskPositioning : public QObject
{
    Q_OBJECT

private slots:
    void theConversation();
    void whatIsAsked_data();
    void whatIsAsked();
    void aLocationThatGeoClueRemembers();
    void anOldLocationIsNotTheAnswer();
    void anAccurateLocationEndsTheSearch();
    void theBestAfterAWhile();
    void theBestWhenTimeIsUp();
    void nothingFoundInTime();
    void oneRequestAtATime();
    void askedAgainInsideTheAnswer();
    void deletedInsideTheAnswer();
    void deletedWhileSearching();
    void refusedAtOnce();
    void measurementsAreNotSupported();
    void packetDataNotAllowed_data();
    void packetDataNotAllowed();
    void packetDataAllowedAsksNobody();
    void packetDataNobodyKnows();
    void packetDataWhileNetworkManagerHangs();
};

void TestVeskPositioning::theConversation()
{
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.answers.isEmpty());
    QVERIFY(stage.searching());
    FakeGeoClue::Location location = stage.found(20.0, 2);
    location.microseconds = 250000;
    location.altitude = 31.5;
    stage.geoclue.locate(location);
    QVERIFY(stage.ended(vesk::Success));

    QCOMPARE(stage.position.latitude(), 60.17);
    QCOMPARE(stage.position.longitude(), 24.94);
    QCOMPARE(stage.position.horizontalAccuracy(), 20.0F);
    QCOMPARE(stage.position.altitude(), 31.5F);
    QVERIFY(std::isnan(stage.position.altitudeAccuracy()));
    QCOMPARE(stage.position.timestamp(), unsigned(stage.clock.time.toSecsSinceEpoch() - 2));
    QCOMPARE(stage.position.timestampMicroseconds(), 250000U);
    QCOMPARE(stage.position.technologyMask(), vesk::Wlan);

    stage.sync();
    const QString client = u"/org/freedesktop/GeoClue2/Client/1"_s;
    QCOMPARE(stage.geoclue.takeCalls(),
             QStringList({u"CreateClient"_s, u"Set DesktopId lodestard"_s, u"Set RequestedAccuracyLevel 6"_s,
                          u"Start"_s, u"GetAll "_s + client + u"/Location/0"_s, u"DeleteClient "_s + client,
                          u"Sync"_s}));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::whatIsAsked_data()
{
    QTest::addColumn<unsigned>("mask");
    QTest::addColumn<QString>("level");
    QTest::addColumn<unsigned>("technology"); // of a location of 80 m
    QTest::newRow("WLAN") << 0x01U << u"6"_s << 0x01U;
    QTest::newRow("cells") << 0x0EU << u"5"_s << 0x02U;
    QTest::newRow("both") << 0x0FU << u"6"_s << 0x01U;
}

void TestVeskPositioning::whatIsAsked()
{
    QFETCH(unsigned, mask);
    QFETCH(QString, level);
    VeskStage stage;
    QCOMPARE(stage.request(mask), 0);
    QVERIFY(stage.searching());
    QVERIFY(stage.geoclue.takeCalls().contains(u"Set RequestedAccuracyLevel "_s + level));
    stage.geoclue.locate(stage.found(80.0));
    QVERIFY(stage.ended(vesk::Success));
    QTEST(stage.position.technologyMask(), "technology");
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::aLocationThatGeoClueRemembers()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0, 30));
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.timestamp(), unsigned(stage.clock.time.toSecsSinceEpoch() - 30));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::anOldLocationIsNotTheAnswer()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0, 31));
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    stage.sync();
    stage.sync();
    QVERIFY(stage.answers.isEmpty());
    stage.geoclue.locate(stage.found(90.0));
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 90.0F);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::anAccurateLocationEndsTheSearch()
{
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    for (const double accuracy : {25000.0, 2000.0, 101.0, 99.0, 10.0})
        stage.geoclue.locate(stage.found(accuracy));
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 99.0F);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::theBestAfterAWhile()
{
    VeskStage stage({.settle = 500ms});
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    for (const double accuracy : {25000.0, 2000.0, 5000.0})
        stage.geoclue.locate(stage.found(accuracy));
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 2000.0F);
    QCOMPARE(stage.position.technologyMask(), vesk::CellFine);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::theBestWhenTimeIsUp()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(25000.0));
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::Allowed, 2), 0);
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 25000.0F);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::nothingFoundInTime()
{
    VeskStage stage({.timeoutUnit = 300ms, .settle = 1h});
    stage.position.setLatitude(1.5);
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::Allowed, 1), 0);
    QVERIFY(stage.ended(vesk::UnknownLocation));
    QCOMPARE(stage.position.latitude(), 1.5); // the record is left alone
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::oneRequestAtATime()
{
    VeskStage stage;
    VeskPosition other;
    QCOMPARE(stage.request(), 0);
    QCOMPARE(stage.request(), -2101);
    QVERIFY(stage.searching());
    QCOMPARE(stage.positioning->currentPositionAsync(other, vesk::Wlan, VeskStage::Allowed, 1), -2101);
    stage.geoclue.locate(stage.found(20.0));
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 20.0F);
    QVERIFY(std::isnan(other.horizontalAccuracy()));
    QCOMPARE(stage.geoclue.takeCalls().count(u"CreateClient"_s), 1);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::askedAgainInsideTheAnswer()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    int second = -1;
    stage.reaction = [&] { second = stage.request(); };
    QCOMPARE(stage.request(), 0);
    QTRY_COMPARE(stage.answers.size(), 2);
    QCOMPARE(second, 0);
    QCOMPARE(stage.takeAnswers(), (QList<std::pair<int, int>>{{0, 1}, {0, 1}}));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::deletedInsideTheAnswer()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    stage.reaction = [&] { stage.positioning.reset(); };
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::deletedWhileSearching()
{
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    stage.positioning.reset();
    stage.geoclue.locate(stage.found(20.0));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::refusedAtOnce()
{
    VeskStage stage;
    QCOMPARE(stage.request(0), -2102);
    QCOMPARE(stage.request(0x30), -2102);
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::Allowed, 0), -2102);
    QCOMPARE(stage.request(vesk::Wlan, VeskPacketDataUsage(3)), -2102);
    VeskPositioning unobserved(nullptr);
    QCOMPARE(unobserved.currentPositionAsync(stage.position, vesk::Wlan, VeskStage::Allowed, 20), -2102);
    stage.sync();
    QCOMPARE(stage.geoclue.takeCalls(), QStringList(u"Sync"_s));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::measurementsAreNotSupported()
{
    VeskStage stage;
    VeskMeasurements measurements;
    QCOMPARE(stage.positioning->currentMeasurementsAsync(measurements, 0x3F, 20), -2108);
    QCOMPARE(stage.positioning->convertToPositionAsync(stage.position, measurements, VeskStage::Allowed, 20),
             -2108);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::packetDataNotAllowed_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("metered");
    QTest::addColumn<int>("error");
    QTest::newRow("mobile data") << u"gsm"_s << 0U << -2107;
    QTest::newRow("a metered WLAN") << u"802-11-wireless"_s << 1U << -2107;
    QTest::newRow("a WLAN") << u"802-11-wireless"_s << 0U << 0;
}

void TestVeskPositioning::packetDataNotAllowed()
{
    QFETCH(QString, type);
    QFETCH(quint32, metered);
    QFETCH(int, error);
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    const FakeNetworkManager networkManager(type, metered);
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::NotAllowed), 0);
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::NotAllowed), -2101);
    QVERIFY(stage.ended(error));
    QCOMPARE(networkManager.calls(), 1);
    QCOMPARE(stage.geoclue.takeCalls().contains(u"CreateClient"_s), error == 0);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::packetDataAllowedAsksNobody()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    const FakeNetworkManager networkManager(u"gsm"_s, 1);
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(networkManager.calls(), 0);
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::packetDataNobodyKnows()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    QCOMPARE(stage.request(vesk::Cellular, VeskStage::NotAllowed), 0);
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

void TestVeskPositioning::packetDataWhileNetworkManagerHangs()
{
    VeskStage stage({.timeoutUnit = 300ms});
    stage.geoclue.cache(stage.found(20.0));
    FakeNetworkManager networkManager(u"gsm"_s, 1);
    networkManager.becomeSilent();
    QCOMPARE(stage.request(vesk::Wlan, VeskStage::NotAllowed, 1), 0);
    QVERIFY(stage.ended(vesk::UnknownLocation));
    QCOMPARE(stage.geoclue.takeCalls(), QStringList());
    QVERIFY(stage.isOver());
}

PRIVATE_BUS_TEST_MAIN(TestVeskPositioning)
#include "tst_veskpositioning.moc"
