#include "daemon/daemonize.h"

#include <QByteArrayList>
#include <QTest>

#include <array>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the calls answer, and what was called.
struct Script {
    pid_t parent = 4711;
    pid_t child = 0;
    pid_t session = 1;
    int directory = 0;
    QByteArrayList calls = {};
};
Script script;

constexpr ProcessCalls scripted{
    [] { return script.parent; },
    [] {
        script.calls << "fork";
        return script.child;
    },
    [] {
        script.calls << "setsid";
        return script.session;
    },
    [](const char *path) {
        script.calls << QByteArray("chdir ") + path;
        return script.directory;
    },
    [](mode_t mask) {
        script.calls << QByteArray("umask ") + QByteArray::number(mask, 8);
        return mode_t(022);
    },
};

// What a really detached child sees.
struct Surroundings {
    bool leadsSession = false;
    bool atRoot = false;
    mode_t mask = 0777;
    bool outputOpen = false;
};

Surroundings look()
{
    std::array<char, 4096> directory{};
    Surroundings seen;
    seen.leadsSession = ::getsid(0) == ::getpid();
    seen.atRoot = ::getcwd(directory.data(), directory.size()) && qstrcmp(directory.data(), "/") == 0;
    seen.mask = ::umask(0);
    struct stat output;
    seen.outputOpen = ::fstat(STDOUT_FILENO, &output) == 0;
    return seen;
}

} // namespace

class TestDaemonize : public QObject
{
    Q_OBJECT

private slots:
    void steps_data();
    void steps();
    void aRealChildIsDetached();
    void closedStandardStreamsAreFilled_data();
    void closedStandardStreamsAreFilled();
};

void TestDaemonize::steps_data()
{
    QTest::addColumn<Script>("answers");
    QTest::addColumn<int>("status"); // -1: the process goes on
    QTest::addColumn<QByteArrayList>("calls");

    QTest::newRow("below process 1 nothing happens") << Script{.parent = 1} << -1 << QByteArrayList{};
    QTest::newRow("the parent leaves with 0") << Script{.child = 99} << 0 << QByteArrayList{"fork"};
    QTest::newRow("a failed fork is status 1") << Script{.child = -1} << 1 << QByteArrayList{"fork"};
    QTest::newRow("a failed setsid is status 1")
        << Script{.session = -1} << 1 << QByteArrayList{"fork", "setsid"};
    QTest::newRow("a failed chdir is status 1")
        << Script{.directory = -1} << 1 << QByteArrayList{"fork", "setsid", "chdir /"};
    QTest::newRow("the child goes on, in order")
        << Script{} << -1 << QByteArrayList{"fork", "setsid", "chdir /", "umask 0"};
}

void TestDaemonize::steps()
{
    QFETCH(const Script, answers);
    QFETCH(const int, status);
    QFETCH(const QByteArrayList, calls);
    script = answers;
    QCOMPARE(daemonize(scripted).value_or(-1), status);
    QCOMPARE(script.calls, calls);
}

void TestDaemonize::aRealChildIsDetached()
{
    std::array<int, 2> ends{};
    QCOMPARE(::pipe(ends.data()), 0);
    const pid_t parent = ::fork();
    QVERIFY(parent >= 0);
    if (parent == 0) { // stands for the process that was told to detach
        ::umask(077);
        if (const auto status = daemonize())
            ::_exit(*status);
        const Surroundings seen = look();
        ::_exit(::write(ends[1], &seen, sizeof seen) == ssize_t(sizeof seen) ? 0 : 1);
    }
    ::close(ends[1]);
    int status = -1;
    QCOMPARE(::waitpid(parent, &status, 0), parent);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
    Surroundings seen;
    QCOMPARE(::read(ends[0], &seen, sizeof seen), ssize_t(sizeof seen)); // ends when the child has ended
    ::close(ends[0]);
    QVERIFY(seen.leadsSession);
    QVERIFY(seen.atRoot);
    QCOMPARE(seen.mask, mode_t(0));
    QVERIFY(seen.outputOpen);
}

void TestDaemonize::closedStandardStreamsAreFilled_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::newRow("all three") << STDIN_FILENO << STDERR_FILENO;
    QTest::newRow("output alone") << STDOUT_FILENO << STDOUT_FILENO;
    QTest::newRow("none") << STDERR_FILENO << STDOUT_FILENO;
}

void TestDaemonize::closedStandardStreamsAreFilled()
{
    QFETCH(const int, from);
    QFETCH(const int, to);
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        for (int stream = from; stream <= to; ++stream)
            ::close(stream);
        const int before = ::open("/", O_RDONLY); // the lowest number that is free
        ::close(before);
        fillStandardStreams();
        const int after = ::open("/", O_RDONLY);
        bool areOpen = true;
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
            areOpen = areOpen && ::fcntl(stream, F_GETFD) >= 0;
        const bool nothingElseWasTaken = before <= STDERR_FILENO || after == before;
        ::_exit(areOpen && after > STDERR_FILENO && nothingElseWasTaken ? 0 : 1);
    }
    int status = -1;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

QTEST_APPLESS_MAIN(TestDaemonize)
#include "tst_daemonize.moc"
