#include "client/clientapp.h"
#include "core/clientregistry.h"
#include "core/methodselection.h"

#include <QPointer>
#include <QTest>

using namespace Qt::StringLiterals;

class TestClientRegistry : public QObject
{
    Q_OBJECT

private slots:
    void idsGrowFrom6000AndAreNeverReused();
    void aNewClientIsStoppedAndAsksForEverythingOnceASecond();
    void clientsAreFoundById();
    void sessionsAreFoundByTheirExactIdFirst();
    void sessionsBeyond65535AreFoundByTheirLowBits();
    void aVisitorSeesRegistrationOrder();
    void clientsMayLeaveAndComeDuringAVisit();
    void aProxyMayBeRemovedInsideItsOwnSignal();
    void startedSatelliteClients_data();
    void startedSatelliteClients();
    void freeFixIdsAreEnrolledOnce();
    void aRemovedClientLeavesTheFreeFixList();
    void prestartIdsComeBackOldestFirst();
    void parkedRequestsComeBackInOrder();

private:
    static ClientApp &add(ClientRegistry &registry)
    {
        return registry.add(u"prestart"_s, u"prestart"_s, u"i.f"_s);
    }
};

void TestClientRegistry::idsGrowFrom6000AndAreNeverReused()
{
    ClientRegistry registry;
    QCOMPARE(add(registry).id(), 6000);
    QCOMPARE(add(registry).id(), 6001);
    QVERIFY(registry.remove(6001));
    QCOMPARE(add(registry).id(), 6002);
}

void TestClientRegistry::aNewClientIsStoppedAndAsksForEverythingOnceASecond()
{
    ClientRegistry registry;
    const ClientApp &client = add(registry);
    QVERIFY(client.isStopped());
    QCOMPARE(client.methods(), Methods::All);
    QCOMPARE(client.interval(), 1);
    QVERIFY(!client.wantsSatelliteInfo());
    QVERIFY(!client.isModified());
    QVERIFY(!client.isGnssActive());
    QVERIFY(!client.isSuplActive());
}

void TestClientRegistry::clientsAreFoundById()
{
    ClientRegistry registry;
    for (int i = 0; i < 5; ++i)
        add(registry);
    registry.remove(6002);
    for (const int id : {6000, 6001, 6003, 6004}) {
        QVERIFY(registry.find(id));
        QCOMPARE(registry.find(id)->id(), id);
    }
    for (const int id : {-1, 0, 5999, 6002, 6005, INT_MAX, INT_MIN})
        QVERIFY(!registry.find(id));
    QVERIFY(!registry.remove(6002));
    QVERIFY(!registry.remove(-1));
}

void TestClientRegistry::sessionsAreFoundByTheirExactIdFirst()
{
    ClientRegistry registry;
    ClientApp &client = add(registry);
    QCOMPARE(registry.findSession(6000), &client); // whether its session runs or not
    QVERIFY(!registry.findSession(6001));
    QVERIFY(!registry.findSession(0));
}

void TestClientRegistry::sessionsBeyond65535AreFoundByTheirLowBits()
{
    constexpr int Wrapped = 0x10000 + 6000; // travels as 6000
    ClientRegistry registry;
    // Those in between have come and gone.
    for (int id = 0; id != Wrapped;) {
        id = add(registry).id();
        if (id != 6000 && id != Wrapped)
            registry.remove(id);
        if (id % 1000 == 0)
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    ClientApp *client = registry.find(Wrapped);
    QVERIFY(client);
    QCOMPARE(registry.findSession(6000), registry.find(6000)); // the exact id wins

    registry.remove(6000);
    QVERIFY(!registry.findSession(6000)); // no session runs
    client->setGnssActive(true);
    QCOMPARE(registry.findSession(6000), client);
}

void TestClientRegistry::aVisitorSeesRegistrationOrder()
{
    ClientRegistry registry;
    for (int i = 0; i < 3; ++i)
        add(registry);
    QList<int> seen;
    registry.forEach([&seen](ClientApp &client) { seen << client.id(); });
    QCOMPARE(seen, (QList<int>{6000, 6001, 6002}));
}

void TestClientRegistry::clientsMayLeaveAndComeDuringAVisit()
{
    ClientRegistry registry;
    for (int i = 0; i < 4; ++i)
        add(registry);
    QList<int> seen;
    registry.forEach([&](ClientApp &client) {
        seen << client.id();
        if (client.id() == 6001) {
            registry.remove(6001); // itself
            registry.remove(6002); // one that is still to come
            add(registry);
        }
    });
    QCOMPARE(seen, (QList<int>{6000, 6001, 6003}));
    QVERIFY(registry.find(6004));
}

void TestClientRegistry::aProxyMayBeRemovedInsideItsOwnSignal()
{
    ClientRegistry registry;
    ClientApp &client = add(registry);
    const QPointer<ClientApp> proxy(&client);
    connect(&client, &ClientApp::clientDisconnected, this, [&](int id) {
        QVERIFY(registry.remove(id));
        QVERIFY(!registry.find(id));
        QVERIFY(proxy); // still on the stack
    });
    emit client.clientDisconnected(client.id());
    QVERIFY(proxy);
    QTRY_VERIFY(!proxy);
}

void TestClientRegistry::startedSatelliteClients_data()
{
    QTest::addColumn<bool>("stopped");
    QTest::addColumn<quint32>("methods");
    QTest::addColumn<bool>("expected");

    QTest::newRow("a started client of all methods counts") << false << Methods::All << true;
    QTest::newRow("a started client with one satellite bit counts") << false << 1U << true;
    QTest::newRow("a started network client does not") << false << Methods::NonSatellite << false;
    QTest::newRow("a stopped client does not") << true << Methods::All << false;
}

void TestClientRegistry::startedSatelliteClients()
{
    QFETCH(bool, stopped);
    QFETCH(quint32, methods);
    ClientRegistry registry;
    QVERIFY(!registry.anyStartedSatelliteClient());
    add(registry);
    ClientApp &client = add(registry);
    client.setStopped(stopped);
    client.setMethods(methods);
    QTEST(registry.anyStartedSatelliteClient(), "expected");
}

void TestClientRegistry::freeFixIdsAreEnrolledOnce()
{
    ClientRegistry registry;
    QVERIFY(registry.enrolFreeFix(6000));
    QVERIFY(registry.enrolFreeFix(6001));
    QVERIFY(!registry.enrolFreeFix(6000));
    QCOMPARE(registry.freeFixIds(), (QList<int>{6000, 6001}));
    registry.dropFreeFix(6000);
    QCOMPARE(registry.freeFixIds(), (QList<int>{6001}));
    QVERIFY(registry.enrolFreeFix(6000));
}

void TestClientRegistry::aRemovedClientLeavesTheFreeFixList()
{
    ClientRegistry registry;
    add(registry);
    registry.enrolFreeFix(6000);
    registry.enrolFreeFix(6001); // of no client
    QVERIFY(registry.remove(6000));
    QVERIFY(!registry.remove(6001));
    QVERIFY(registry.freeFixIds().isEmpty());
}

void TestClientRegistry::prestartIdsComeBackOldestFirst()
{
    ClientRegistry registry;
    QVERIFY(!registry.takeOldestPrestart());
    registry.addPrestart(6001);
    registry.addPrestart(6005);
    QCOMPARE(registry.takeOldestPrestart().value(), 6001);
    QCOMPARE(registry.takeOldestPrestart().value(), 6005);
    QVERIFY(!registry.takeOldestPrestart());
}

void TestClientRegistry::parkedRequestsComeBackInOrder()
{
    ClientRegistry registry;
    QVERIFY(!registry.takeParked());
    const PendingRequest first{.id = 6000, .command = 13, .method = -1, .interval = 1000};
    const PendingRequest second{.id = 4711, .command = 1, .method = 0, .interval = INT_MIN};
    registry.park(first);
    registry.park(second);
    registry.park(first);
    QVERIFY(registry.takeParked() == first);
    QVERIFY(registry.takeParked() == second);
    QVERIFY(registry.takeParked() == first);
    QVERIFY(!registry.takeParked());
}

QTEST_GUILESS_MAIN(TestClientRegistry)
#include "tst_clientregistry.moc"
