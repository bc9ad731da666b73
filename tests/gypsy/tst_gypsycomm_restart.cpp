#include "gypsy/gypsystage.h"
#include "support/privatebus.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString &Address = GypsyStage::Address;
const QString &Path = GypsyStage::Path;
const QString RestartLine = u"debug: GypsyComm::restartGypsy"_s;

// By default longer than the receiver's time to come back.
void letItPass(std::chrono::seconds time = 16s)
{
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QSignalSpy passed(&timer, &QTimer::timeout);
    timer.start(time);
    QVERIFY(passed.wait(600000));
}

} // namespace

// Connections that are lost, and answers that do not come. Runs on a clock that is much too fast;
// the seconds here are that clock's.
class TestGypsyRestart : public QObject
{
    Q_OBJECT

private slots:
    void aReceiverStartsDisconnected();
    void theReceiverIsStartedAgainAfter15Seconds();
    void onlyOneRestartFollowsALoss();
    void aLossThatIsToldTwiceIsNotPutOff();
    void aRestartThatFails();
    void aNewLossGetsItsOwn15Seconds();
    void aLossThatWasMadeGoodStartsNothing();
    void nothingIsRestartedOnceConnected();
    void nothingIsRestartedWithoutSessions();
    void nothingIsRestartedAfterTheLastStop();
    void aRestartedReceiverIsWatchedOnce();
    void aGypsyThatDoesNotAnswer();

private:
    static void lose(GypsyStage &stage)
    {
        stage.gypsy->connectionStatus(Path, false);
        stage.settle();
        QCOMPARE(stage.takeEvents().last(), u"connection 1"_s);
        stage.log.takeLines();
    }
    static void regain(GypsyStage &stage)
    {
        stage.gypsy->connectionStatus(Path, true);
        stage.settle();
        stage.forget();
    }
};

void TestGypsyRestart::aReceiverStartsDisconnected()
{
    GypsyStage stage;
    stage.comm.restartGypsy(); // nobody wants it
    QCOMPARE(stage.takeCalls(), QStringList());
    stage.start();
    stage.comm.restartGypsy();                                    // Gypsy has not reported a connection
    QCOMPARE(stage.takeCalls(), QStringList{u"Start "_s + Path}); // without a Create
    QCOMPARE(stage.takeLines(), QStringList({RestartLine, u"debug: GypsyComm::startGypsy"_s}));
}

void TestGypsyRestart::theReceiverIsStartedAgainAfter15Seconds()
{
    GypsyStage stage;
    stage.start();
    QElapsedTimer elapsed;
    elapsed.start();
    lose(stage);
    QCOMPARE(stage.takeCalls(), QStringList());
    QStringList calls;
    QTRY_VERIFY_WITH_TIMEOUT(!(calls += stage.takeCalls()).isEmpty(), 600000);
    QCOMPARE(calls, QStringList{u"Start "_s + Path});
    QVERIFY2(elapsed.elapsed() >= 15000, QByteArray::number(elapsed.elapsed()).constData());
    QCOMPARE(stage.takeLines(), QStringList({RestartLine, u"debug: GypsyComm::startGypsy"_s}));
    stage.gypsy->connectionStatus(Path, true);
    stage.gypsy->position(Path, 3, 0, 1, 2, 0);
    stage.settle();
    QCOMPARE(stage.takeEvents(), QStringList({u"fix 0"_s, u"connection 0"_s, u"position 6000"_s}));
}

void TestGypsyRestart::onlyOneRestartFollowsALoss()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    lose(stage); // once more without having been there
    letItPass();
    letItPass();
    QCOMPARE(stage.takeCalls(), QStringList{u"Start "_s + Path});
}

void TestGypsyRestart::aLossThatIsToldTwiceIsNotPutOff()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    letItPass(8s);
    lose(stage);
    letItPass(14s);
    QCOMPARE(stage.takeCalls().value(0), u"Start "_s + Path);
}

void TestGypsyRestart::aRestartThatFails()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    stage.gypsy->refuse(u"Start"_s, u"Out of reach"_s);
    letItPass();
    letItPass();
    QCOMPARE(stage.takeCalls(), QStringList{u"Start "_s + Path}); // no Shutdown, and no further try
    QCOMPARE(stage.takeLines(),
             QStringList({RestartLine, u"debug: GypsyComm::startGypsy"_s,
                          u"warning: Gypsy session starting failed:  \"Out of reach\""_s}));
    QVERIFY(stage.comm.sessionValue(6000).has_value());
}

void TestGypsyRestart::aNewLossGetsItsOwn15Seconds()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    regain(stage);
    letItPass(8s);
    QElapsedTimer elapsed;
    elapsed.start();
    lose(stage);
    QStringList calls;
    QTRY_VERIFY_WITH_TIMEOUT(!(calls += stage.takeCalls()).isEmpty(), 600000);
    QCOMPARE(calls, QStringList{u"Start "_s + Path});
    QVERIFY2(elapsed.elapsed() >= 15000, QByteArray::number(elapsed.elapsed()).constData());
}

void TestGypsyRestart::aLossThatWasMadeGoodStartsNothing()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    regain(stage);
    letItPass();
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyRestart::nothingIsRestartedOnceConnected()
{
    GypsyStage stage;
    stage.start();
    regain(stage);
    stage.comm.restartGypsy();
    QCOMPARE(stage.takeCalls(), QStringList());
    QCOMPARE(stage.takeLines(), QStringList{RestartLine});
}

void TestGypsyRestart::nothingIsRestartedWithoutSessions()
{
    GypsyStage stage;
    lose(stage);
    letItPass();
    QCOMPARE(stage.takeLines(), QStringList());
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyRestart::nothingIsRestartedAfterTheLastStop()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    QVERIFY(stage.comm.stopSession(6000));
    stage.forget();
    letItPass();
    QCOMPARE(stage.takeCalls(), QStringList());
}

void TestGypsyRestart::aRestartedReceiverIsWatchedOnce()
{
    GypsyStage stage;
    stage.start();
    lose(stage);
    letItPass();
    stage.forget();
    stage.bluez->remove(Address);
    stage.settle();
    QCOMPARE(stage.takeCalls(), QStringList{u"Shutdown "_s + Path});
    QCOMPARE(stage.takeLines().filter(u"has been removed"_s).size(), 1);
}

void TestGypsyRestart::aGypsyThatDoesNotAnswer()
{
    GypsyStage stage;
    stage.gypsy->ignore(u"Create"_s);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(!stage.comm.startSession(6000, 1, Address));
    QVERIFY2(elapsed.elapsed() >= 24000, QByteArray::number(elapsed.elapsed()).constData());
    const QStringList lines = stage.takeLines();
    QVERIFY(
        lines.last().startsWith(u"warning: Gypsy session creation failed:  \"Did not receive a reply."_s));
}

PRIVATE_BUS_TEST_MAIN(TestGypsyRestart)
#include "tst_gypsycomm_restart.moc"
