#include "platform/gconfitem.h"
#include "support/keystore.h"
#include "support/privatebus.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString Folder = u"/system/tavi/test"_s;
const QString Key = Folder + u"/key"_s;

// Every change that was made until now has been told when the change of another key has.
void settle()
{
    static int number = 0;
    GConfItem last(u"/system/tavi/last"_s);
    QSignalSpy told(&last, &GConfItem::valueChanged);
    last.set(++number);
    QTRY_VERIFY(!told.isEmpty());
}

} // namespace

class TestGConfItem : public QObject
{
    Q_OBJECT

public:
    explicit TestGConfItem(PrivateBuses &buses)
        : m_buses(buses)
    {
    }

private slots:
    void init() { KeyStore::unsetFolder(u"/system/tavi"_s); }
    void unset();
    void values_data();
    void values();
    void typesAreKeptApart();
    void anotherProgramReads();
    void anotherProgramWrites();
    void ownWritesAreTold();
    void otherKeysAreNot();
    void unsetting();
    void aFolderIsUnset();
    void everyItemOfAKeyIsTold();
    void aGoneItemIsNotTold();
    void whatCannotBeStored_data();
    void whatCannotBeStored();
    void aForeignTypeIsUnset();
    void badPaths_data();
    void badPaths();
    void theBusEnds(); // the last: nothing can be written any more

private:
    PrivateBuses &m_buses;
};

void TestGConfItem::unset()
{
    const GConfItem item(Key);
    QVERIFY(!item.value().isValid());
}

void TestGConfItem::values_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("true") << QVariant(true);
    QTest::newRow("false") << QVariant(false);
    QTest::newRow("zero") << QVariant(0);
    QTest::newRow("a negative number") << QVariant(-7);
    QTest::newRow("the largest number") << QVariant(std::numeric_limits<int>::max());
    QTest::newRow("a whole double") << QVariant(0.0);
    QTest::newRow("a double") << QVariant(-2.625);
    QTest::newRow("text") << QVariant(u"north"_s);
    QTest::newRow("text beyond ASCII") << QVariant(u"Tähti \u2605 \U0001F6F0"_s);
    QTest::newRow("no text") << QVariant(QString(u""_s));
}

void TestGConfItem::values()
{
    QFETCH(QVariant, value);
    GConfItem item(Key);
    item.set(value);
    QCOMPARE(item.value(), value);
    QCOMPARE(item.value().typeId(), value.typeId());
    QCOMPARE(GConfItem(Key).value(), value); // not only remembered
}

void TestGConfItem::typesAreKeptApart()
{
    GConfItem item(Key);
    item.set(0.0);
    QCOMPARE(item.value().typeId(), QMetaType::Double);
    item.set(0);
    QCOMPARE(item.value().typeId(), QMetaType::Int);
    item.set(false);
    QCOMPARE(item.value().typeId(), QMetaType::Bool);
}

void TestGConfItem::anotherProgramReads()
{
    GConfItem item(Key);
    item.set(false);
    QCOMPARE(KeyStore::read(Key), u"false"_s);
    item.set(3);
    QCOMPARE(KeyStore::read(Key), u"3"_s);
    item.set(2.5);
    QCOMPARE(KeyStore::read(Key), u"2.5"_s);
}

void TestGConfItem::anotherProgramWrites()
{
    const GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    for (const QVariant &value : {QVariant(true), QVariant(-4), QVariant(1.5), QVariant(u"south"_s)}) {
        told.clear();
        KeyStore::write(Key, value);
        QTRY_COMPARE(told.size(), 1);
        QCOMPARE(item.value(), value);
        QCOMPARE(item.value().typeId(), value.typeId());
    }
    KeyStore::unset(Key);
    QTRY_COMPARE(told.size(), 2);
    QVERIFY(!item.value().isValid());
}

void TestGConfItem::ownWritesAreTold()
{
    GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    item.set(1);
    QVERIFY2(told.isEmpty(), "told from inside the call");
    QTRY_COMPARE(told.size(), 1);
    item.set(1); // nothing changes
    item.set(2);
    QTRY_COMPARE(told.size(), 2);
    settle();
    QCOMPARE(told.size(), 2);
}

void TestGConfItem::otherKeysAreNot()
{
    const GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    for (const QString &other :
         {u"/system/tavi/test/key2"_s, u"/system/tavi/test/ke"_s, u"/system/tavi/test/key/low"_s})
        GConfItem(other).set(true);
    settle();
    QCOMPARE(told.size(), 0);
}

void TestGConfItem::unsetting()
{
    GConfItem item(Key);
    item.set(1);
    item.set(QVariant());
    QVERIFY(!item.value().isValid());
    QCOMPARE(KeyStore::read(Key), QString());
    item.set(QVariant()); // again, to no effect
    QVERIFY(!item.value().isValid());
}

void TestGConfItem::aFolderIsUnset()
{
    GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    item.set(1);
    QTRY_COMPARE(told.size(), 1);
    KeyStore::unsetFolder(Folder);
    QTRY_COMPARE(told.size(), 2);
    QVERIFY(!item.value().isValid());
}

void TestGConfItem::everyItemOfAKeyIsTold()
{
    GConfItem first(Key), second(Key);
    QSignalSpy toldFirst(&first, &GConfItem::valueChanged), toldSecond(&second, &GConfItem::valueChanged);
    first.set(u"north"_s);
    QTRY_COMPARE(toldFirst.size(), 1);
    QTRY_COMPARE(toldSecond.size(), 1);
    QCOMPARE(second.value(), u"north"_s);
}

void TestGConfItem::aGoneItemIsNotTold()
{
    auto gone = std::make_unique<GConfItem>(Key);
    GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    item.set(1); // the change is on its way
    gone.reset();
    QTRY_COMPARE(told.size(), 1);
    item.set(2);
    QTRY_COMPARE(told.size(), 2);
}

void TestGConfItem::whatCannotBeStored_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("a list") << QVariant(QVariantList{1, 2});
    QTest::newRow("bytes") << QVariant(QByteArray("north"));
    QTest::newRow("a long number") << QVariant(qlonglong(1));
}

void TestGConfItem::whatCannotBeStored()
{
    QFETCH(QVariant, value);
    GConfItem item(Key);
    item.set(value);
    QVERIFY(!item.value().isValid());
    item.set(5);
    item.set(value);
    QCOMPARE(item.value(), QVariant(5));
}

void TestGConfItem::aForeignTypeIsUnset()
{
    KeyStore::writeList(Key);
    GConfItem item(Key);
    QVERIFY(!item.value().isValid());
    item.set(true);
    QCOMPARE(item.value(), QVariant(true));
}

void TestGConfItem::badPaths_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("empty") << QString();
    QTest::newRow("not from the root") << u"system/key"_s;
    QTest::newRow("a folder") << u"/system/"_s;
    QTest::newRow("a part without a name") << u"/system//key"_s;
}

void TestGConfItem::badPaths()
{
    QFETCH(QString, path);
    GConfItem item(path);
    item.set(true);
    QVERIFY(!item.value().isValid());
}

void TestGConfItem::theBusEnds()
{
    GConfItem item(Key);
    QSignalSpy told(&item, &GConfItem::valueChanged);
    item.set(1);
    QTRY_COMPARE(told.size(), 1);
    m_buses.session.stop();
    item.set(2);
    QVERIFY(item.value() != QVariant(2));
    // The library would end this process from its own thread, once that has seen the bus go.
    QTest::qWait(500);
    item.set(3);
    QVERIFY(item.value() != QVariant(3));
}

int main(int argc, char *argv[])
{
    PrivateBuses buses({KeyStore::service()});
    QCoreApplication application(argc, argv);
    TestGConfItem test(buses);
    return QTest::qExec(&test, argc, argv);
}
#include "tst_gconfitem.moc"
