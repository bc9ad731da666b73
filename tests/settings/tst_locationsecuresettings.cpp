#include "settings/settingsfixture.h"

#include <QDBusObjectPath>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray RawGpsKey = "/etc/lodestard/sysinfo/certs/ccc/pp/internal-gps-raw";

QString textOf(const QVariant &value)
{
    return value.toString();
}

} // namespace

class TestLocationSecureSettings : public QObject
{
    Q_OBJECT

private slots:
    void firstStartSeedsTheDefaults();
    void operatorValuesSeedWhatTheUserLacks();
    void userValuesAreKept();
    void keysOutsideTheTableAreKept();
    void internalGps_data();
    void internalGps();
    void productConfigurationWinsOverBothFiles();
    void theOperatorFileIsNeverWritten();
    void settingStoresAndSignals();
    void settingAnEqualValueSignalsToo();
    void settingAnotherTypeIsAccepted();
    void variantsAreUnwrapped();
    void settingIsRefused_data();
    void settingIsRefused();
    void whatTheFileCannotHoldIsRefused_data();
    void whatTheFileCannotHoldIsRefused();
    void unknownKeysHaveNoValue_data();
    void unknownKeysHaveNoValue();
    void resetSignalsWhatChangedInOrder();
    void resetPrefersTheOperator();
    void resetCoversOperatorControlledKeys();
    void resetLeavesTheInternalGpsAlone();
    void resetAfterARestartKnowsEqualValues();
    void deletionGoesToTheHandler();
};

void TestLocationSecureSettings::firstStartSeedsTheDefaults()
{
    SettingsFixture f;
    f.start();
    QStringList expected;
    for (const auto &row : settingDefinitions()) {
        QCOMPARE(f.settings->value(row.key), row.defaultValue);
        if (row.key != "InternalGpsDisabled"_L1) {
            expected << u"debug: Use default setting:  \"%1\" = \"%2\""_s.arg(row.key,
                                                                              textOf(row.defaultValue));
        }
    }
    QCOMPARE(f.log.takeLines(), expected);
    QCOMPARE(expected.size(), 30);
    QCOMPARE(expected.constFirst(), u"debug: Use default setting:  \"Positioning\" = \"true\""_s);
    QCOMPARE(f.takeSignals(), QStringList());
}

void TestLocationSecureSettings::operatorValuesSeedWhatTheUserLacks()
{
    SettingsFixture f;
    QVERIFY(f.writeOperatorFile("PrimarySuplServer=supl.operator.example\nSuplFallback=false\n"));
    f.start();
    QCOMPARE(f.settings->value(u"PrimarySuplServer"_s), QVariant(u"supl.operator.example"_s));
    QCOMPARE(f.settings->value(u"SuplFallback"_s).toBool(), false);
    QCOMPARE(f.settings->value(u"SecondarySuplServer"_s),
             QVariant(QStringLiteral(LODESTARD_DEFAULT_SUPL_SERVER)));
    const QStringList lines = f.log.takeLines();
    QCOMPARE(lines.at(9),
             u"debug: Use operator setting:  \"PrimarySuplServer\" = \"supl.operator.example\""_s);
    QCOMPARE(lines.at(25), u"debug: Use operator setting:  \"SuplFallback\" = \"false\""_s);
    QCOMPARE(lines.filter(u"Use default setting: "_s).size(), 28);
}

void TestLocationSecureSettings::userValuesAreKept()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("Positioning=false\nPrimarySuplServer=mine.example\n"));
    QVERIFY(f.writeOperatorFile("Positioning=true\n"));
    f.start();
    QCOMPARE(f.settings->value(u"Positioning"_s).toBool(), false);
    QCOMPARE(f.settings->value(u"PrimarySuplServer"_s), QVariant(u"mine.example"_s));
    const QStringList lines = f.log.takeLines();
    QCOMPARE(lines.at(0), u"debug: Keep previous setting:  \"Positioning\" = \"false\""_s);
    QCOMPARE(lines.at(9), u"debug: Keep previous setting:  \"PrimarySuplServer\" = \"mine.example\""_s);
    QCOMPARE(lines.filter(u"Use operator setting: "_s).size(), 0);
}

void TestLocationSecureSettings::keysOutsideTheTableAreKept()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("Altimeter=7\n"));
    f.startQuietly();
    QCOMPARE(f.settings->value(u"Altimeter"_s).toInt(), 7);
    QVERIFY(!f.set(u"Altimeter"_s, 8));
    QCOMPARE(f.log.takeLines(),
             QStringList{u"warning: User is not allowed to change value for: \"Altimeter\""_s});
    QVERIFY(f.settings->resetToDefaults());
    QCOMPARE(f.settings->value(u"Altimeter"_s).toInt(), 7);
}

void TestLocationSecureSettings::internalGps_data()
{
    QTest::addColumn<std::optional<QByteArray>>("raw");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("disabled");
    QTest::newRow("a zero byte disables it")
        << std::optional(QByteArray(1, '\0')) << QStringList{u"debug: Internal gps disabled value: 0"_s}
        << true;
    QTest::newRow("only the first byte counts")
        << std::optional(QByteArray("\0\1", 2)) << QStringList{u"debug: Internal gps disabled value: 0"_s}
        << true;
    QTest::newRow("one enables it") << std::optional("\1"_ba)
                                    << QStringList{u"debug: Internal gps disabled value: 1"_s} << false;
    QTest::newRow("any other byte does, shown in capitals")
        << std::optional("\xab"_ba) << QStringList{u"debug: Internal gps disabled value: AB"_s} << false;
    QTest::newRow("the digit zero is not a zero byte")
        << std::optional("0"_ba) << QStringList{u"debug: Internal gps disabled value: 30"_s} << false;
    QTest::newRow("an empty value enables it") << std::optional(""_ba) << QStringList{} << false;
    QTest::newRow("so does a missing key") << std::optional<QByteArray>() << QStringList{} << false;
}

void TestLocationSecureSettings::internalGps()
{
    QFETCH(const std::optional<QByteArray>, raw);
    QFETCH(const bool, disabled);
    SettingsFixture f;
    if (raw)
        QVERIFY(f.tree.write(QString::fromLatin1(RawGpsKey), *raw));
    f.start();
    QCOMPARE(f.settings->value(u"InternalGpsDisabled"_s), QVariant(disabled));
    const QStringList lines = f.log.takeLines();
    QTEST(lines.filter(u"Internal gps"_s), "lines");
    QCOMPARE(lines.filter(u"InternalGpsDisabled"_s), QStringList()); // written silently
}

void TestLocationSecureSettings::productConfigurationWinsOverBothFiles()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("InternalGpsDisabled=true\n"));
    QVERIFY(f.writeOperatorFile("InternalGpsDisabled=true\n"));
    f.startQuietly();
    QCOMPARE(f.settings->value(u"InternalGpsDisabled"_s), QVariant(false));
}

void TestLocationSecureSettings::theOperatorFileIsNeverWritten()
{
    const QByteArray content = "[General]\nPositioning=false\n";
    SettingsFixture f;
    QVERIFY(f.tree.write(SettingsFixture::OperatorFile, content));
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, true));
    QVERIFY(f.settings->resetToDefaults());
    f.settings.reset();
    QCOMPARE(f.tree.read(SettingsFixture::OperatorFile), content);
}

void TestLocationSecureSettings::settingStoresAndSignals()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, false));
    QCOMPARE(f.takeSignals(), QStringList{u"Positioning"_s});
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(false));
    QVERIFY(f.tree.read(SettingsFixture::UserFile).contains("\nPositioning=false\n")); // on disk at once
    QCOMPARE(f.log.takeLines(), QStringList());
}

void TestLocationSecureSettings::settingAnEqualValueSignalsToo()
{
    SettingsFixture f;
    f.startQuietly();
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(true));
    QVERIFY(f.set(u"Positioning"_s, true));
    QCOMPARE(f.takeSignals(), QStringList{u"Positioning"_s});
}

void TestLocationSecureSettings::settingAnotherTypeIsAccepted()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, u"perhaps"_s));
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(u"perhaps"_s));
    QCOMPARE(f.takeSignals(), QStringList{u"Positioning"_s});
}

void TestLocationSecureSettings::variantsAreUnwrapped()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"NetworkPositioningMethod"_s, QVariant::fromValue(QDBusVariant(3))));
    QCOMPARE(f.settings->value(u"NetworkPositioningMethod"_s), QVariant(3));
}

void TestLocationSecureSettings::settingIsRefused_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("line");
    const QString unknown = u"warning: Location settings does not contain setting for: \"%1\""_s;
    const QString forbidden = u"warning: User is not allowed to change value for: \"%1\""_s;
    for (const auto &key :
         {u"Altimeter"_s, u"positioning"_s, u"/Positioning"_s, u"Positioning/"_s, u""_s, u"/"_s})
        QTest::addRow("unknown key \"%s\"", qUtf8Printable(key)) << key << unknown.arg(key);
    for (const auto &row : settingDefinitions()) {
        if (!row.userWritable)
            QTest::addRow("the operator's %s", qUtf8Printable(row.key)) << row.key << forbidden.arg(row.key);
    }
}

void TestLocationSecureSettings::settingIsRefused()
{
    QFETCH(const QString, key);
    QFETCH(const QString, line);
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(!f.set(key, u"other"_s));
    QCOMPARE(f.log.takeLines(), QStringList{line});
    QCOMPARE(f.takeSignals(), QStringList());
    if (const auto *row = findSetting(key))
        QCOMPARE(f.settings->value(key), row->defaultValue);
}

void TestLocationSecureSettings::whatTheFileCannotHoldIsRefused_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("an array") << QVariant(QStringList{u"a"_s});
    QTest::newRow("bytes") << QVariant("a"_ba);
    QTest::newRow("a dictionary") << QVariant(QVariantMap{{u"a"_s, 1}});
    QTest::newRow("an object path") << QVariant::fromValue(QDBusObjectPath(u"/a"_s));
    QTest::newRow("an array inside a variant") << QVariant::fromValue(QDBusVariant(QStringList{u"a"_s}));
}

void TestLocationSecureSettings::whatTheFileCannotHoldIsRefused()
{
    QFETCH(const QVariant, value);
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(!f.set(u"Positioning"_s, value));
    QCOMPARE(
        f.log.takeLines(),
        QStringList{u"critical: LocationSecureSettings::set: Cannot write setting Positioning to disk"_s});
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(true));
}

void TestLocationSecureSettings::unknownKeysHaveNoValue_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("a key nobody knows") << u"Altimeter"_s;
    QTest::newRow("case counts") << u"POSITIONING"_s;
    QTest::newRow("stray slashes are not dropped") << u"/SatellitePositioningExternalAddress"_s;
    QTest::newRow("the empty key") << u""_s;
}

void TestLocationSecureSettings::unknownKeysHaveNoValue()
{
    QFETCH(const QString, key);
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(!f.settings->value(key).isValid());
    QCOMPARE(f.log.takeLines(), QStringList{u"warning: Wrong location setting key: \"%1\""_s.arg(key)});
}

void TestLocationSecureSettings::resetSignalsWhatChangedInOrder()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"SuplForced"_s, true));
    QVERIFY(f.set(u"PrimarySuplServer"_s, u"mine.example"_s));
    QVERIFY(f.set(u"Positioning"_s, false));
    QVERIFY(f.set(u"WiFiPositioning"_s, true)); // as it was
    f.takeSignals();
    QVERIFY(f.settings->resetToDefaults());
    QCOMPARE(f.takeSignals(), QStringList({u"Positioning"_s, u"PrimarySuplServer"_s, u"SuplForced"_s}));
    for (const auto &row : settingDefinitions())
        QCOMPARE(f.settings->value(row.key), row.defaultValue);
    QVERIFY(f.settings->resetToDefaults());
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.log.takeLines(), QStringList());
}

void TestLocationSecureSettings::resetPrefersTheOperator()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("PrimarySuplServer=mine.example\n"));
    QVERIFY(f.writeOperatorFile("PrimarySuplServer=supl.operator.example\nPositioning=true\n"));
    f.startQuietly();
    QVERIFY(f.settings->resetToDefaults());
    // "Positioning" holds the operator's value already.
    QCOMPARE(f.takeSignals(), QStringList{u"PrimarySuplServer"_s});
    QCOMPARE(f.settings->value(u"PrimarySuplServer"_s), QVariant(u"supl.operator.example"_s));
}

void TestLocationSecureSettings::resetCoversOperatorControlledKeys()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("SuplFallback=false\nPrimarySuplServerUsage=7\n"));
    f.startQuietly();
    QVERIFY(f.settings->resetToDefaults());
    QCOMPARE(f.takeSignals(), QStringList({u"PrimarySuplServerUsage"_s, u"SuplFallback"_s}));
    QCOMPARE(f.settings->value(u"PrimarySuplServerUsage"_s), QVariant(2));
}

void TestLocationSecureSettings::resetLeavesTheInternalGpsAlone()
{
    SettingsFixture f;
    QVERIFY(f.tree.write(QString::fromLatin1(RawGpsKey), QByteArray(1, '\0')));
    QVERIFY(f.writeOperatorFile("InternalGpsDisabled=false\n"));
    f.startQuietly();
    QVERIFY(f.settings->resetToDefaults());
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.settings->value(u"InternalGpsDisabled"_s), QVariant(true));
}

// The file gives all values back as text.
void TestLocationSecureSettings::resetAfterARestartKnowsEqualValues()
{
    SettingsFixture first;
    first.startQuietly();
    QVERIFY(first.set(u"Positioning"_s, false));
    QVERIFY(first.set(u"NetworkPositioningMethod"_s, 3));
    first.settings.reset();
    const QByteArray content = first.tree.read(SettingsFixture::UserFile);

    SettingsFixture second;
    QVERIFY(second.tree.write(SettingsFixture::UserFile, content));
    second.startQuietly();
    QCOMPARE(second.settings->value(u"SuplFallback"_s), QVariant(u"true"_s));
    QVERIFY(second.settings->resetToDefaults());
    QCOMPARE(second.takeSignals(), QStringList({u"Positioning"_s, u"NetworkPositioningMethod"_s}));
}

void TestLocationSecureSettings::deletionGoesToTheHandler()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.settings->clearAssistanceData(0xFD));
    QVERIFY(f.settings->clearAssistanceData(-1));
    QCOMPARE(f.handler.cleared, QList<int>({0xFD, -1}));
}

PRIVATE_BUS_TEST_MAIN(TestLocationSecureSettings)
#include "tst_locationsecuresettings.moc"
