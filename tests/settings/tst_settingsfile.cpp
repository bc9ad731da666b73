#include "settings/settingsfixture.h"

#include <QScopeGuard>
#include <QTest>

#include <csignal>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

// How the settings reach the disk, and what happens when they do not.

namespace {

const QString CannotWrite = u"critical: LocationSecureSettings::set: Cannot write setting %1 to disk"_s;

// No file of the process grows beyond `bytes` while this lives: a full disk.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &m_before); }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

private:
    rlimit m_before;
};

} // namespace

class TestSettingsFile : public QObject
{
    Q_OBJECT

private slots:
    void theSeedIsWrittenInItsOwnTime();
    void theSeedIsWrittenAtTheEndAtTheLatest();
    void modesWhateverTheUmask_data();
    void modesWhateverTheUmask();
    void anOpenFileIsClosedToOthers();
    void aRemovedDirectoryIsMadeAgainPrivately();
    void aFullDiskEndsOneWriteOnly_data();
    void aFullDiskEndsOneWriteOnly();
    void aFullDiskAtTheStartLosesNothing();
    void aDamagedFileIsRepaired();
    void whatOthersChangedIsTakenOver();
    void aLinkStaysALink();
    void nothingIsLeftBeside();
    void whatAKilledDaemonLeftIsSweptUp();
    void valuesComeBackAfterARestart();
    void userDecidesThePath_data();
    void userDecidesThePath();
    void withoutUserNothingIsWritten();
};

void TestSettingsFile::theSeedIsWrittenInItsOwnTime()
{
    SettingsFixture f;
    f.startQuietly();
    QTRY_VERIFY(f.tree.read(SettingsFixture::UserFile).contains("\nWiFiPositioning=true\n"));
    const QByteArray file = f.tree.read(SettingsFixture::UserFile);
    QVERIFY(file.startsWith("[General]\n"));
    for (const auto &row : settingDefinitions())
        QVERIFY2(file.contains('\n' + row.key.toLatin1() + '='), qPrintable(row.key));
}

void TestSettingsFile::theSeedIsWrittenAtTheEndAtTheLatest()
{
    SettingsFixture f;
    f.startQuietly();
    f.settings.reset(); // before the event loop turned once
    QVERIFY(f.tree.read(SettingsFixture::UserFile).contains("\nWiFiPositioning=true\n"));
}

void TestSettingsFile::modesWhateverTheUmask_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("umask 0") << 0;
    QTest::newRow("umask 077") << 077;
    QTest::newRow("umask 0777") << 0777;
}

void TestSettingsFile::modesWhateverTheUmask()
{
    QFETCH(const int, mask);
    SettingsFixture f;
    const ScopedUmask scope{mode_t(mask)};
    f.startQuietly();
    QCOMPARE(f.tree.mode(SettingsFixture::UserFile), 0600); // before the first byte
    QVERIFY(f.set(u"Positioning"_s, false));
    QCOMPARE(f.tree.mode(SettingsFixture::UserFile), 0600);
    QCOMPARE(f.tree.mode(u"/home/user/.lodestard/private"_s), 0700);
    QCOMPARE(f.tree.mode(u"/home/user/.lodestard"_s), 0700);
    QCOMPARE(f.tree.mode(u"/home/user"_s), 0755);
}

void TestSettingsFile::anOpenFileIsClosedToOthers()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("Positioning=false\n"));
    QVERIFY(::chmod(QFile::encodeName(f.tree.at(SettingsFixture::UserFile)).constData(), 0666) == 0);
    f.startQuietly();
    QVERIFY(f.set(u"SuplForced"_s, true));
    QCOMPARE(f.tree.mode(SettingsFixture::UserFile), 0600);
    QVERIFY(f.tree.read(SettingsFixture::UserFile).contains("\nPositioning=false\n"));
}

void TestSettingsFile::aRemovedDirectoryIsMadeAgainPrivately()
{
    SettingsFixture f;
    const ScopedUmask scope(0);
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, false));
    QVERIFY(QDir(f.tree.at(u"/home/user/.lodestard"_s)).removeRecursively());
    QVERIFY(f.set(u"SuplForced"_s, true));
    QCOMPARE(f.tree.mode(u"/home/user/.lodestard/private"_s), 0700);
    QCOMPARE(f.tree.mode(SettingsFixture::UserFile), 0600);
    QVERIFY(f.tree.read(SettingsFixture::UserFile).contains("\nSuplForced=true\n"));
}

void TestSettingsFile::aFullDiskEndsOneWriteOnly_data()
{
    QTest::addColumn<int>("room"); // bytes
    QTest::newRow("no byte can be written") << 0;
    QTest::newRow("the file's beginning can be written") << 512;
}

void TestSettingsFile::aFullDiskEndsOneWriteOnly()
{
    QFETCH(const int, room);
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"NetworkPositioningMethod"_s, 1));
    f.takeSignals();
    const QByteArray before = f.tree.read(SettingsFixture::UserFile);
    {
        const FullDisk disk{rlim_t(room)};
        QVERIFY(!f.set(u"Positioning"_s, false));
        QVERIFY(!f.set(u"SuplForced"_s, true));
    }
    QCOMPARE(f.log.takeLines(),
             QStringList({CannotWrite.arg(u"Positioning"_s), CannotWrite.arg(u"SuplForced"_s)}));
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(false)); // in memory
    QCOMPARE(f.tree.read(SettingsFixture::UserFile), before);

    QVERIFY(f.set(u"WiFiPositioning"_s, false));
    QCOMPARE(f.takeSignals(), QStringList{u"WiFiPositioning"_s});
    QCOMPARE(f.log.takeLines(), QStringList());
    const QByteArray after = f.tree.read(SettingsFixture::UserFile);
    for (const auto &line : {"Positioning=false"_ba, "SuplForced=true"_ba, "WiFiPositioning=false"_ba,
                             "NetworkPositioningMethod=1"_ba, "CellularPositioning=true"_ba})
        QVERIFY2(after.contains('\n' + line + '\n'), line.constData());
    QCOMPARE(f.tree.mode(SettingsFixture::UserFile), 0600);
    QVERIFY(f.set(u"WiFiPositioning"_s, true)); // and goes on working
}

void TestSettingsFile::aFullDiskAtTheStartLosesNothing()
{
    SettingsFixture f;
    {
        const FullDisk disk(0);
        f.startQuietly();
        QVERIFY(!f.set(u"Positioning"_s, false));
    }
    f.log.takeLines();
    QVERIFY(f.set(u"SuplForced"_s, true));
    const QByteArray file = f.tree.read(SettingsFixture::UserFile);
    QVERIFY(file.contains("\nPositioning=false\n"));
    for (const auto &row : settingDefinitions())
        QVERIFY2(file.contains('\n' + row.key.toLatin1() + '='), qPrintable(row.key));
}

void TestSettingsFile::aDamagedFileIsRepaired()
{
    SettingsFixture f;
    QVERIFY(f.tree.write(SettingsFixture::UserFile,
                         "[General]\nPositioning=false\n%%% no line of a settings file\n"));
    f.startQuietly();
    QCOMPARE(f.settings->value(u"Positioning"_s).toBool(), false);
    QVERIFY(f.set(u"SuplForced"_s, true));
    const QByteArray file = f.tree.read(SettingsFixture::UserFile);
    QVERIFY(file.contains("\nSuplForced=true\n"));
    QVERIFY(file.contains("\nPositioning=false\n"));
}

void TestSettingsFile::whatOthersChangedIsTakenOver()
{
    SettingsFixture f;
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, false));
    QByteArray file = f.tree.read(SettingsFixture::UserFile);
    file.replace("WiFiPositioning=true", "WiFiPositioning=false");
    file.replace("SuplForced=false", "SuplForced=true");
    QVERIFY(f.tree.write(SettingsFixture::UserFile, file + "Altimeter=7\n"));

    QVERIFY(f.set(u"SuplForced"_s, false)); // ours wins for this key
    QCOMPARE(f.settings->value(u"WiFiPositioning"_s).toBool(), false);
    QCOMPARE(f.settings->value(u"SuplForced"_s), QVariant(false));
    QCOMPARE(f.settings->value(u"Positioning"_s).toBool(), false);
    const QByteArray after = f.tree.read(SettingsFixture::UserFile);
    for (const auto &line : {"Altimeter=7"_ba, "WiFiPositioning=false"_ba, "SuplForced=false"_ba})
        QVERIFY2(after.contains('\n' + line + '\n'), line.constData());
}

void TestSettingsFile::aLinkStaysALink()
{
    SettingsFixture f;
    QVERIFY(f.tree.write(u"/elsewhere/settings"_s, "[General]\nPositioning=false\n"));
    QVERIFY(f.tree.makeDirectory(u"/home/user/.lodestard/private"_s));
    QVERIFY(QFile::link(f.tree.at(u"/elsewhere/settings"_s), f.tree.at(SettingsFixture::UserFile)));
    f.startQuietly();
    QVERIFY(f.set(u"SuplForced"_s, true));
    QVERIFY(QFileInfo(f.tree.at(SettingsFixture::UserFile)).isSymLink());
    QVERIFY(f.tree.read(u"/elsewhere/settings"_s).contains("\nSuplForced=true\n"));
}

void TestSettingsFile::nothingIsLeftBeside()
{
    SettingsFixture f;
    f.startQuietly();
    {
        const FullDisk disk(512);
        QVERIFY(!f.set(u"Positioning"_s, false));
    }
    const QDir directory(f.tree.at(u"/home/user/.lodestard/private"_s));
    QCOMPARE(directory.entryList(QDir::Files | QDir::Hidden), QStringList{u"location_settings"_s});
    QVERIFY(f.set(u"Positioning"_s, false));
    QCOMPARE(directory.entryList(QDir::Files | QDir::Hidden), QStringList{u"location_settings"_s});
}

void TestSettingsFile::whatAKilledDaemonLeftIsSweptUp()
{
    SettingsFixture f;
    QVERIFY(f.writeUserFile("Positioning=false\n"));
    const QString half = SettingsFixture::UserFile + u".new-5ca1ab1e"_s;
    QVERIFY(f.tree.write(half, "[General]\nPosi"));
    QVERIFY(f.tree.write(half + u".lock"_s, {}));
    f.startQuietly();
    QVERIFY(f.set(u"WiFiPositioning"_s, false));
    const QDir directory(f.tree.at(u"/home/user/.lodestard/private"_s));
    QCOMPARE(directory.entryList(QDir::Files | QDir::Hidden), QStringList{u"location_settings"_s});
    QCOMPARE(f.settings->value(u"Positioning"_s).toBool(), false);
}

void TestSettingsFile::valuesComeBackAfterARestart()
{
    const QString umlauts = u"M\u00fcnchen, \"GPS\"; @x \\ %41"_s;
    SettingsFixture first;
    first.startQuietly();
    QVERIFY(first.set(u"Positioning"_s, false));
    QVERIFY(first.set(u"NetworkPositioningMethod"_s, -4));
    QVERIFY(first.set(u"PrimarySuplServer"_s, umlauts));
    QVERIFY(first.set(u"SecondarySuplServer"_s, QVariant::fromValue(uchar(7))));
    first.settings.reset();
    const QByteArray content = first.tree.read(SettingsFixture::UserFile);

    SettingsFixture second; // another path: nothing of the first is in Qt's cache
    QVERIFY(second.tree.write(SettingsFixture::UserFile, content));
    second.start();
    const QStringList lines = second.log.takeLines();
    QCOMPARE(lines.filter(u"Keep previous setting: "_s).size(), 30);
    QVERIFY(lines.contains(u"debug: Keep previous setting:  \"NetworkPositioningMethod\" = \"-4\""_s));
    QCOMPARE(second.settings->value(u"Positioning"_s), QVariant(u"false"_s)); // booleans come back as text
    QCOMPARE(second.settings->value(u"Positioning"_s).toBool(), false);
    QCOMPARE(second.settings->value(u"NetworkPositioningMethod"_s).toInt(), -4);
    QCOMPARE(second.settings->value(u"PrimarySuplServer"_s), QVariant(umlauts));
    QCOMPARE(second.settings->value(u"SecondarySuplServer"_s).toInt(), 7);
}

void TestSettingsFile::userDecidesThePath_data()
{
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QString>("path");
    QTest::newRow("root keeps them with the handset user")
        << "root"_ba << u"/home/user/.lodestard/private/location_settings"_s;
    QTest::newRow("anybody else has an own home")
        << "ann"_ba << u"/home/ann/.lodestard/private/location_settings"_s;
    QTest::newRow("an empty name is taken literally")
        << ""_ba << u"/home//.lodestard/private/location_settings"_s;
}

void TestSettingsFile::userDecidesThePath()
{
    QFETCH(const QByteArray, user);
    QFETCH(const QString, path);
    const ScopedVariable scope("USER", user);
    SettingsFixture f;
    const ScopedVariable inner("USER", user);
    f.startQuietly();
    QVERIFY(f.set(u"Positioning"_s, false));
    QVERIFY(f.tree.read(path).contains("\nPositioning=false\n"));
    QCOMPARE(f.tree.mode(path), 0600);
}

void TestSettingsFile::withoutUserNothingIsWritten()
{
    const QTemporaryDir elsewhere;
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(elsewhere.path()));
    const auto goBack = qScopeGuard([&before] { QDir::setCurrent(before); });

    SettingsFixture f;
    const ScopedVariable nobody("USER", std::nullopt);
    f.startQuietly();
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(true));
    QVERIFY(!f.set(u"Positioning"_s, false));
    QVERIFY(!f.set(u"Positioning"_s, false));
    QCOMPARE(f.settings->value(u"Positioning"_s), QVariant(false)); // in memory
    QCOMPARE(f.settings->value(u"SuplFallback"_s), QVariant(true));
    QCOMPARE(f.takeSignals(), QStringList());
    QCOMPARE(f.log.takeLines(), QStringList(2, CannotWrite.arg(u"Positioning"_s)));
    f.settings.reset();
    QCOMPARE(QDir(elsewhere.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
    QCOMPARE(QDir(f.tree.at({})).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

PRIVATE_BUS_TEST_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
