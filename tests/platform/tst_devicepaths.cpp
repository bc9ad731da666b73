#include "platform/devicepaths.h"
#include "support/scoped.h"

#include <QTest>

using namespace Qt::StringLiterals;

using User = std::optional<QByteArray>;

class TestDevicePaths : public QObject
{
    Q_OBJECT

private slots:
    void fixedPlaces_data();
    void fixedPlaces();
    void placesOfTheUser_data();
    void placesOfTheUser();
};

void TestDevicePaths::fixedPlaces_data()
{
    QTest::addColumn<QString>("root");
    QTest::newRow("on a device") << u""_s;
    QTest::newRow("below a test's directory") << u"/tmp/device"_s;
}

void TestDevicePaths::fixedPlaces()
{
    QFETCH(const QString, root);
    const DevicePaths paths{root};
    QCOMPARE(paths.engineSocket(), root + u"/var/run/orvd/orvd.socket"_s);
    QCOMPARE(paths.testEngineSocket(), root + u"/tmp/orvd"_s);
    QCOMPARE(paths.operatorSettings(), root + u"/etc/xdg/varn/location-settings.conf"_s);
    QCOMPARE(paths.systemInformation(), root + u"/etc/lodestard/sysinfo"_s);
    // The marker files are the handset user's, whoever runs the daemon.
    const ScopedVariable user("USER", "ann");
    QCOMPARE(paths.marker(".use_supl"), root + u"/home/user/.use_supl"_s);
    QCOMPARE(paths.marker(".fake_positioning"), root + u"/home/user/.fake_positioning"_s);
}

void TestDevicePaths::placesOfTheUser_data()
{
    QTest::addColumn<User>("user");
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QString>("documents");
    const QString settings = u"/home/%1/.lodestard/private/location_settings"_s;
    const QString documents = u"/home/%1/MyDocs/"_s;
    QTest::newRow("root means the handset user")
        << User("root") << settings.arg(u"user"_s) << documents.arg(u"user"_s);
    QTest::newRow("anybody else has an own home")
        << User("ann") << settings.arg(u"ann"_s) << documents.arg(u"ann"_s);
    QTest::newRow("an empty name is taken literally")
        << User("") << settings.arg(u""_s) << documents.arg(u""_s);
    QTest::newRow("without a name the settings have no file, the logs the handset user's place")
        << User() << u""_s << documents.arg(u"user"_s);
}

void TestDevicePaths::placesOfTheUser()
{
    QFETCH(const User, user);
    QFETCH(const QString, settings);
    QFETCH(const QString, documents);
    const ScopedVariable scope("USER", user);
    QCOMPARE(DevicePaths{}.userSettings(), settings);
    QCOMPARE(DevicePaths{}.documentsDirectory(), documents);
    QCOMPARE(DevicePaths{}.logDirectory(), documents + u"location_logs"_s);
    const DevicePaths below{u"/tmp/device"_s};
    QCOMPARE(below.userSettings(), settings.isEmpty() ? QString() : u"/tmp/device"_s + settings);
    QCOMPARE(below.documentsDirectory(), u"/tmp/device"_s + documents);
}

QTEST_APPLESS_MAIN(TestDevicePaths)
#include "tst_devicepaths.moc"
