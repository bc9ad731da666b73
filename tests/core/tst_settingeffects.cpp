#include "core/settingeffects.h"

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

using FlagPointer = bool SettingFlags::*;
using PeerSettings = QList<PeerSetting>;
Q_DECLARE_METATYPE(FlagPointer)
Q_DECLARE_METATYPE(SettingFlags)
Q_DECLARE_METATYPE(PeerSettings)

namespace {

using F = SettingFlags;
constexpr FlagPointer NoFlag = nullptr;

SettingOutcome changed(const SettingFlags &flags, QLatin1StringView key, const QVariant &value,
                       bool orvClientsBlocked = false)
{
    return settingChange(flags, orvClientsBlocked, key, value);
}

} // namespace

class TestSettingEffects : public QObject
{
    Q_OBJECT

private slots:
    void startOrder();
    void startFlags_data();
    void startFlags();
    void lines_data();
    void lines();
    void flags_data();
    void flags();
    void everyRowIsCovered();
    void receiverSwitch_data();
    void receiverSwitch();
    void whatTouchesTheContextProperties();
    void engineModeFollowsConnectivity();
    void suplServers_data();
    void suplServers();
    void peerSettings_data();
    void peerSettings();
    void suplForcedDecidesAboutTheLibrary();
    void usageBits();
    void methodInputsMirrorTheFlags();
};

void TestSettingEffects::startOrder()
{
    QStringList keys;
    for (const StartSetting &row : startSettings())
        keys << row.key;
    const QStringList expected{
        u"Positioning"_s,         u"SatellitePositioning"_s, u"SatellitePositioningInternal"_s,
        u"CellularPositioning"_s, u"WiFiPositioning"_s,      u"NetworkConnectivity"_s,
        u"InternalGpsDisabled"_s, u"SuplForced"_s,           u"SuplFallback"_s};
    QCOMPARE(keys, expected);
}

void TestSettingEffects::startFlags_data()
{
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<FlagPointer>("flag");
    QTest::addColumn<bool>("flagWhenOn");

    QTest::newRow("Positioning on is not off") << "Positioning"_L1 << &F::positioningOff << false;
    QTest::newRow("SatellitePositioning on is not disabled")
        << "SatellitePositioning"_L1 << &F::satelliteDisabled << false;
    QTest::newRow("SatellitePositioningInternal on is internal")
        << "SatellitePositioningInternal"_L1 << &F::internalGps << true;
    QTest::newRow("CellularPositioning on is not disabled")
        << "CellularPositioning"_L1 << &F::cellularDisabled << false;
    QTest::newRow("WiFiPositioning on is not disabled") << "WiFiPositioning"_L1 << &F::wifiDisabled << false;
    QTest::newRow("NetworkConnectivity on is not disabled")
        << "NetworkConnectivity"_L1 << &F::connectivityDisabled << false;
    QTest::newRow("InternalGpsDisabled on is disabled")
        << "InternalGpsDisabled"_L1 << &F::internalGpsDisabled << true;
    QTest::newRow("SuplForced on is forced") << "SuplForced"_L1 << &F::suplForced << true;
    QTest::newRow("SuplFallback on is a fallback") << "SuplFallback"_L1 << &F::suplFallback << true;
}

void TestSettingEffects::startFlags()
{
    QFETCH(QLatin1StringView, key);
    QFETCH(FlagPointer, flag);
    QFETCH(bool, flagWhenOn);
    const auto rows = startSettings();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto &r) { return r.key == key; });
    QVERIFY(row != rows.end());
    for (const bool value : {true, false}) {
        SettingFlags read;
        assignFlag(read, row->binding, value);
        SettingFlags expected;
        expected.*flag = value == flagWhenOn;
        QVERIFY(read == expected);
    }
}

void TestSettingEffects::lines_data()
{
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("line");

    const auto row = [](QLatin1StringView key, const QVariant &value, const QString &line) {
        QTest::addRow("%s %s", key.data(), qPrintable(value.toString())) << key << value << line;
    };
    row("Positioning"_L1, true, u"Positioning [ true ]"_s);
    row("Positioning"_L1, false, u"Positioning [ false ]"_s);
    row("Positioning"_L1, u"false"_s, u"Positioning [ false ]"_s); // as the file gives it back
    row("SatellitePositioning"_L1, true, u"Sat method enable [ true ]"_s);
    row("SatellitePositioningInternal"_L1, false, u"Sat method internal [ false ]"_s);
    row("SatellitePositioningExternalName"_L1, u"Car GPS"_s, u"Sat method external name [ Car GPS ]"_s);
    row("SatellitePositioningExternalAddress"_L1, u"00:11:22:33:44:55"_s,
        u"Sat method external address [ 00:11:22:33:44:55 ]"_s);
    row("NetworkConnectivity"_L1, true, u"Network connectivity [ true ]"_s);
    row("CellularPositioning"_L1, true, u"Net method [ true ]"_s);
    row("WiFiPositioning"_L1, false, u"WiFi method [ false ]"_s);
    row("LocationDisclaimerAccepted"_L1, true, u"Disclaimer accepted [ true ]"_s);
    row("PrimarySuplServer"_L1, u"supl.example"_s, u"PrimarySuplServer changed [ supl.example ]"_s);
    row("SecondarySuplServer"_L1, u"supl.example"_s, u"SecondarySuplServer changed [ supl.example ]"_s);
    row("PrimarySuplAllowHome"_L1, true, u"PrimarySuplAllowHome changed [ true ]"_s);
    row("PrimarySuplAllowRoaming"_L1, false, u"PrimarySuplAllowRoaming changed [ false ]"_s);
    row("PrimarySuplOnlyGprs"_L1, true, u"PrimarySuplOnlyGprs changed [ true ]"_s);
    row("SecondarySuplAllowHome"_L1, true, u"SecondarySuplAllowHome changed [ true ]"_s);
    row("SecondarySuplAllowRoaming"_L1, true, u"SecondarySuplAllowRoaming changed [ true ]"_s);
    row("SuplForced"_L1, true, u"SUPL Forced [ true ]"_s);
    row("ContinuousLocationAwareness"_L1, true, u"ContinuousLocationAwareness [ true ]"_s);
    row("ContinuousLocationAwarenessVisible"_L1, false, u"ContinuousLocationAwarenessVisible [ false ]"_s);
    row("ContinuousLocationCleanup"_L1, true, u"ContinuousLocationCleanup [ true ]"_s);
    row("ContinuousLocationCleanupVisible"_L1, true, u"ContinuousLocationCleanupVisible [ true ]"_s);
    // Read once at start-up, or not ours at all: the value is not shown.
    row("SuplFallback"_L1, true, u"Unknown key: SuplFallback"_s);
    row("InternalGpsDisabled"_L1, true, u"Unknown key: InternalGpsDisabled"_s);
    row("PrimarySuplServerUsage"_L1, 2, u"Unknown key: PrimarySuplServerUsage"_s);
    row("NetworkPositioningMethod"_L1, 0, u"Unknown key: NetworkPositioningMethod"_s);
    row(""_L1, true, u"Unknown key: "_s);
}

void TestSettingEffects::lines()
{
    QFETCH(QLatin1StringView, key);
    QFETCH(QVariant, value);
    QTEST(changed({}, key, value).line, "line");
}

void TestSettingEffects::everyRowIsCovered()
{
    QCOMPARE(settingRows().size(), std::size_t(21));
    for (const SettingRow &row : settingRows())
        QCOMPARE(findSettingRow(QString(row.key)), &row);
    QVERIFY(!findSettingRow(u"positioning"));
}

void TestSettingEffects::flags_data()
{
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<FlagPointer>("flag");
    QTest::addColumn<bool>("flagWhenOn");

    QTest::newRow("Positioning") << "Positioning"_L1 << &F::positioningOff << false;
    QTest::newRow("SatellitePositioning") << "SatellitePositioning"_L1 << &F::satelliteDisabled << false;
    QTest::newRow("SatellitePositioningInternal")
        << "SatellitePositioningInternal"_L1 << &F::internalGps << true;
    QTest::newRow("SatellitePositioningExternalName")
        << "SatellitePositioningExternalName"_L1 << NoFlag << false;
    QTest::newRow("SatellitePositioningExternalAddress")
        << "SatellitePositioningExternalAddress"_L1 << NoFlag << false;
    QTest::newRow("NetworkConnectivity") << "NetworkConnectivity"_L1 << &F::connectivityDisabled << false;
    QTest::newRow("CellularPositioning") << "CellularPositioning"_L1 << &F::cellularDisabled << false;
    QTest::newRow("WiFiPositioning") << "WiFiPositioning"_L1 << &F::wifiDisabled << false;
    QTest::newRow("LocationDisclaimerAccepted")
        << "LocationDisclaimerAccepted"_L1 << &F::disclaimerAccepted << true;
    QTest::newRow("SuplFallback is read at start-up only") << "SuplFallback"_L1 << NoFlag << false;
    QTest::newRow("InternalGpsDisabled is read at start-up only")
        << "InternalGpsDisabled"_L1 << NoFlag << false;
    QTest::newRow("PrimarySuplServer") << "PrimarySuplServer"_L1 << NoFlag << false;
    QTest::newRow("ContinuousLocationAwareness") << "ContinuousLocationAwareness"_L1 << NoFlag << false;
}

void TestSettingEffects::flags()
{
    QFETCH(QLatin1StringView, key);
    QFETCH(FlagPointer, flag);
    QFETCH(bool, flagWhenOn);
    for (const bool value : {true, false}) {
        SettingFlags expected;
        if (flag)
            expected.*flag = value == flagWhenOn;
        QVERIFY(changed({}, key, value).flags == expected);
    }
}

void TestSettingEffects::receiverSwitch_data()
{
    QTest::addColumn<bool>("internalGps");
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("expected");

    const auto internal = "SatellitePositioningInternal"_L1;
    const auto address = "SatellitePositioningExternalAddress"_L1;
    QTest::newRow("to the external receiver") << true << internal << QVariant(false) << true;
    QTest::newRow("to the internal receiver") << false << internal << QVariant(true) << true;
    QTest::newRow("internal again changes nothing") << true << internal << QVariant(true) << false;
    QTest::newRow("external again changes nothing") << false << internal << QVariant(false) << false;
    QTest::newRow("a new address of the receiver in use") << false << address << QVariant(u"00:11"_s) << true;
    QTest::newRow("the receiver in use is forgotten") << false << address << QVariant(QString()) << true;
    QTest::newRow("a new address of a receiver not in use")
        << true << address << QVariant(u"00:11"_s) << false;
    QTest::newRow("a new name changes nothing")
        << false << "SatellitePositioningExternalName"_L1 << QVariant(u"Car"_s) << false;
    QTest::newRow("another key changes nothing") << false << "Positioning"_L1 << QVariant(false) << false;
}

void TestSettingEffects::receiverSwitch()
{
    QFETCH(bool, internalGps);
    QFETCH(QLatin1StringView, key);
    QFETCH(QVariant, value);
    QTEST(changed({.internalGps = internalGps}, key, value).stopSatelliteSessions, "expected");
}

void TestSettingEffects::whatTouchesTheContextProperties()
{
    const QStringList touching{u"Positioning"_s, u"SatellitePositioning"_s,
                               u"SatellitePositioningInternal"_s};
    for (const SettingRow &row : settingRows())
        QCOMPARE(changed({}, row.key, true).updatesContext, touching.contains(row.key));
    QVERIFY(!changed({}, "VeskDisclaimerAccepted"_L1, true).updatesContext);
}

void TestSettingEffects::engineModeFollowsConnectivity()
{
    QCOMPARE(engineMode({.connectivityDisabled = true}), quint8(1));
    QCOMPARE(engineMode({.connectivityDisabled = false}), quint8(2));
    for (const SettingRow &row : settingRows())
        QCOMPARE(changed({}, row.key, true).tellEngineMode, row.key == "NetworkConnectivity"_L1);
}

void TestSettingEffects::suplServers_data()
{
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<bool>("expected");

    for (const auto key : {"PrimarySuplServer"_L1, "SecondarySuplServer"_L1, "PrimarySuplAllowHome"_L1,
                           "PrimarySuplAllowRoaming"_L1, "PrimarySuplOnlyGprs"_L1,
                           "SecondarySuplAllowHome"_L1, "SecondarySuplAllowRoaming"_L1})
        QTest::addRow("%s is sent", key.data()) << key << true;
    for (const auto key : {"SuplForced"_L1, "SuplFallback"_L1, "PrimarySuplServerUsage"_L1, "Positioning"_L1})
        QTest::addRow("%s is not", key.data()) << key << false;
}

void TestSettingEffects::suplServers()
{
    QFETCH(QLatin1StringView, key);
    QTEST(changed({}, key, true, false).sendSuplServers, "expected");
    QVERIFY2(!changed({}, key, true, true).sendSuplServers, "not while the engine is blocked");
    QVERIFY2(!changed({.internalGpsDisabled = true}, key, true, false).sendSuplServers,
             "not without an engine");
}

void TestSettingEffects::peerSettings_data()
{
    QTest::addColumn<SettingFlags>("flags");
    QTest::addColumn<QLatin1StringView>("key");
    QTest::addColumn<bool>("value");
    QTest::addColumn<PeerSettings>("expected");

    const SettingFlags library{.veskInUse = true};
    QTest::newRow("cellular on") << library << "CellularPositioning"_L1 << true << PeerSettings{{129, 1}};
    QTest::newRow("cellular off") << library << "CellularPositioning"_L1 << false << PeerSettings{{129, 0}};
    QTest::newRow("WLAN on") << library << "WiFiPositioning"_L1 << true << PeerSettings{{130, 1}};
    QTest::newRow("WLAN off") << library << "WiFiPositioning"_L1 << false << PeerSettings{{130, 0}};
    QTest::newRow("connectivity on") << library << "NetworkConnectivity"_L1 << true << PeerSettings{{131, 1}};
    QTest::newRow("connectivity off")
        << library << "NetworkConnectivity"_L1 << false << PeerSettings{{131, 0}};
    QTest::newRow("nothing for cellular while SUPL serves")
        << SettingFlags{} << "CellularPositioning"_L1 << true << PeerSettings{};
    QTest::newRow("nothing for WLAN while SUPL serves")
        << SettingFlags{} << "WiFiPositioning"_L1 << true << PeerSettings{};
    QTest::newRow("nothing for connectivity while SUPL serves")
        << SettingFlags{} << "NetworkConnectivity"_L1 << true << PeerSettings{};
    QTest::newRow("nothing for the other keys") << library << "Positioning"_L1 << true << PeerSettings{};
    QTest::newRow("SUPL forced tells nothing") << library << "SuplForced"_L1 << true << PeerSettings{};
    QTest::newRow("SUPL no longer forced tells everything in order")
        << SettingFlags{.suplForced = true} << "SuplForced"_L1 << false
        << PeerSettings{{131, 1}, {129, 1}, {130, 1}};
    QTest::newRow("SUPL no longer forced tells what is off")
        << SettingFlags{.wifiDisabled = true, .connectivityDisabled = true, .suplForced = true}
        << "SuplForced"_L1 << false << PeerSettings{{131, 0}, {129, 1}, {130, 0}};
    QTest::newRow("SUPL no longer forced tells that cellular is off")
        << SettingFlags{.cellularDisabled = true, .suplForced = true} << "SuplForced"_L1 << false
        << PeerSettings{{131, 1}, {129, 0}, {130, 1}};
}

void TestSettingEffects::peerSettings()
{
    QFETCH(SettingFlags, flags);
    QFETCH(QLatin1StringView, key);
    QFETCH(bool, value);
    QTEST(changed(flags, key, value).peerSettings, "expected");
}

void TestSettingEffects::suplForcedDecidesAboutTheLibrary()
{
    const SettingFlags forced = changed({.veskInUse = true}, "SuplForced"_L1, true).flags;
    QVERIFY(forced.suplForced);
    QVERIFY(!forced.veskInUse);

    // The developer's marker holds the library back at start only: not forced, and not in use.
    const SettingFlags released = changed({.veskInUse = false}, "SuplForced"_L1, false).flags;
    QVERIFY(!released.suplForced);
    QVERIFY(released.veskInUse);
}

void TestSettingEffects::usageBits()
{
    QCOMPARE(suplUsage(false, false, false), 0);
    QCOMPARE(suplUsage(true, false, false), 1);
    QCOMPARE(suplUsage(false, true, false), 2);
    QCOMPARE(suplUsage(false, false, true), 4);
    QCOMPARE(suplUsage(true, true, true), 7);
}

void TestSettingEffects::methodInputsMirrorTheFlags()
{
    const MethodInputs none;
    QVERIFY(methodInputs({}) == none);
    QVERIFY(methodInputs({.positioningOff = true}) == MethodInputs{.positioningOff = true});
    QVERIFY(methodInputs({.satelliteDisabled = true}) == MethodInputs{.satelliteDisabled = true});
    QVERIFY(methodInputs({.cellularDisabled = true}) == MethodInputs{.cellularDisabled = true});
    QVERIFY(methodInputs({.wifiDisabled = true}) == MethodInputs{.wifiDisabled = true});
    QVERIFY(methodInputs({.connectivityDisabled = true}) == MethodInputs{.connectivityDisabled = true});
    QVERIFY(methodInputs({.veskInUse = true}) == MethodInputs{.veskInUse = true});
    QVERIFY(methodInputs({.internalGps = true}) == MethodInputs{.internalGps = true});
    QVERIFY(methodInputs({.internalGpsDisabled = true, .suplForced = true, .suplFallback = true}) == none);
}

QTEST_APPLESS_MAIN(TestSettingEffects)
#include "tst_settingeffects.moc"
