#include "core/positiondaemon.h"
#include "support/childprocess.h"
#include "support/stillclock.h"

#include <QTest>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// As the daemon's own handler does: a fatal line ends the process with 1.
void endAtFatal(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type != QtFatalMsg)
        return;
    std::fputs(qPrintable(text), stderr);
    std::fflush(stderr);
    ::_exit(1);
}

} // namespace

class TestRespawns : public QObject
{
    Q_OBJECT

private slots:
    void anEngineThatIsLostTooOftenEndsTheDaemon_data();
    void anEngineThatIsLostTooOftenEndsTheDaemon();
};

void TestRespawns::anEngineThatIsLostTooOftenEndsTheDaemon_data()
{
    QTest::addColumn<int>("losses");
    QTest::addColumn<int>("secondsBetween");
    QTest::addColumn<bool>("ends");

    QTest::newRow("eight losses while the clock stands still are borne") << 8 << 0 << false;
    QTest::newRow("the ninth ends it") << 9 << 0 << true;
    QTest::newRow("a second between them is enough for ever") << 100 << 1 << false;
}

void TestRespawns::anEngineThatIsLostTooOftenEndsTheDaemon()
{
    QFETCH(int, losses);
    QFETCH(int, secondsBetween);
    QFETCH(bool, ends);
    const ChildOutcome child = runInChild([=] {
        qInstallMessageHandler(endAtFatal);
        StillClock clock;
        PositionDaemon daemon({}, clock);
        for (int loss = 0; loss < losses; ++loss) {
            daemon.onOrvDisconnected();
            clock.time = clock.time.addSecs(secondsBetween);
        }
    });
    constexpr int Returned = 42;
    QCOMPARE(child.status, ends ? 1 : Returned);
    QCOMPARE(child.err,
             ends ? QByteArray("PositionDaemon::onOrvDisconnected Too frequent respawns from ORV - exiting")
                  : QByteArray());
}

QTEST_GUILESS_MAIN(TestRespawns)
#include "tst_respawns.moc"
