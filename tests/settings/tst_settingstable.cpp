#include "settings/settingstable.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestSettingsTable : public QObject
{
    Q_OBJECT

private slots:
    void rows_data();
    void rows();
    void hasNoOtherRows();
    void unknownKeys_data();
    void unknownKeys();
};

void TestSettingsTable::rows_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QVariant>("defaultValue");
    QTest::addColumn<bool>("userWritable");

    const QVariant server = QStringLiteral(LODESTARD_DEFAULT_SUPL_SERVER);
    const QVariant empty = u""_s;
    const QVariant on = true;
    const QVariant off = false;
    int index = 0;
    const auto row = [&index](const char *key, const QVariant &defaultValue, bool userWritable) {
        QTest::newRow(key) << index++ << defaultValue << userWritable;
    };
    row("Positioning", on, true);
    row("SatellitePositioning", on, true);
    row("SatellitePositioningInternal", on, true);
    row("SatellitePositioningExternalName", empty, true);
    row("SatellitePositioningExternalAddress", empty, true);
    row("CellularPositioning", on, true);
    row("WiFiPositioning", on, true);
    row("NetworkConnectivity", on, true);
    row("NetworkPositioningMethod", 0, true);
    row("PrimarySuplServer", server, true);
    row("PrimarySuplServerUsage", 2, false);
    row("PrimarySuplServerEditable", on, false);
    row("PrimarySuplServerVisible", on, false);
    row("PrimarySuplAllowHome", on, false);
    row("PrimarySuplAllowRoaming", on, false);
    row("PrimarySuplOnlyGprs", off, true);
    row("SecondarySuplServer", server, true);
    row("SecondarySuplServerUsage", 2, false);
    row("SecondarySuplServerEditable", on, false);
    row("SecondarySuplServerVisible", on, false);
    row("SecondarySuplAllowHome", on, false);
    row("SecondarySuplAllowRoaming", on, false);
    row("LocationDisclaimerAccepted", off, true);
    row("VeskDisclaimerAccepted", off, true);
    row("SuplForced", off, true);
    row("SuplFallback", on, false);
    row("InternalGpsDisabled", off, false);
    row("ContinuousLocationAwareness", on, true);
    row("ContinuousLocationAwarenessVisible", off, false);
    row("ContinuousLocationCleanup", on, true);
    row("ContinuousLocationCleanupVisible", off, false);
}

void TestSettingsTable::rows()
{
    QFETCH(const int, index);
    QFETCH(const QVariant, defaultValue);
    const QString key = QString::fromLatin1(QTest::currentDataTag());
    const auto &row = settingDefinitions()[std::size_t(index)];
    QCOMPARE(row.key, key);
    QCOMPARE(row.defaultValue.typeId(), defaultValue.typeId());
    QCOMPARE(row.defaultValue, defaultValue);
    QTEST(row.userWritable, "userWritable");
    QCOMPARE(findSetting(key), &row);
}

void TestSettingsTable::hasNoOtherRows()
{
    QCOMPARE(settingDefinitions().size(), std::size_t(31));
}

void TestSettingsTable::unknownKeys_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("a key nobody knows") << u"Altimeter"_s;
    QTest::newRow("case counts") << u"positioning"_s;
    QTest::newRow("a prefix is not enough") << u"Position"_s;
    QTest::newRow("a stray slash makes another key") << u"/Positioning"_s;
    QTest::newRow("the empty key") << u""_s;
    QTest::newRow("the null key") << QString();
}

void TestSettingsTable::unknownKeys()
{
    QFETCH(const QString, key);
    QCOMPARE(findSetting(key), nullptr);
}

QTEST_APPLESS_MAIN(TestSettingsTable)
#include "tst_settingstable.moc"
