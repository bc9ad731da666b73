#include "settings/settingvalue.h"

#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

template <typename T>
QVariant of(const T &value)
{
    return QVariant::fromValue(value);
}

} // namespace

class TestSettingValue : public QObject
{
    Q_OBJECT

private slots:
    void storable_data();
    void storable();
    void unstorable_data();
    void unstorable();
    void sendable_data();
    void sendable();
};

void TestSettingValue::storable_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariant>("stored");
    const auto kept = [](const char *row, const QVariant &value) { QTest::newRow(row) << value << value; };
    kept("boolean", true);
    kept("byte", of(uchar(200)));
    kept("16 bits", of(qint16(-5)));
    kept("16 bits unsigned", of(quint16(65535)));
    kept("32 bits", -7);
    kept("32 bits unsigned", 4000000000U);
    kept("64 bits", of(qint64(-1) << 40));
    kept("64 bits unsigned", of(quint64(1) << 63));
    kept("double", 0.25);
    kept("string", u"text"_s);
    kept("empty string", u""_s);
    QTest::newRow("a variant is unwrapped") << of(QDBusVariant(true)) << QVariant(true);
    QTest::newRow("a variant in a variant too")
        << of(QDBusVariant(of(QDBusVariant(u"x"_s)))) << QVariant(u"x"_s);
}

void TestSettingValue::storable()
{
    QFETCH(const QVariant, value);
    QFETCH(const QVariant, stored);
    const auto result = settingvalue::storable(value);
    QVERIFY(result.has_value());
    QCOMPARE(result->typeId(), stored.typeId());
    QCOMPARE(*result, stored);
}

void TestSettingValue::unstorable_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("nothing at all") << QVariant();
    QTest::newRow("a variant of nothing") << of(QDBusVariant());
    QTest::newRow("array of strings") << QVariant(QStringList{u"a"_s, u"b"_s});
    QTest::newRow("array of bytes") << QVariant("ab"_ba);
    QTest::newRow("array of variants") << QVariant(QVariantList{1, 2});
    QTest::newRow("dictionary") << QVariant(QVariantMap{{u"a"_s, 1}});
    QTest::newRow("object path") << of(QDBusObjectPath(u"/a"_s));
    QTest::newRow("signature") << of(QDBusSignature(u"s"_s));
    QTest::newRow("descriptor") << of(QDBusUnixFileDescriptor());
    QTest::newRow("an array in a variant") << of(QDBusVariant(QStringList{u"a"_s}));
}

void TestSettingValue::unstorable()
{
    QFETCH(const QVariant, value);
    QVERIFY(!settingvalue::storable(value).has_value());
}

void TestSettingValue::sendable_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("expected");
    QTest::newRow("boolean") << QVariant(true) << true;
    QTest::newRow("string") << QVariant(u"x"_s) << true;
    QTest::newRow("list of strings") << QVariant(QStringList{u"a"_s}) << true;
    QTest::newRow("bytes") << QVariant("x"_ba) << true;
    QTest::newRow("list of good values") << QVariant(QVariantList{1, u"a"_s}) << true;
    QTest::newRow("map of good values") << QVariant(QVariantMap{{u"a"_s, 1}}) << true;
    QTest::newRow("nothing at all") << QVariant() << false;
    QTest::newRow("a character") << QVariant(QChar(u'x')) << false;
    QTest::newRow("a list with a hole") << QVariant(QVariantList{1, QVariant()}) << false;
    QTest::newRow("a map with a hole") << QVariant(QVariantMap{{u"a"_s, QVariant()}}) << false;
    QTest::newRow("a hole further down") << QVariant(QVariantList{QVariantList{QChar(u'x')}}) << false;
}

void TestSettingValue::sendable()
{
    QFETCH(const QVariant, value);
    QTEST(settingvalue::isSendable(value), "expected");
}

QTEST_APPLESS_MAIN(TestSettingValue)
#include "tst_settingvalue.moc"
