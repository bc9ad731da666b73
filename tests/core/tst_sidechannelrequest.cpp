#include "core/sidechannelrequest.h"

#include <QTest>

using Kind = SideChannelAction::Kind;

class SideChannelRequestTest : public QObject
{
    Q_OBJECT
private slots:
    void answersAQueryWithItsFlag_data();
    void answersAQueryWithItsFlag();
    void answersTheFixedQueryWithOne();
    void switchesTheStream();
    void knowsNoOtherCommand_data();
    void knowsNoOtherCommand();
};

void SideChannelRequestTest::answersAQueryWithItsFlag_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("disabled"); // which of cellular, WLAN and connectivity
    QTest::addColumn<int>("value");
    QTest::newRow("cellular allowed") << 0x81 << 2 + 4 << 1;
    QTest::newRow("cellular refused") << 0x81 << 1 << 0;
    QTest::newRow("WLAN allowed") << 0x82 << 1 + 4 << 1;
    QTest::newRow("WLAN refused") << 0x82 << 2 << 0;
    QTest::newRow("connectivity allowed") << 0x83 << 1 + 2 << 1;
    QTest::newRow("connectivity refused") << 0x83 << 4 << 0;
}

void SideChannelRequestTest::answersAQueryWithItsFlag()
{
    QFETCH(int, command);
    QFETCH(int, disabled);
    QFETCH(int, value);
    SettingFlags flags;
    flags.cellularDisabled = disabled & 1;
    flags.wifiDisabled = disabled & 2;
    flags.connectivityDisabled = disabled & 4;
    const SideChannelAction action = sideChannelAction(command, flags);
    QCOMPARE(action.kind, Kind::Answer);
    QCOMPARE(action.answer, (PeerSetting{command, value}));
}

void SideChannelRequestTest::answersTheFixedQueryWithOne()
{
    SettingFlags flags;
    QCOMPARE(sideChannelAction(0x84, flags).answer, (PeerSetting{0x84, 1}));
    flags.positioningOff = flags.cellularDisabled = flags.wifiDisabled = flags.connectivityDisabled = true;
    QCOMPARE(sideChannelAction(0x84, flags).answer, (PeerSetting{0x84, 1}));
    QCOMPARE(sideChannelAction(0x84, flags).kind, Kind::Answer);
}

void SideChannelRequestTest::switchesTheStream()
{
    const SideChannelAction on = sideChannelAction(0x01, {});
    QCOMPARE(on.kind, Kind::Stream);
    QVERIFY(on.stream);
    const SideChannelAction off = sideChannelAction(0x02, {});
    QCOMPARE(off.kind, Kind::Stream);
    QVERIFY(!off.stream);
}

void SideChannelRequestTest::knowsNoOtherCommand_data()
{
    QTest::addColumn<int>("command");
    for (const int command : {0, 3, 0x80, 0x85, -1, 0x101, 0x181, INT_MAX, INT_MIN})
        QTest::addRow("%d", command) << command;
}

void SideChannelRequestTest::knowsNoOtherCommand()
{
    QFETCH(int, command);
    QCOMPARE(sideChannelAction(command, {}).kind, Kind::Unknown);
}

QTEST_APPLESS_MAIN(SideChannelRequestTest)
#include "tst_sidechannelrequest.moc"
