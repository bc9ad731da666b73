#include "engine/enginesource.h"
#include "platform/devicepaths.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestEngineSource : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void markersBeatTheEnvironment_data();
    void markersBeatTheEnvironment();
    void wishesComeFromTheEnvironmentAndTheMarkerFiles();
    void theTestEngineRunsUnderItsInterpreter();
    void aMissingInterpreterEndsTheChildWithAFatalLine();

private:
    QString place(const QString &path) const { return m_root->path() + path; }
    bool write(const QString &path, const QByteArray &content) const;

    std::unique_ptr<QTemporaryDir> m_root;
};

namespace {

QString s_fatalFile; // where the forked child's last line goes

// What the daemon's own handler does: write, then leave without running any destructor.
void endOnFatal(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    QFile file(s_fatalFile);
    if (type == QtFatalMsg && file.open(QIODevice::WriteOnly)) {
        file.write(text.toUtf8());
        file.close();
        ::_exit(1);
    }
}

// The exit status of this process's only child.
bool waitForChild(int &exitStatus)
{
    int status = 0;
    const bool ended = QTest::qWaitFor([&status] { return ::waitpid(-1, &status, WNOHANG) > 0; }, 10000);
    exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
}

} // namespace

void TestEngineSource::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    qunsetenv("POSITIONING_SOURCE");
}

void TestEngineSource::cleanup()
{
    qunsetenv("POSITIONING_SOURCE");
}

bool TestEngineSource::write(const QString &path, const QByteArray &content) const
{
    QFile file(place(path));
    return QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(content) == content.size();
}

void TestEngineSource::markersBeatTheEnvironment_data()
{
    QTest::addColumn<EngineSourceWishes>("wishes");
    QTest::addColumn<EngineSource>("source");
    const auto real = EngineSource::Real;
    const auto test = EngineSource::Test;

    QTest::newRow("nobody asked: the real engine") << EngineSourceWishes{} << real;
    QTest::newRow("FAKE is the test engine") << EngineSourceWishes{.environmentValue = "FAKE"} << test;
    QTest::newRow("fake is the test engine") << EngineSourceWishes{.environmentValue = "fake"} << test;
    QTest::newRow("fAkE is the test engine") << EngineSourceWishes{.environmentValue = "fAkE"} << test;
    QTest::newRow("REAL is the real engine") << EngineSourceWishes{.environmentValue = "REAL"} << real;
    QTest::newRow("TEST is the real engine") << EngineSourceWishes{.environmentValue = "TEST"} << real;
    QTest::newRow("FAKE1 is the real engine") << EngineSourceWishes{.environmentValue = "FAKE1"} << real;
    QTest::newRow("a blank behind FAKE is the real engine")
        << EngineSourceWishes{.environmentValue = "FAKE "} << real;
    QTest::newRow("the test engine's marker is enough") << EngineSourceWishes{.fakeMarker = true} << test;
    QTest::newRow("the test engine's marker beats REAL")
        << EngineSourceWishes{.environmentValue = "REAL", .fakeMarker = true} << test;
    QTest::newRow("the real engine's marker beats FAKE")
        << EngineSourceWishes{.environmentValue = "FAKE", .realMarker = true} << real;
    QTest::newRow("the real engine's marker beats the other marker")
        << EngineSourceWishes{.fakeMarker = true, .realMarker = true} << real;
    QTest::newRow("the real engine's marker beats everything")
        << EngineSourceWishes{.environmentValue = "FAKE", .fakeMarker = true, .realMarker = true} << real;
}

void TestEngineSource::markersBeatTheEnvironment()
{
    QFETCH(EngineSourceWishes, wishes);
    QFETCH(EngineSource, source);
    QCOMPARE(chooseEngineSource(wishes), source);
}

void TestEngineSource::wishesComeFromTheEnvironmentAndTheMarkerFiles()
{
    const DevicePaths paths{m_root->path()};
    auto wishes = readEngineSourceWishes(paths);
    QCOMPARE(wishes.environmentValue, QByteArray());
    QVERIFY(!wishes.fakeMarker);
    QVERIFY(!wishes.realMarker);

    qputenv("POSITIONING_SOURCE", "fake");
    QCOMPARE(readEngineSourceWishes(paths).environmentValue, QByteArray("fake"));

    QVERIFY(write(u"/home/user/.fake_positioning"_s, {}));
    wishes = readEngineSourceWishes(paths);
    QVERIFY(wishes.fakeMarker);
    QVERIFY(!wishes.realMarker);

    QVERIFY(write(u"/home/user/.real_positioning"_s, {}));
    QVERIFY(readEngineSourceWishes(paths).realMarker);
}

void TestEngineSource::theTestEngineRunsUnderItsInterpreter()
{
    // A shell in the interpreter's place writes down how it was started.
    QVERIFY(QDir().mkpath(place(u"/usr/bin"_s)));
    QVERIFY(QFile::link(u"/bin/sh"_s, place(u"/usr/bin/python2.6"_s)));
    const QString script = u"/usr/lib/lodestard-tests/fake_orv.py"_s;
    const QString report = place(u"/report"_s);
    QVERIFY(write(script, "cat /proc/$$/cmdline > " + QFile::encodeName(report)));

    launchTestEngine({m_root->path()});
    int exitStatus = -1;
    QVERIFY(waitForChild(exitStatus));
    QCOMPARE(exitStatus, 0);

    QFile file(report);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> arguments = file.readAll().split('\0');
    QCOMPARE(arguments, QList<QByteArray>({"python2.6", QFile::encodeName(place(script)), ""}));
}

void TestEngineSource::aMissingInterpreterEndsTheChildWithAFatalLine()
{
    s_fatalFile = place(u"/fatal"_s);
    const auto previous = qInstallMessageHandler(&endOnFatal);
    launchTestEngine({m_root->path()});
    qInstallMessageHandler(previous);

    int exitStatus = -1;
    QVERIFY(waitForChild(exitStatus));
    QCOMPARE(exitStatus, 1);
    QFile file(s_fatalFile);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray(">>>>> Could not start fake orvd. <<<<<"));
}

QTEST_GUILESS_MAIN(TestEngineSource)
#include "tst_enginesource.moc"
