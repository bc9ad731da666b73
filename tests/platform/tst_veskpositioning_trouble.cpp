#include "platform/geoclueclients.h"
#include "platform/veskstage.h"
#include "support/logcapture.h"
#include "support/privatebus.h"

#include <QEventLoop>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

// Network positioning through a GeoClue that is absent, mute, late, unwilling or dying.
class TestVeskPositioningTrouble : public QObject
{
    Q_OBJECT

private slots:
    void noGeoClue();
    void noAgent();
    void anAgentThatComesInTime();
    void aClientThatAnEarlierRequestAskedFor();
    void theBusIsNotFilledWithQuestions();
    void questionsEndWithGeoClue();
    void manyRequestsLeaveNoTrace();
    void deletedBeforeItsClientCame();
    void startIsRefused_data();
    void startIsRefused();
    void switchedOff_data();
    void switchedOff();
    void geoClueLeaves();
    void geoClueLeavesWithoutAnAnswer();
    void geoClueLeavesWithALocation();
    void geoClueHangs();
    void locationsThatCannotBeRead();
    void answersThatComeTooLate();

private:
    static constexpr VeskTimings Hasty{.timeoutUnit = 300ms, .settle = 1h};
    static int hastyRequest(VeskStage &stage) { return stage.request(vesk::Wlan, VeskStage::Allowed, 1); }
    // So many hasty requests, one after the other, that nobody answers.
    static bool askInVain(VeskStage &stage, int requests)
    {
        for (int request = 0; request < requests; ++request) {
            if (hastyRequest(stage) != 0 || !stage.ended(vesk::UnknownLocation))
                return false;
        }
        return true;
    }
    // A request gets as far as GeoClue, which has no agent to ask.
    static bool waitsForAnAgent(VeskStage &stage)
    {
        stage.geoclue.agentVanishes();
        return stage.request() == 0 &&
               QTest::qWaitFor([&stage] { return stage.geoclue.waitingForAgent() == 1; },
                               VeskStage::Deadline);
    }
    // A request that waits for a location learns that GeoClue has left.
    static bool endsWithGeoClue(VeskStage &stage)
    {
        if (stage.request() != 0 || !stage.searching())
            return false;
        stage.sync();
        stage.geoclue.vanish();
        return stage.ended(vesk::UnknownLocation);
    }
};

void TestVeskPositioningTrouble::noGeoClue()
{
    VeskStage stage;
    stage.geoclue.vanish();
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.answers.isEmpty());
    QVERIFY(stage.ended(vesk::UnknownLocation));
    stage.geoclue.appear();
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::noAgent()
{
    VeskStage stage(Hasty);
    stage.geoclue.agentVanishes();
    QVERIFY(askInVain(stage, 1));
    QTRY_COMPARE(stage.geoclue.waitingForAgent(), 1);
    stage.geoclue.takeCalls();

    stage.geoclue.agentAppears();
    QCOMPARE(stage.geoclue.clientCount(), 1);
    QTRY_COMPARE(stage.geoclue.calls(), QStringList(u"DeleteClient /org/freedesktop/GeoClue2/Client/1"_s));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::anAgentThatComesInTime()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    QVERIFY(waitsForAnAgent(stage));
    stage.geoclue.agentAppears();
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::aClientThatAnEarlierRequestAskedFor()
{
    VeskStage stage(Hasty);
    stage.geoclue.agentVanishes();
    stage.geoclue.cache(stage.found(20.0));
    QVERIFY(askInVain(stage, 1));
    QCOMPARE(stage.request(), 0);
    QTRY_COMPARE(stage.geoclue.waitingForAgent(), 2);
    stage.geoclue.agentAppears();
    QVERIFY(stage.ended(vesk::Success));
    stage.sync();
    const QStringList calls = stage.geoclue.takeCalls();
    QCOMPARE(calls.count(u"Start"_s), 1);
    QVERIFY(calls.contains(u"DeleteClient /org/freedesktop/GeoClue2/Client/1"_s));
    QVERIFY(calls.contains(u"DeleteClient /org/freedesktop/GeoClue2/Client/2"_s));
    QVERIFY(stage.isOver());
}

// A system bus allows 128 calls without a reply; beyond, it refuses every other call as well.
void TestVeskPositioningTrouble::theBusIsNotFilledWithQuestions()
{
    VeskStage stage({.timeoutUnit = 40ms, .settle = 1h});
    stage.geoclue.agentVanishes();
    QVERIFY(askInVain(stage, GeoClueClients::MostOpenQuestions + 2));
    stage.sync();
    QCOMPARE(stage.geoclue.waitingForAgent(), GeoClueClients::MostOpenQuestions);

    stage.geoclue.cache(stage.found(20.0));
    QCOMPARE(stage.request(), 0); // served by an earlier question
    stage.geoclue.agentAppears();
    QVERIFY(stage.ended(vesk::Success));
    QTRY_COMPARE(stage.geoclue.clientCount(), 0);
    stage.geoclue.takeCalls();
    QCOMPARE(stage.request(), 0); // and the next by one of its own
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.geoclue.takeCalls().contains(u"CreateClient"_s));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::questionsEndWithGeoClue()
{
    VeskStage stage({.timeoutUnit = 40ms, .settle = 1h});
    stage.geoclue.agentVanishes();
    QVERIFY(askInVain(stage, GeoClueClients::MostOpenQuestions));
    QCOMPARE(stage.request(), 0); // asks no more, but learns that nobody will answer
    stage.geoclue.vanish();
    QVERIFY(stage.ended(vesk::UnknownLocation));

    stage.geoclue.appear();
    stage.geoclue.agentAppears();
    stage.geoclue.cache(stage.found(20.0));
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

// The bus allows 512 match rules and 128 calls without a reply. A rule beyond is not kept, and the one
// that tells of a GeoClue that leaves would be missed.
void TestVeskPositioningTrouble::manyRequestsLeaveNoTrace()
{
    VeskStage stage;
    stage.geoclue.cache(stage.found(20.0));
    QEventLoop loop;
    std::function<void()> askAgain = [&] {
        if (stage.answers.size() == 300 || stage.answers.last().first != vesk::Success) {
            loop.quit();
            return;
        }
        stage.reaction = askAgain;
        QCOMPARE(stage.request(), 0);
    };
    stage.reaction = askAgain;
    QCOMPARE(stage.request(), 0);
    QTimer::singleShot(VeskStage::Deadline, &loop, &QEventLoop::quit);
    loop.exec();
    QCOMPARE(stage.takeAnswers().count({vesk::Success, vesk::CurrentPosition}), 300);
    QVERIFY(stage.isOver());

    stage.geoclue.vanish();
    stage.geoclue.appear();
    stage.geoclue.cache(stage.found(20.0, 3600));
    QVERIFY(endsWithGeoClue(stage));
    stage.geoclue.appear();
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::deletedBeforeItsClientCame()
{
    VeskStage stage;
    QVERIFY(waitsForAnAgent(stage));
    stage.positioning.reset();
    stage.geoclue.agentAppears();
    QTRY_VERIFY(stage.geoclue.calls().contains(u"DeleteClient /org/freedesktop/GeoClue2/Client/1"_s));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::startIsRefused_data()
{
    QTest::addColumn<QString>("errorName");
    QTest::addColumn<int>("error");
    QTest::newRow("by the user") << u"org.freedesktop.DBus.Error.AccessDenied"_s << -2104;
    QTest::newRow("for another reason") << u"org.freedesktop.DBus.Error.Failed"_s << -2105;
}

void TestVeskPositioningTrouble::startIsRefused()
{
    QFETCH(QString, errorName);
    QFETCH(int, error);
    VeskStage stage;
    const LogCapture log;
    stage.geoclue.refuseStart(errorName);
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(error));
    QCOMPARE(log.lines(), QStringList(u"debug: GeoClueRequest: "_s + errorName + u": Access denied"_s));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::switchedOff_data()
{
    QTest::addColumn<bool>("located");
    QTest::newRow("before anything was found") << false;
    QTest::newRow("while better locations are waited for") << true;
}

void TestVeskPositioningTrouble::switchedOff()
{
    QFETCH(bool, located);
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    if (located)
        stage.locate(stage.found(2000.0));
    QVERIFY(stage.answers.isEmpty());
    stage.geoclue.switchOff();
    QVERIFY(stage.ended(vesk::Denied));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::geoClueLeaves()
{
    VeskStage stage;
    QVERIFY(endsWithGeoClue(stage));

    stage.geoclue.appear();
    stage.geoclue.cache(stage.found(20.0));
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::geoClueLeavesWithoutAnAnswer()
{
    VeskStage stage;
    QVERIFY(waitsForAnAgent(stage));
    stage.geoclue.vanish();
    QVERIFY(stage.ended(vesk::UnknownLocation));
    stage.geoclue.appear();
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::geoClueLeavesWithALocation()
{
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    stage.locate(stage.found(2000.0));
    stage.geoclue.vanish();
    QVERIFY(stage.ended(vesk::Success));
    QCOMPARE(stage.position.horizontalAccuracy(), 2000.0F);
    stage.geoclue.appear();
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::geoClueHangs()
{
    VeskStage stage(Hasty);
    stage.geoclue.becomeSilent();
    QVERIFY(askInVain(stage, 1));
    QCOMPARE(stage.geoclue.takeCalls(), QStringList(u"CreateClient"_s));
}

void TestVeskPositioningTrouble::locationsThatCannotBeRead()
{
    VeskStage stage;
    QCOMPARE(stage.request(), 0);
    QVERIFY(stage.searching());
    stage.geoclue.announce(u"/"_s);
    stage.geoclue.announce(u"/org/freedesktop/GeoClue2/Client/1/Location/99"_s);
    stage.sync();
    stage.sync();
    QVERIFY(stage.answers.isEmpty());
    stage.geoclue.locate(stage.found(20.0));
    QVERIFY(stage.ended(vesk::Success));
    QVERIFY(stage.isOver());
}

void TestVeskPositioningTrouble::answersThatComeTooLate()
{
    for (const QString &method : {u"GetAll"_s, u"Start"_s, u"CreateClient"_s}) {
        VeskStage stage(Hasty);
        stage.geoclue.answerLate(method);
        stage.geoclue.cache(stage.found(method == u"GetAll" ? 20.0 : 2000.0));
        if (method == u"Start")
            stage.geoclue.refuseStart(u"org.freedesktop.DBus.Error.AccessDenied"_s);
        QCOMPARE(hastyRequest(stage), 0);
        QVERIFY2(stage.ended(vesk::UnknownLocation), qPrintable(method));
        stage.geoclue.releaseAnswers();
        stage.sync();
        QVERIFY2(stage.isOver(), qPrintable(method));
    }
}

PRIVATE_BUS_TEST_MAIN(TestVeskPositioningTrouble)
#include "tst_veskpositioning_trouble.moc"
