#include "settings/settingsfixture.h"
#include "support/fakebluez.h"

#include <QTest>

using namespace Qt::StringLiterals;

// What becomes of the remembered Bluetooth receiver when its settings are read.

namespace {

const QString Name = u"SatellitePositioningExternalName"_s;
const QString Address = u"SatellitePositioningExternalAddress"_s;
const QString Internal = u"SatellitePositioningInternal"_s;
const QString Receiver = u"00:1A:7D:DA:71:13"_s;
const QString Removed = u"debug: External BT device removed. Not returning it."_s;
const QString NoAdapter = u"warning: Could not find default bluetooth adapter"_s;
const QString NoDevice = u"debug: Could not find device id: \"00:1A:7D:DA:71:13\""_s;

// A user who chose the receiver, over the internal one.
class ExternalFixture : public SettingsFixture
{
public:
    ExternalFixture()
    {
        startQuietly();
        set(Name, u"BT GPS"_s);
        set(Address, Receiver);
        set(Internal, false);
        takeSignals();
    }
};

} // namespace

class TestExternalDevice : public QObject
{
    Q_OBJECT

private slots:
    void aKnownDeviceIsReturned();
    void anUnknownDeviceIsForgotten_data();
    void anUnknownDeviceIsForgotten();
    void theInternalReceiverIsNotSwitchedOnTwice();
    void nothingIsAskedWithoutADevice();
    void nothingIsAskedForOtherKeys();
    void bothKeysAreClearedByReadingBoth();
    void aNameWithoutAddressIsAskedFor();
    void aReaderInsideTheSignalSeesTheClearedValue();
    void settingTheAddressAsksNothing();
};

void TestExternalDevice::aKnownDeviceIsReturned()
{
    FakeBluez bluez;
    bluez.plugAdapter();
    bluez.pair(Receiver.toLower()); // bluez compares without case
    ExternalFixture f;
    QCOMPARE(f.settings->value(Name), QVariant(u"BT GPS"_s));
    QCOMPARE(f.settings->value(Address), QVariant(Receiver));
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.log.takeLines(), QStringList());
    const QStringList asked{u"DefaultAdapter"_s, u"FindDevice "_s + Receiver};
    QCOMPARE(bluez.takeCalls(), asked + asked); // on every read, by the address also for the name
}

void TestExternalDevice::anUnknownDeviceIsForgotten_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("other");
    QTest::addColumn<bool>("hasBluez");
    QTest::addColumn<bool>("hasAdapter");
    QTest::addColumn<QString>("reason");
    const auto rows = [](const QString &key, const QString &other) {
        const auto tag = [&key](const char *what) {
            return (key + u": "_s + QLatin1StringView(what)).toUtf8();
        };
        QTest::newRow(tag("bluez knows no such device")) << key << other << true << true << NoDevice;
        QTest::newRow(tag("bluez has no adapter")) << key << other << true << false << NoAdapter;
        QTest::newRow(tag("bluez does not run")) << key << other << false << false << NoAdapter;
    };
    rows(Name, Address);
    rows(Address, Name);
}

void TestExternalDevice::anUnknownDeviceIsForgotten()
{
    QFETCH(const QString, key);
    QFETCH(const QString, other);
    QFETCH(const bool, hasBluez);
    QFETCH(const bool, hasAdapter);
    QFETCH(const QString, reason);
    std::unique_ptr<FakeBluez> bluez;
    if (hasBluez)
        bluez = std::make_unique<FakeBluez>();
    if (hasAdapter)
        bluez->plugAdapter();
    ExternalFixture f;

    QCOMPARE(f.settings->value(key), QVariant(u""_s));
    QCOMPARE(f.log.takeLines(), QStringList({reason, Removed}));
    QCOMPARE(f.takeSignals(), QStringList({key, Internal}));
    QCOMPARE(f.settings->value(Internal), QVariant(true));
    f.settings.reset(); // writes what is pending
    const QByteArray file = f.tree.read(SettingsFixture::UserFile);
    QVERIFY(file.contains('\n' + key.toLatin1() + "=\n"));
    QVERIFY(!file.contains('\n' + other.toLatin1() + "=\n")); // left in place
    QVERIFY(file.contains("\nSatellitePositioningInternal=true\n"));
}

void TestExternalDevice::theInternalReceiverIsNotSwitchedOnTwice()
{
    ExternalFixture f;
    QVERIFY(f.set(Internal, true));
    f.takeSignals();
    QCOMPARE(f.settings->value(Name), QVariant(u""_s));
    QCOMPARE(f.takeSignals(), QStringList{Name});
}

void TestExternalDevice::nothingIsAskedWithoutADevice()
{
    FakeBluez bluez;
    SettingsFixture f;
    f.startQuietly();
    QCOMPARE(f.settings->value(Name), QVariant(u""_s));
    QCOMPARE(f.settings->value(Address), QVariant(u""_s));
    QCOMPARE(bluez.takeCalls(), QStringList());
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.log.takeLines(), QStringList());
}

void TestExternalDevice::nothingIsAskedForOtherKeys()
{
    FakeBluez bluez;
    ExternalFixture f;
    for (const auto &row : settingDefinitions()) {
        if (row.key != Name && row.key != Address)
            QVERIFY(f.settings->value(row.key).isValid());
    }
    QCOMPARE(bluez.takeCalls(), QStringList());
}

void TestExternalDevice::bothKeysAreClearedByReadingBoth()
{
    ExternalFixture f;
    QCOMPARE(f.settings->value(Address), QVariant(u""_s));
    QCOMPARE(f.settings->value(Name), QVariant(u""_s));
    QCOMPARE(f.takeSignals(), QStringList({Address, Internal, Name}));
}

void TestExternalDevice::aNameWithoutAddressIsAskedFor()
{
    FakeBluez bluez;
    bluez.plugAdapter();
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(Name, u"BT GPS"_s));
    QCOMPARE(f.settings->value(Name), QVariant(u""_s));
    QCOMPARE(f.log.takeLines(), QStringList({u"debug: Could not find device id: \"\""_s, Removed}));
    QCOMPARE(bluez.takeCalls(), QStringList({u"DefaultAdapter"_s, u"FindDevice "_s}));
}

void TestExternalDevice::aReaderInsideTheSignalSeesTheClearedValue()
{
    FakeBluez bluez;
    ExternalFixture f;
    QVariantList seen;
    connect(f.settings.get(), &LocationSecureSettings::valueChanged, this,
            [&](const QString &key) { seen << f.settings->value(key); });
    QCOMPARE(f.settings->value(Name), QVariant(u""_s));
    QCOMPARE(seen, QVariantList({u""_s, true}));
    QCOMPARE(bluez.takeCalls(), QStringList{u"DefaultAdapter"_s}); // asked once
}

void TestExternalDevice::settingTheAddressAsksNothing()
{
    FakeBluez bluez;
    ExternalFixture f;
    QCOMPARE(bluez.takeCalls(), QStringList());
}

PRIVATE_BUS_TEST_MAIN(TestExternalDevice)
#include "tst_externaldevice.moc"
