#include "platform/deadlineworker.h"

#include <QSemaphore>
#include <QTest>

#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr auto Short = 20ms; // over before a job that waits for the test
constexpr auto Long = 60s;   // never over

} // namespace

class TestDeadlineWorker : public QObject
{
    Q_OBJECT

private slots:
    void aJobIsWaitedFor();
    void jobsRunBesideTheCaller();
    void aJobThatHangsIsLeftBehind();
    void nobodyWaitsBehindAJobThatHangs();
    void theLatestOfAName();
    void whatHasNotBegunIsDropped();
    void whatAJobHoldsGoesWithIt();
};

void TestDeadlineWorker::aJobIsWaitedFor()
{
    DeadlineWorker worker(Long);
    for (int i = 0; i < 100; ++i) {
        bool done = false;
        QVERIFY(worker.run("job", [&done] { done = true; }));
        QVERIFY(done);
        QVERIFY(!worker.isBusy());
    }
}

void TestDeadlineWorker::jobsRunBesideTheCaller()
{
    DeadlineWorker worker(Long);
    std::thread::id id;
    QVERIFY(worker.run("job", [&id] { id = std::this_thread::get_id(); }));
    QVERIFY(id != std::thread::id());
    QVERIFY(id != std::this_thread::get_id());
}

void TestDeadlineWorker::aJobThatHangsIsLeftBehind()
{
    DeadlineWorker worker(Short);
    QSemaphore go, gone;
    QVERIFY(!worker.run("hangs", [&] {
        go.acquire();
        gone.release();
    }));
    QVERIFY(worker.isBusy());
    go.release();
    gone.acquire();
    QTRY_VERIFY(!worker.isBusy());
    QVERIFY(DeadlineWorker(Long).run("next", [] {}));
}

void TestDeadlineWorker::nobodyWaitsBehindAJobThatHangs()
{
    DeadlineWorker worker(1s);
    QSemaphore go;
    QVERIFY(!worker.run("hangs", [&go] { go.acquire(); }));
    QElapsedTimer timer;
    timer.start();
    QStringList done; // by one thread, one after the other
    for (const char *name : {"a", "b", "c", "d", "e", "f", "g", "h"})
        QVERIFY(!worker.run(name, [&done, name] { done << QLatin1StringView(name); }));
    QVERIFY2(timer.elapsed() < 4000, "the jobs waited one by one");
    go.release();
    QTRY_VERIFY(!worker.isBusy());
    QCOMPARE(done.size(), 8);
}

void TestDeadlineWorker::theLatestOfAName()
{
    DeadlineWorker worker(Short);
    QSemaphore begun, go;
    QStringList done;
    QVERIFY(!worker.run("key", [&] {
        begun.release();
        go.acquire();
        done << QStringLiteral("first");
    }));
    begun.acquire(); // its thread may be slow to start
    for (const char *value : {"second", "third"})
        QVERIFY(!worker.run("key", [&done, value] { done << QLatin1StringView(value); }));
    go.release();
    QTRY_VERIFY(!worker.isBusy());
    QCOMPARE(done, (QStringList{QStringLiteral("first"), QStringLiteral("third")}));
}

void TestDeadlineWorker::whatHasNotBegunIsDropped()
{
    QSemaphore begun, go;
    auto job = std::make_shared<bool>(false);
    const std::weak_ptr<bool> held = job;
    QSemaphore ended;
    {
        DeadlineWorker worker(Short);
        QVERIFY(!worker.run("hangs", [&] {
            begun.release();
            go.acquire();
            ended.release();
        }));
        begun.acquire();
        QVERIFY(!worker.run("late", [job] { *job = true; }));
    }
    QVERIFY2(!*job, "it ran");
    job.reset();
    QVERIFY2(held.expired(), "it is still waiting");
    go.release();
    ended.acquire();
}

void TestDeadlineWorker::whatAJobHoldsGoesWithIt()
{
    DeadlineWorker worker(Long);
    auto value = std::make_shared<int>(1);
    const std::weak_ptr<int> held = value;
    QVERIFY(worker.run("job", [value = std::move(value)] { *value = 2; }));
    QVERIFY(held.expired());
}

QTEST_APPLESS_MAIN(TestDeadlineWorker)
#include "tst_deadlineworker.moc"
