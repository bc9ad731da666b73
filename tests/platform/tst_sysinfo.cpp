#include "platform/sysinfo.h"
#include "support/devicetree.h"

#include <QTest>

using namespace Qt::StringLiterals;

using Value = std::optional<QByteArray>;

namespace {

Value valueOf(const DeviceTree &tree, const char *key)
{
    auto context = sysinfo_init(tree.paths());
    if (!context)
        return std::nullopt;
    const Value value = sysinfo_get_value(*context, key);
    sysinfo_finish(*context);
    return value;
}

} // namespace

class TestSysinfo : public QObject
{
    Q_OBJECT

private slots:
    void keysAreFiles_data();
    void keysAreFiles();
    void aKeyWithoutFileCannotBeRead();
    void theMachineKnowsItself_data();
    void theMachineKnowsItself();
    void theFileWinsOverTheMachine();
    void theDeviceTreeStandsInForDmi();
    void theReleaseIsTheAdministratorsElseTheVendors();
};

void TestSysinfo::keysAreFiles_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("verbatim") << "enabled"_ba
                              << "enabled"_ba;
    QTest::newRow("less one line feed") << "enabled\n"_ba
                                        << "enabled"_ba;
    QTest::newRow("but only one") << "enabled\n\n"_ba
                                  << "enabled\n"_ba;
    QTest::newRow("other white space stays") << " a b\t"_ba
                                             << " a b\t"_ba;
    QTest::newRow("raw bytes") << QByteArray("\0\xff\n", 3) << QByteArray("\0\xff", 2);
    QTest::newRow("an empty file is an empty value") << ""_ba
                                                     << ""_ba;
    QTest::newRow("so is a line feed alone") << "\n"_ba
                                             << ""_ba;
}

void TestSysinfo::keysAreFiles()
{
    QFETCH(const QByteArray, content);
    QFETCH(const QByteArray, value);
    const DeviceTree tree;
    QVERIFY(tree.write(u"/etc/lodestard/sysinfo/device/rd-mode"_s, content));
    QCOMPARE(valueOf(tree, "/device/rd-mode"), Value(value));
}

void TestSysinfo::aKeyWithoutFileCannotBeRead()
{
    const DeviceTree tree;
    for (const char *key : {"/device/rd-mode", "/certs/ccc/pp/internal-gps-raw", "/component/product-name",
                            "/device/hw-version", "/device/sw-release-ver"})
        QCOMPARE(valueOf(tree, key), Value());
    QVERIFY(tree.makeDirectory(u"/etc/lodestard/sysinfo/device/rd-mode"_s));
    QCOMPARE(valueOf(tree, "/device/rd-mode"), Value()); // no file either
}

void TestSysinfo::theMachineKnowsItself_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<Value>("value");
    const QString name = u"/sys/class/dmi/id/product_name"_s;
    const QString release = u"/etc/os-release"_s;
    QTest::newRow("product name") << name << "Board 7\n"_ba
                                  << "/component/product-name"_ba << Value("Board 7");
    QTest::newRow("a product without a name") << name << "\n"_ba
                                              << "/component/product-name"_ba << Value();
    QTest::newRow("hardware version") << u"/sys/class/dmi/id/product_version"_s << "2.1\n"_ba
                                      << "/device/hw-version"_ba << Value("2.1");
    QTest::newRow("release in double quotes") << release << "ID=x\nPRETTY_NAME=\"A System 12\"\n"_ba
                                              << "/device/sw-release-ver"_ba << Value("A System 12");
    QTest::newRow("release in single quotes") << release << "PRETTY_NAME='A System'\n"_ba
                                              << "/device/sw-release-ver"_ba << Value("A System");
    QTest::newRow("release without quotes") << release << "PRETTY_NAME=System"_ba
                                            << "/device/sw-release-ver"_ba << Value("System");
    QTest::newRow("a longer name is another one") << release << "PRETTY_NAME_X=System\n"_ba
                                                  << "/device/sw-release-ver"_ba << Value();
    QTest::newRow("a name without a value") << release << "PRETTY_NAME\n"_ba
                                            << "/device/sw-release-ver"_ba << Value();
}

void TestSysinfo::theMachineKnowsItself()
{
    QFETCH(const QString, file);
    QFETCH(const QByteArray, content);
    QFETCH(const QByteArray, key);
    QFETCH(const Value, value);
    const DeviceTree tree;
    QVERIFY(tree.write(file, content));
    QCOMPARE(valueOf(tree, key.constData()), value);
}

void TestSysinfo::theFileWinsOverTheMachine()
{
    const DeviceTree tree;
    QVERIFY(tree.write(u"/sys/class/dmi/id/product_name"_s, "Board\n"));
    QVERIFY(tree.write(u"/etc/lodestard/sysinfo/component/product-name"_s, "Handset"));
    QCOMPARE(valueOf(tree, "/component/product-name"), Value("Handset"));
}

void TestSysinfo::theDeviceTreeStandsInForDmi()
{
    const DeviceTree tree;
    QVERIFY(tree.write(u"/proc/device-tree/model"_s, QByteArray("Board\0", 6)));
    QCOMPARE(valueOf(tree, "/component/product-name"), Value("Board"));
}

// os-release(5): the file in /etc is used alone where there is one.
void TestSysinfo::theReleaseIsTheAdministratorsElseTheVendors()
{
    const DeviceTree tree;
    QVERIFY(tree.write(u"/usr/lib/os-release"_s, "PRETTY_NAME=\"The vendor's\"\n"));
    QCOMPARE(valueOf(tree, "/device/sw-release-ver"), Value("The vendor's"));
    QVERIFY(tree.write(u"/etc/os-release"_s, "PRETTY_NAME=\"The administrator's\"\n"));
    QCOMPARE(valueOf(tree, "/device/sw-release-ver"), Value("The administrator's"));
    QVERIFY(tree.write(u"/etc/os-release"_s, "ID=x\n"));
    QCOMPARE(valueOf(tree, "/device/sw-release-ver"), Value());
}

QTEST_APPLESS_MAIN(TestSysinfo)
#include "tst_sysinfo.moc"
