#include "settings/locationgconfsettings.h"
#include "settings/locationsettingitem.h"
#include "support/keystore.h"
#include "support/privatebus.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Settings = LocationGConfSettings;

namespace {

const QString Folder = u"/system/tavi/location/settings"_s;
constexpr Settings::Keys Nothing[] = {Settings::Keys(-1), Settings::Keys(4)};

QString stored(const QString &name)
{
    return KeyStore::read(Folder + u'/' + name);
}

// While it lives, an operator's rule keeps everybody from writing one key, which stays unset. Only
// dconf has such rules.
class LockedKey
{
public:
    explicit LockedKey(const QString &name)
    {
        const QString site = m_directory.filePath(u"site"_s);
        const QString database = m_directory.filePath(u"site.db"_s);
        const QString profile = m_directory.filePath(u"profile"_s);
        QDir(m_directory.path()).mkpath(u"site/locks"_s);
        write(site + u"/locks/all"_s, Folder + u'/' + name + u'\n');
        write(profile, u"user-db:user\nfile-db:%1\n"_s.arg(database));
        m_holds = KeyStore::isDconf() && QProcess::execute(u"dconf"_s, {u"compile"_s, database, site}) == 0;
        qputenv("DCONF_PROFILE", profile.toLocal8Bit());
    }
    ~LockedKey() { qunsetenv("DCONF_PROFILE"); }
    LockedKey(const LockedKey &) = delete;
    LockedKey &operator=(const LockedKey &) = delete;

    bool holds() const { return m_holds; }

private:
    static void write(const QString &path, const QString &text)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0)
            qFatal("%s cannot be written", qPrintable(path));
    }

    QTemporaryDir m_directory;
    bool m_holds = false;
};

} // namespace

class TestLocationGConfSettings : public QObject
{
    Q_OBJECT

private slots:
    void init() { KeyStore::unsetFolder(Folder); }

    void identifiers();
    void places_data();
    void places();
    void defaults();
    void defaultsLeaveWhatIsSet();
    void defaultsGoOnBehindOneThatIsNotTaken();
    void unsetIsNotTheDefault();
    void setTellsWhetherTheValueIsThere();
    void variationAsNumber();
    void noSuchKey();
    void changesAreTold();
    void nothingWithoutBeingAsked();

    void item();
    void itemsOfOneName();
    void itemLifetime();
};

void TestLocationGConfSettings::identifiers()
{
    QCOMPARE(int(Settings::KeyMagneticVariation), 0);
    QCOMPARE(int(Settings::KeySatellitePositioning), 1);
    QCOMPARE(int(Settings::KeyNetworkPositioning), 2);
    QCOMPARE(int(Settings::KeyVesk), 3);
    const QMetaObject &meta = Settings::staticMetaObject;
    QVERIFY(meta.indexOfSignal("valueChanged(LocationGConfSettings::Keys)") >= 0);
    QVERIFY(LocationSettingItem::staticMetaObject.indexOfSlot("sendValueChanged()") >= 0);
}

void TestLocationGConfSettings::places_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("name");
    QTest::newRow("variation") << 0 << u"magneticvariation"_s;
    QTest::newRow("satellites") << 1 << u"satellitePositioning"_s;
    QTest::newRow("network") << 2 << u"networkPositioning"_s;
    QTest::newRow("library") << 3 << u"VESK"_s;
}

void TestLocationGConfSettings::places()
{
    QFETCH(int, key);
    QFETCH(QString, name);
    Settings settings(nullptr);
    QVERIFY(settings.set(Settings::Keys(key), 17));
    QCOMPARE(stored(name), u"17"_s);
    KeyStore::write(Folder + u'/' + name, false);
    QTRY_COMPARE(settings.value(Settings::Keys(key)), QVariant(false));
}

void TestLocationGConfSettings::defaults()
{
    Settings settings(nullptr);
    QCOMPARE(settings.setDefaults(), 0);
    QCOMPARE(settings.value(Settings::KeyMagneticVariation), QVariant(0.0));
    QCOMPARE(settings.value(Settings::KeyMagneticVariation).typeId(), QMetaType::Double);
    for (const auto key :
         {Settings::KeySatellitePositioning, Settings::KeyNetworkPositioning, Settings::KeyVesk}) {
        QCOMPARE(settings.value(key), QVariant(true));
        QCOMPARE(settings.value(key).typeId(), QMetaType::Bool);
    }
    QCOMPARE(stored(u"satellitePositioning"_s), u"true"_s);
}

void TestLocationGConfSettings::defaultsLeaveWhatIsSet()
{
    KeyStore::write(Folder + u"/satellitePositioning"_s, false);
    KeyStore::write(Folder + u"/magneticvariation"_s, -3);
    Settings settings(nullptr);
    QCOMPARE(settings.setDefaults(), 0);
    QCOMPARE(settings.value(Settings::KeySatellitePositioning), QVariant(false));
    QCOMPARE(settings.value(Settings::KeyMagneticVariation), QVariant(-3));
    QCOMPARE(settings.value(Settings::KeyNetworkPositioning), QVariant(true));
    QCOMPARE(settings.value(Settings::KeyVesk), QVariant(true));
}

void TestLocationGConfSettings::defaultsGoOnBehindOneThatIsNotTaken()
{
    const LockedKey locked(u"magneticvariation"_s); // the first of them
    QCOMPARE(locked.holds(), KeyStore::isDconf());
    Settings settings(nullptr);
    QCOMPARE(settings.setDefaults(), locked.holds() ? -1 : 0);
    QCOMPARE(settings.value(Settings::KeyMagneticVariation).isValid(), !locked.holds());
    QCOMPARE(settings.set(Settings::KeyMagneticVariation, 3), !locked.holds());
    for (const auto key :
         {Settings::KeySatellitePositioning, Settings::KeyNetworkPositioning, Settings::KeyVesk})
        QCOMPARE(settings.value(key), QVariant(true));
}

void TestLocationGConfSettings::unsetIsNotTheDefault()
{
    const Settings settings(nullptr);
    for (int key = 0; key < 4; ++key)
        QVERIFY(!settings.value(Settings::Keys(key)).isValid());
}

void TestLocationGConfSettings::setTellsWhetherTheValueIsThere()
{
    Settings settings(nullptr);
    QVERIFY(settings.set(Settings::KeyVesk, false));
    QVERIFY(settings.set(Settings::KeyVesk, false)); // no change is no failure
    QVERIFY(!settings.set(Settings::KeyVesk, QVariantList{1}));
    QCOMPARE(settings.value(Settings::KeyVesk), QVariant(false));
    QVERIFY(settings.set(Settings::KeyVesk, QVariant()));
    QVERIFY(!settings.value(Settings::KeyVesk).isValid());
}

void TestLocationGConfSettings::variationAsNumber()
{
    Settings settings(nullptr);
    QCOMPARE(settings.setDefaults(), 0);
    QVERIFY(settings.set(Settings::KeyMagneticVariation, 0));
    QCOMPARE(settings.value(Settings::KeyMagneticVariation).typeId(), QMetaType::Int);
    QCOMPARE(stored(u"magneticvariation"_s), u"0"_s);
}

void TestLocationGConfSettings::noSuchKey()
{
    Settings settings(nullptr);
    QCOMPARE(settings.setDefaults(), 0);
    QSignalSpy told(&settings, &Settings::valueChanged);
    QTRY_COMPARE(told.size(), 4);
    for (const Settings::Keys key : Nothing) {
        QVERIFY(!settings.value(key).isValid());
        QVERIFY(!settings.set(key, false));
    }
    QVERIFY(settings.set(Settings::KeyVesk, false));
    QTRY_COMPARE(told.size(), 5); // and nothing before
    QCOMPARE(told.last().first().value<Settings::Keys>(), Settings::KeyVesk);
}

void TestLocationGConfSettings::changesAreTold()
{
    Settings settings(nullptr);
    QSignalSpy told(&settings, &Settings::valueChanged);
    const QStringList names{u"magneticvariation"_s, u"satellitePositioning"_s, u"networkPositioning"_s,
                            u"VESK"_s};
    for (int key = 0; key < names.size(); ++key) {
        KeyStore::write(Folder + u'/' + names.at(key), 12);
        QTRY_COMPARE(told.size(), key + 1);
        QCOMPARE(told.last().first().value<Settings::Keys>(), Settings::Keys(key));
    }
}

void TestLocationGConfSettings::nothingWithoutBeingAsked()
{
    {
        const Settings settings(nullptr);
    }
    for (const QString &name :
         {u"magneticvariation"_s, u"satellitePositioning"_s, u"networkPositioning"_s, u"VESK"_s})
        QCOMPARE(stored(name), QString());
}

void TestLocationGConfSettings::item()
{
    QObject parent;
    LocationSettingItem item(u"extra"_s, Settings::KeyNetworkPositioning, u"default"_s, &parent);
    QCOMPARE(item.parent(), &parent);
    QCOMPARE(item.key(), Settings::KeyNetworkPositioning);
    QVERIFY(!item.isSet());
    QVERIFY(item.setDefault());
    QVERIFY(item.isSet());
    QCOMPARE(item.value(), QVariant(u"default"_s));
    QCOMPARE(stored(u"extra"_s).remove(u'\''), u"default"_s);

    QSignalSpy told(&item, &LocationSettingItem::valueChanged);
    QVERIFY(item.set(false));
    QVERIFY(item.isSet()); // false is a value
    QTRY_VERIFY(!told.isEmpty());
    QCOMPARE(told.first().first().value<Settings::Keys>(), Settings::KeyNetworkPositioning);

    told.clear();
    item.sendValueChanged();
    QCOMPARE(told.size(), 1);
}

void TestLocationGConfSettings::itemsOfOneName()
{
    LocationSettingItem one(u"extra"_s, Settings::KeyVesk, 1, nullptr);
    LocationSettingItem other(u"extra"_s, Settings::KeyVesk, 2, nullptr);
    QVERIFY(one.setDefault());
    QCOMPARE(other.value(), QVariant(1));
}

void TestLocationGConfSettings::itemLifetime()
{
    auto settings = std::make_unique<Settings>(this);
    QCOMPARE(settings->parent(), this);
    const auto items = settings->findChildren<LocationSettingItem *>(Qt::FindDirectChildrenOnly);
    QCOMPARE(items.size(), 4);
    QSignalSpy gone(items.first(), &QObject::destroyed);
    for (qsizetype i = 0; i < items.size(); ++i) {
        QCOMPARE(int(items.at(i)->key()), i);
        QCOMPARE(items.at(i)->children().size(), 1); // the key's own object
    }
    settings.reset();
    QCOMPARE(gone.size(), 1);
}

int main(int argc, char *argv[])
{
    const PrivateBuses buses({KeyStore::service()});
    QCoreApplication application(argc, argv);
    TestLocationGConfSettings test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_locationgconfsettings.moc"
