#include "core/fixdistribution.h"
#include "core/methodselection.h"

#include <QDateTime>
#include <QTest>

using Receiver = std::optional<FixReceiver>;
Q_DECLARE_METATYPE(Receiver)
Q_DECLARE_METATYPE(FreeFix)
Q_DECLARE_METATYPE(FixSource)
Q_DECLARE_METATYPE(NetworkState)

namespace {

const QGeoCoordinate Here(60.17, 24.94);
const QGeoCoordinate There(60.18, 24.94);
const QGeoCoordinate Above(60.17, 24.94, 12.0);
const QDateTime Earlier(QDate(2024, 3, 1), QTime(12, 0, 0));
const QDateTime Later(QDate(2024, 3, 1), QTime(12, 0, 0, 1));

QGeoPositionInfo fixAt(const QGeoCoordinate &coordinate, const QDateTime &time = Earlier)
{
    return QGeoPositionInfo(coordinate, time);
}

} // namespace

class TestFixDistribution : public QObject
{
    Q_OBJECT

private slots:
    void ownSession_data();
    void ownSession();
    void newPosition_data();
    void newPosition();
    void freeFixes_data();
    void freeFixes();
    void fallback_data();
    void fallback();
    void newer_data();
    void newer();
    void networkState_data();
    void networkState();
};

void TestFixDistribution::ownSession_data()
{
    QTest::addColumn<bool>("stopped");
    QTest::addColumn<bool>("satelliteDisabled");
    QTest::addColumn<bool>("expected");

    QTest::newRow("a started client gets its fix") << false << false << true;
    QTest::newRow("a stopped client does not") << true << false << false;
    QTest::newRow("nobody does while satellites are disabled") << false << true << false;
    QTest::newRow("stopped and disabled neither") << true << true << false;
}

void TestFixDistribution::ownSession()
{
    QFETCH(bool, stopped);
    QFETCH(bool, satelliteDisabled);
    QTEST(receivesOwnSatelliteFix({stopped, Methods::All}, satelliteDisabled), "expected");
}

void TestFixDistribution::newPosition_data()
{
    QTest::addColumn<QGeoPositionInfo>("fix");
    QTest::addColumn<QGeoPositionInfo>("latest");
    QTest::addColumn<bool>("expected");

    QTest::newRow("the first position is new") << fixAt(Here) << QGeoPositionInfo() << true;
    QTest::newRow("another latitude is new") << fixAt(There) << fixAt(Here) << true;
    QTest::newRow("another altitude is new") << fixAt(Above) << fixAt(Here) << true;
    QTest::newRow("the same position later is not") << fixAt(Here, Later) << fixAt(Here, Earlier) << false;
    QTest::newRow("a lost position is new") << fixAt(QGeoCoordinate()) << fixAt(Here) << true;
    QTest::newRow("no position after none is not") << QGeoPositionInfo() << QGeoPositionInfo() << false;
}

void TestFixDistribution::newPosition()
{
    QFETCH(QGeoPositionInfo, fix);
    QFETCH(QGeoPositionInfo, latest);
    QTEST(isNewPosition(fix, latest), "expected");
}

void TestFixDistribution::freeFixes_data()
{
    QTest::addColumn<FixSource>("source");
    QTest::addColumn<Receiver>("client");
    QTest::addColumn<FreeFix>("expected");

    using enum FreeFix;
    using namespace Methods;
    constexpr auto Sat = FixSource::Satellite;
    constexpr auto Net = FixSource::Network;
    const auto client = [](bool stopped, quint32 methods) { return Receiver(FixReceiver{stopped, methods}); };
    QTest::newRow("satellite: a client that left is forgotten") << Sat << Receiver() << Forget;
    QTest::newRow("satellite: a started client is served by its own sessions")
        << Sat << client(false, All) << Skip;
    QTest::newRow("satellite: a stopped client is served") << Sat << client(true, All) << Send;
    QTest::newRow("satellite: one satellite bit is enough") << Sat << client(true, 0x01) << Send;
    QTest::newRow("satellite: a stopped network client is not served")
        << Sat << client(true, NonSatellite) << Skip;
    QTest::newRow("network: a client that left is forgotten") << Net << Receiver() << Forget;
    QTest::newRow("network: a stopped client is served") << Net << client(true, NonSatellite) << Send;
    QTest::newRow("network: a started client is served too") << Net << client(false, All) << Send;
    QTest::newRow("network: one network bit is enough") << Net << client(true, 0x100) << Send;
    QTest::newRow("network: a satellite client is not served") << Net << client(true, Satellite) << Skip;
}

void TestFixDistribution::freeFixes()
{
    QFETCH(FixSource, source);
    QFETCH(Receiver, client);
    QTEST(freeFix(source, client), "expected");
}

void TestFixDistribution::fallback_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("wanted");
    QTest::addColumn<bool>("engineReady");
    QTest::addColumn<bool>("expected");

    QTest::newRow("an unknown location goes to the engine") << -2105 << true << true << true;
    QTest::newRow("where the product wants that") << -2105 << false << true << false;
    QTest::newRow("while there is an engine") << -2105 << true << false << false;
    QTest::newRow("success does not") << 0 << true << true << false;
    QTest::newRow("a refusal does not") << -2104 << true << true << false;
    QTest::newRow("a cancelled request does not") << -2100 << true << true << false;
}

void TestFixDistribution::fallback()
{
    QFETCH(int, error);
    QFETCH(bool, wanted);
    QFETCH(bool, engineReady);
    QTEST(fallsBackToSupl(error, wanted, engineReady), "expected");
}

void TestFixDistribution::newer_data()
{
    QTest::addColumn<QGeoPositionInfo>("satellite");
    QTest::addColumn<QGeoPositionInfo>("network");
    QTest::addColumn<bool>("satelliteExpected");

    QTest::newRow("an older network fix loses") << fixAt(Here, Later) << fixAt(There, Earlier) << true;
    QTest::newRow("a newer network fix wins") << fixAt(Here, Earlier) << fixAt(There, Later) << false;
    QTest::newRow("at equal times the network fix wins")
        << fixAt(Here, Later) << fixAt(There, Later) << false;
    QTest::newRow("a missing network fix loses") << fixAt(Here) << QGeoPositionInfo() << true;
    QTest::newRow("a missing satellite fix loses") << QGeoPositionInfo() << fixAt(There) << false;
}

void TestFixDistribution::newer()
{
    QFETCH(QGeoPositionInfo, satellite);
    QFETCH(QGeoPositionInfo, network);
    QFETCH(bool, satelliteExpected);
    QCOMPARE(&newerFix(satellite, network), satelliteExpected ? &satellite : &network);
}

void TestFixDistribution::networkState_data()
{
    QTest::addColumn<QGeoPositionInfo>("fix");
    QTest::addColumn<NetworkState>("before");
    QTest::addColumn<NetworkState>("after");

    using enum NetworkState;
    QTest::newRow("a position is a fix") << fixAt(Here) << Running << Fix;
    QTest::newRow("no position leaves it running") << QGeoPositionInfo() << Running << Running;
    QTest::newRow("no position leaves an earlier fix") << QGeoPositionInfo() << Fix << Fix;
    QTest::newRow("a position without a time counts too") << fixAt(Here, QDateTime()) << Running << Fix;
}

void TestFixDistribution::networkState()
{
    QFETCH(QGeoPositionInfo, fix);
    QFETCH(NetworkState, before);
    QTEST(networkStateAfter(fix, before), "after");
}

QTEST_APPLESS_MAIN(TestFixDistribution)
#include "tst_fixdistribution.moc"
