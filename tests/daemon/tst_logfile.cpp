#include "daemon/logfile.h"
#include "support/childprocess.h"
#include "support/devicetree.h"
#include "support/scoped.h"
#include "support/stillclock.h"

#include <QTest>

#include <fcntl.h>

using namespace Qt::StringLiterals;

namespace {

const QString Base = u"/home/user/MyDocs"_s;
const QString LogDirectory = Base + u"/location_logs"_s;
const QString Marker = LogDirectory + u"/log_lodestard"_s;

// One set-up, with what it told the user.
struct SetUp {
    bool logToFile = false;
    bool opened = false;
    QByteArray out;
    QByteArray err;
};

SetUp setUp(const DeviceTree &tree, LogFlags flags)
{
    SetUp result;
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    const LogStream stream = setUpLogFile(tree.paths(), StillClock(), flags, {out, err});
    result.logToFile = flags.logToFile;
    result.opened = stream != nullptr;
    for (const auto &[file, text] : {std::pair(out, &result.out), std::pair(err, &result.err)}) {
        std::rewind(file);
        QFile reader;
        if (reader.open(file, QIODevice::ReadOnly))
            *text = reader.readAll();
        reader.close();
        std::fclose(file);
    }
    return result;
}

QByteArray creating(const DeviceTree &tree, const QString &path)
{
    return "Creating log file: " + tree.at(path).toUtf8() + '\n';
}

constexpr LogFlags Asked{.logToFile = true, .rdMode = true};
constexpr LogFlags NotAsked{.rdMode = true};

} // namespace

class TestLogFile : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void rdMode_data();
    void rdMode();
    void rdModeOfADevice();
    void nextNumber_data();
    void nextNumber();
    void withoutMarkerTheFileIsNumberOne();
    void withoutMarkerAndOptionNothingHappens();
    void theMarkerCountsUp_data();
    void theMarkerCountsUp();
    void everyStartWithTheMarkerWritesAnotherFile();
    void aMarkerThatCannotBeOpenedCountsAsOne();
    void theSameFileIsOverwrittenWithoutMarker();
    void baseDirectory_data();
    void baseDirectory();
    void aFileInPlaceOfTheDirectory();
    void aDirectoryThatIsNotWritable();
    void aDirectoryThatCannotBeMade();
    void aFileThatCannotBeOpened();
    void modesWhateverTheUmask_data();
    void modesWhateverTheUmask();
    void theFileIsNotInherited();
    void deviceInfo();
    void deviceInfoStandsAtTheTopOfTheLog();

private:
    std::unique_ptr<ScopedVariable> m_user;
};

void TestLogFile::init()
{
    m_user = std::make_unique<ScopedVariable>("USER", "root");
}

void TestLogFile::rdMode_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<bool>("expected");
    QTest::newRow("enabled") << "enabled"_ba << true;
    QTest::newRow("anything may follow") << "enabled, more"_ba << true;
    QTest::newRow("also a NUL") << "enabled\0x"_ba << true;
    QTest::newRow("six bytes are too few") << "enable"_ba << false;
    QTest::newRow("disabled") << "disabled"_ba << false;
    QTest::newRow("case counts") << "Enabled"_ba << false;
    QTest::newRow("nothing may stand before it") << " enabled"_ba << false;
    QTest::newRow("empty") << ""_ba << false;
}

void TestLogFile::rdMode()
{
    QFETCH(const QByteArray, value);
    QTEST(isRdMode(value), "expected");
}

void TestLogFile::rdModeOfADevice()
{
    const DeviceTree tree;
    QVERIFY(!readRdMode(tree.paths()));
    QVERIFY(tree.write(u"/etc/lodestard/sysinfo/device/rd-mode"_s, "enabled\n"));
    QVERIFY(readRdMode(tree.paths()));
    QVERIFY(tree.write(u"/etc/lodestard/sysinfo/device/rd-mode"_s, "enable\n"));
    QVERIFY(!readRdMode(tree.paths()));
}

void TestLogFile::nextNumber_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("expected");
    QTest::newRow("one more than the last") << "41"_ba << 42;
    QTest::newRow("with its line feed") << "41\n"_ba << 42;
    QTest::newRow("up to the first NUL") << QByteArray("7\0"
                                                       "9",
                                                       3)
                                         << 8;
    QTest::newRow("letters count as 0") << "abc"_ba << 1;
    QTest::newRow("letters after digits count as 0") << "12abc"_ba << 1;
    QTest::newRow("base 10 only") << "0x10"_ba << 1;
    QTest::newRow("an empty line counts as 0") << ""_ba << 1;
    QTest::newRow("leading zeros are decimal") << "010"_ba << 11;
    QTest::newRow("a negative number counts up") << "-3"_ba << -2;
    QTest::newRow("the largest number begins anew") << "2147483647"_ba << 1;
    QTest::newRow("a number that is too large is none") << "99999999999"_ba << 1;
}

void TestLogFile::nextNumber()
{
    QFETCH(const QByteArray, line);
    QTEST(nextLogNumber(line), "expected");
}

void TestLogFile::withoutMarkerTheFileIsNumberOne()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Base));
    const SetUp result = setUp(tree, Asked);
    QVERIFY(result.logToFile);
    QVERIFY(result.opened);
    QCOMPARE(result.out, creating(tree, LogDirectory + u"/lodestard_1.log"_s));
    QCOMPARE(result.err, ""_ba);
    QVERIFY(tree.exists(LogDirectory + u"/lodestard_1.log"_s));
    QVERIFY(!tree.exists(Marker));
}

void TestLogFile::withoutMarkerAndOptionNothingHappens()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Base));
    const SetUp result = setUp(tree, NotAsked);
    QVERIFY(!result.logToFile);
    QVERIFY(!result.opened);
    QCOMPARE(result.out, ""_ba);
    QCOMPARE(result.err, ""_ba);
    QVERIFY(!tree.exists(LogDirectory));
}

void TestLogFile::theMarkerCountsUp_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("41 makes 42") << "41"_ba
                                 << "42"_ba;
    QTest::newRow("letters make 1") << "letters"_ba
                                    << "1"_ba;
    QTest::newRow("an empty marker makes 1") << ""_ba
                                             << "1"_ba;
    QTest::newRow("only the first line counts") << "9\n100\n"_ba
                                                << "10"_ba;
    QTest::newRow("a longer text leaves nothing behind") << "5\nsome more words\n"_ba
                                                         << "6"_ba;
}

void TestLogFile::theMarkerCountsUp()
{
    QFETCH(const QByteArray, before);
    QFETCH(const QByteArray, after);
    const DeviceTree tree;
    QVERIFY(tree.write(Marker, before));
    const SetUp result = setUp(tree, NotAsked); // the marker alone is enough
    const QString log = LogDirectory + u"/lodestard_"_s + QString::fromLatin1(after) + u".log"_s;
    QVERIFY(result.logToFile);
    QVERIFY(result.opened);
    QCOMPARE(result.out, "lodestard logfile requested by file.\n" + creating(tree, log));
    QCOMPARE(result.err, ""_ba);
    QCOMPARE(tree.read(Marker), after);
    QVERIFY(tree.exists(log));
}

void TestLogFile::everyStartWithTheMarkerWritesAnotherFile()
{
    const DeviceTree tree;
    QVERIFY(tree.write(Marker, "1"));
    for (int start = 0; start < 3; ++start)
        QVERIFY(setUp(tree, NotAsked).opened);
    QCOMPARE(tree.read(Marker), "4"_ba);
    for (const auto &name : {u"/lodestard_2.log"_s, u"/lodestard_3.log"_s, u"/lodestard_4.log"_s})
        QVERIFY(tree.exists(LogDirectory + name));
}

void TestLogFile::aMarkerThatCannotBeOpenedCountsAsOne()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Marker));
    const SetUp result = setUp(tree, NotAsked);
    QVERIFY(result.logToFile);
    QCOMPARE(result.out,
             "lodestard logfile requested by file.\n" + creating(tree, LogDirectory + u"/lodestard_1.log"_s));
}

void TestLogFile::theSameFileIsOverwrittenWithoutMarker()
{
    const DeviceTree tree;
    const QString log = LogDirectory + u"/lodestard_1.log"_s;
    QVERIFY(tree.write(log, QByteArray(5000, 'x')));
    QVERIFY(setUp(tree, Asked).opened);
    QVERIFY(tree.read(log).startsWith("\n\n\n---"));
    QVERIFY(!tree.read(log).contains('x'));
}

void TestLogFile::baseDirectory_data()
{
    QTest::addColumn<std::optional<QByteArray>>("user");
    QTest::addColumn<QString>("base");
    QTest::newRow("root means the handset user") << std::optional("root"_ba) << u"/home/user/MyDocs"_s;
    QTest::newRow("so does no user at all") << std::optional<QByteArray>() << u"/home/user/MyDocs"_s;
    QTest::newRow("anybody else has an own home") << std::optional("ann"_ba) << u"/home/ann/MyDocs"_s;
}

void TestLogFile::baseDirectory()
{
    QFETCH(const std::optional<QByteArray>, user);
    QFETCH(const QString, base);
    const ScopedVariable scope("USER", user);
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(base));
    QVERIFY(setUp(tree, Asked).opened);
    QVERIFY(tree.exists(base + u"/location_logs/lodestard_1.log"_s));
}

void TestLogFile::aFileInPlaceOfTheDirectory()
{
    const DeviceTree tree;
    QVERIFY(tree.write(LogDirectory, "a file"));
    const SetUp result = setUp(tree, Asked);
    QVERIFY(!result.logToFile);
    QVERIFY(!result.opened);
    // The attempt is made all the same.
    QCOMPARE(result.out, creating(tree, LogDirectory + u"/lodestard_1.log"_s));
    QCOMPARE(result.err, "Cannot create log file.\nError creating logfile!\n"_ba);
}

// Nobody may write into the directory, but the file in it: it is opened, and nothing is logged.
// Root may write everywhere, so the child gives its rights up.
void TestLogFile::aDirectoryThatIsNotWritable()
{
    const DeviceTree tree;
    const QString log = LogDirectory + u"/lodestard_1.log"_s;
    QVERIFY(tree.write(log, "old"));
    QVERIFY(::chmod(QFile::encodeName(tree.at({})).constData(), 0755) == 0);
    QVERIFY(::chmod(QFile::encodeName(tree.at(log)).constData(), 0666) == 0);
    QVERIFY(::chmod(QFile::encodeName(tree.at(LogDirectory)).constData(), 0555) == 0);
    const ChildOutcome child = runInChild([&] {
        if (::geteuid() == 0 && ::setuid(65534) != 0)
            ::_exit(9);
        LogFlags flags = Asked;
        const LogStream stream = setUpLogFile(tree.paths(), StillClock(), flags);
        std::fflush(nullptr);
        ::_exit((flags.logToFile ? 1 : 0) + (stream ? 2 : 0));
    });
    QCOMPARE(child.err, "Cannot create log file.\n"_ba);
    QCOMPARE(child.out, creating(tree, log));
    QCOMPARE(child.status, 2);
    QCOMPARE(tree.read(log), ""_ba); // truncated, and without the device's description
    QVERIFY(::chmod(QFile::encodeName(tree.at(LogDirectory)).constData(), 0755) == 0);
}

void TestLogFile::aDirectoryThatCannotBeMade()
{
    const DeviceTree tree; // without "MyDocs": one directory is made, not a whole path
    const SetUp result = setUp(tree, Asked);
    QVERIFY(!result.logToFile);
    QVERIFY(!result.opened);
    QCOMPARE(result.out, creating(tree, LogDirectory + u"/lodestard_1.log"_s));
    QCOMPARE(result.err, "Cannot create log file directory.\nError creating logfile!\n"_ba);
    QVERIFY(!tree.exists(Base));
}

void TestLogFile::aFileThatCannotBeOpened()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(LogDirectory + u"/lodestard_1.log"_s));
    const SetUp result = setUp(tree, Asked);
    QVERIFY(!result.logToFile);
    QVERIFY(!result.opened);
    QCOMPARE(result.err, "Error creating logfile!\n"_ba);
}

void TestLogFile::modesWhateverTheUmask_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("umask 0") << 0;
    QTest::newRow("umask 077") << 077;
}

void TestLogFile::modesWhateverTheUmask()
{
    QFETCH(const int, mask);
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Base));
    {
        const ScopedUmask scope{mode_t(mask)};
        QVERIFY(setUp(tree, Asked).opened);
    }
    QCOMPARE(tree.mode(LogDirectory), 0755);
    QCOMPARE(tree.mode(LogDirectory + u"/lodestard_1.log"_s), 0644);
}

void TestLogFile::theFileIsNotInherited()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Base));
    LogFlags flags = Asked;
    std::FILE *out = std::tmpfile();
    const LogStream stream = setUpLogFile(tree.paths(), StillClock(), flags, {out, out});
    std::fclose(out);
    QVERIFY(stream != nullptr);
    QVERIFY(::fcntl(::fileno(stream.get()), F_GETFD) & FD_CLOEXEC);
}

void TestLogFile::deviceInfo()
{
    const DeviceTree tree;
    const QString directory = u"/etc/lodestard/sysinfo"_s;
    QVERIFY(tree.write(directory + u"/component/product-name"_s, "Handset\n"));
    QVERIFY(tree.write(directory + u"/component/product"_s, QByteArray("AB\0CD", 5)));
    QVERIFY(tree.write(directory + u"/component/hw-build"_s, ""));
    QVERIFY(tree.write(directory + u"/device/rd-mode"_s, "enabled"));
    char *text = nullptr;
    std::size_t length = 0;
    std::FILE *stream = ::open_memstream(&text, &length);
    writeDeviceInfo(stream, tree.paths(), StillClock());
    std::fclose(stream);
    const QByteArray written(text, qsizetype(length));
    std::free(text);
    QCOMPARE(written, "\n\n\n---------------------------------------\n"
                      "  lodestard start!\n     09:05:02"
                      "\n     07.03.2026"
                      "\n---------------------------------------\n"
                      "--------------DEVICE-INFO--------------\n"
                      "/component/product-name=Handset\n"
                      "/component/product=AB\n"
                      "/component/hw-build=<n/a>\n"
                      "/component/keppo=<n/a>\n"
                      "/component/boot-reason=<n/a>\n"
                      "/component/boot-mode=<n/a>\n"
                      "/device/sw-release-ver=<n/a>\n"
                      "/device/content-ver=<n/a>\n"
                      "/device/hw-version=<n/a>\n"
                      "/device/production-sn=<n/a>\n"
                      "/device/product-code=<n/a>\n"
                      "/device/order-number=<n/a>\n"
                      "/device/basic-product-code=<n/a>\n"
                      "/device/rd-mode=enabled\n"
                      "/device/rd-flags=<n/a>\n"
                      "---------------------------------------\n"_ba);
}

void TestLogFile::deviceInfoStandsAtTheTopOfTheLog()
{
    const DeviceTree tree;
    QVERIFY(tree.makeDirectory(Base));
    QVERIFY(setUp(tree, Asked).opened);
    const QByteArray log = tree.read(LogDirectory + u"/lodestard_1.log"_s);
    QVERIFY(
        log.startsWith("\n\n\n---------------------------------------\n  lodestard start!\n     09:05:02\n"));
    QVERIFY(log.endsWith("/device/rd-flags=<n/a>\n---------------------------------------\n"));
}

QTEST_APPLESS_MAIN(TestLogFile)
#include "tst_logfile.moc"
