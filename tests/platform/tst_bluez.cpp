#include "platform/bluez.h"
#include "support/fakebluez.h"
#include "support/privatebus.h"

#include <QDBusConnection>
#include <QTest>

using namespace Qt::StringLiterals;

class TestBluez : public QObject
{
    Q_OBJECT

private slots:
    void nothingIsKnownWithoutBluez();
    void theDefaultAdapter();
    void devicesOfTheAdapter();
    void anAdapterThatIsGone();
    void aBusThatIsNotThere();
};

void TestBluez::nothingIsKnownWithoutBluez()
{
    const auto bus = QDBusConnection::systemBus();
    QVERIFY(!bluez::defaultAdapter(bus));
    QVERIFY(!bluez::findDevice(bus, QDBusObjectPath(u"/org/bluez/4711/hci0"_s), u"00:11:22:33:44:55"_s));
}

void TestBluez::theDefaultAdapter()
{
    const auto bus = QDBusConnection::systemBus();
    FakeBluez bluez;
    QVERIFY(!bluez::defaultAdapter(bus));
    bluez.plugAdapter();
    const auto adapter = bluez::defaultAdapter(bus);
    QVERIFY(adapter.has_value());
    QCOMPARE(adapter->path(), u"/org/bluez/4711/hci0"_s);
    QCOMPARE(bluez.takeCalls(),
             QStringList({u"DefaultAdapter"_s, u"DefaultAdapter"_s})); // never introspected
}

void TestBluez::devicesOfTheAdapter()
{
    const auto bus = QDBusConnection::systemBus();
    FakeBluez bluez;
    bluez.plugAdapter();
    bluez.pair(u"00:1A:7D:DA:71:13"_s);
    const auto adapter = bluez::defaultAdapter(bus);
    QVERIFY(adapter.has_value());
    const auto device = bluez::findDevice(bus, *adapter, u"00:1A:7D:DA:71:13"_s);
    QVERIFY(device.has_value());
    QCOMPARE(device->path(), u"/org/bluez/4711/hci0/dev_00_1A_7D_DA_71_13"_s);
    QVERIFY(!bluez::findDevice(bus, *adapter, u"00:00:00:00:00:00"_s));
    QVERIFY(!bluez::findDevice(bus, *adapter, u""_s));
}

void TestBluez::anAdapterThatIsGone()
{
    FakeBluez bluez;
    bluez.pair(u"00:1A:7D:DA:71:13"_s);
    const QDBusObjectPath gone(u"/org/bluez/4711/hci9"_s);
    QVERIFY(!bluez::findDevice(QDBusConnection::systemBus(), gone, u"00:1A:7D:DA:71:13"_s));
}

void TestBluez::aBusThatIsNotThere()
{
    QVERIFY(!bluez::defaultAdapter(QDBusConnection(u"no such connection"_s)));
}

PRIVATE_BUS_TEST_MAIN(TestBluez)
#include "tst_bluez.moc"
