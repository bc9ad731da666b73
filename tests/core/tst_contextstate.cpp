#include "core/contextstate.h"

#include <QGeoCoordinate>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ReceiverState)
Q_DECLARE_METATYPE(NetworkState)

namespace {

using Text = std::optional<QLatin1StringView>;

} // namespace

class TestContextState : public QObject
{
    Q_OBJECT

private slots:
    void theBetterStateWins_data();
    void theBetterStateWins();
    void onlyKnownStatesHaveAText();
    void nothingIsPublishedWithoutSubscribers();
    void eachStateIsPublishedOnce();
    void anUnknownStateIsKeptButNotPublished();
    void coordinates();
    void invalidCoordinates_data();
    void invalidCoordinates();
};

void TestContextState::theBetterStateWins_data()
{
    QTest::addColumn<ReceiverState>("satellite");
    QTest::addColumn<NetworkState>("network");
    QTest::addColumn<QLatin1StringView>("expected");
    using R = ReceiverState;
    using N = NetworkState;
    QTest::newRow("nothing runs") << R::Idle << N::None << "off"_L1;
    QTest::newRow("satellites are searched") << R::Searching << N::None << "search"_L1;
    QTest::newRow("satellites give a fix") << R::Fix << N::None << "on"_L1;
    QTest::newRow("the network is asked") << R::Idle << N::Running << "search"_L1;
    QTest::newRow("both search") << R::Searching << N::Running << "search"_L1;
    QTest::newRow("on of the satellites wins") << R::Fix << N::Running << "on"_L1;
    QTest::newRow("the network has an answer") << R::Idle << N::Fix << "on"_L1;
    QTest::newRow("on of the network wins") << R::Searching << N::Fix << "on"_L1;
    QTest::newRow("both are on") << R::Fix << N::Fix << "on"_L1;
}

void TestContextState::theBetterStateWins()
{
    QFETCH(ReceiverState, satellite);
    QFETCH(NetworkState, network);
    QFETCH(QLatin1StringView, expected);
    QCOMPARE(contextStateText(contextState(satellite, network)), Text(expected));
}

void TestContextState::onlyKnownStatesHaveAText()
{
    QCOMPARE(contextStateText(-1), Text());
    QCOMPARE(contextStateText(3), Text());
}

void TestContextState::nothingIsPublishedWithoutSubscribers()
{
    PublishedState published;
    QCOMPARE(published.update(false, 1), Text());
    QCOMPARE(published.last(), 0);
    QCOMPARE(published.update(false, 2), Text());
    QCOMPARE(published.update(true, 2), Text("on"_L1)); // whoever comes gets what holds now
    QCOMPARE(published.last(), 2);
}

void TestContextState::eachStateIsPublishedOnce()
{
    PublishedState published;
    QCOMPARE(published.update(true, 0), Text()); // "off" is what it begins with
    QCOMPARE(published.update(true, 1), Text("search"_L1));
    QCOMPARE(published.update(true, 1), Text());
    QCOMPARE(published.update(true, 2), Text("on"_L1));
    QCOMPARE(published.update(true, 0), Text("off"_L1));
}

void TestContextState::anUnknownStateIsKeptButNotPublished()
{
    PublishedState published;
    QCOMPARE(published.update(true, 3), Text());
    QCOMPARE(published.last(), 3);
    QCOMPARE(published.update(true, 0), Text("off"_L1));
}

void TestContextState::coordinates()
{
    const auto pair = contextCoordinates(QGeoCoordinate(60.169856123456, -24.938379654321, 25.5));
    QCOMPARE(pair, std::optional(QList<double>{60.169856123456, -24.938379654321}));
    QCOMPARE(contextCoordinates(QGeoCoordinate(0, 0)), std::optional(QList<double>{0, 0}));
}

void TestContextState::invalidCoordinates_data()
{
    QTest::addColumn<QGeoCoordinate>("coordinate");
    QTest::newRow("none") << QGeoCoordinate();
    QTest::newRow("beyond the pole") << QGeoCoordinate(90.1, 0);
    QTest::newRow("beyond the date line") << QGeoCoordinate(0, 180.1);
    QTest::newRow("no longitude") << QGeoCoordinate(1, std::numeric_limits<double>::quiet_NaN());
}

void TestContextState::invalidCoordinates()
{
    QFETCH(QGeoCoordinate, coordinate);
    QVERIFY(!contextCoordinates(coordinate));
}

QTEST_APPLESS_MAIN(TestContextState)
#include "tst_contextstate.moc"
