#include "client/fakedialogs.h"
#include "core/daemonstage.h"
#include "support/privatebus.h"

#include <QFile>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

const QString Finished = u"debug: PositionDaemon::dialogFinished()"_s;
const QString Popped = u"debug: PositionDaemon::dialogFinished() request queue pop"_s;
const QStringList DialogLines{u"debug: PositionDaemon::dialogFinished()"_s, u"debug: startBrisd()"_s,
                              u"debug: PositionDaemon::userSettingsChanged()"_s, u"critical"_s};

const QString SettingsFile = u"/home/user/.lodestard/private/location_settings"_s;

} // namespace

// What the daemon does with the user's answers.
class TestDaemonDialogs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void init();
    void cleanup();
    void aStartWithoutConsentAsksTheUser();
    void anAnswerIsCarriedOut_data();
    void anAnswerIsCarriedOut();
    void theRequestsAreReplayedInTheirOrder();
    void aRequestIsReplayedWithAllItSaid();
    void aDeclineKeepsWhatWaits();
    void anUnknownClientFailsWhenItIsReplayed();
    void consentBySettingReplaysNothing();
    void aLocationRequestOfTheEngineIsAnswered_data();
    void aLocationRequestOfTheEngineIsAnswered();
    void aWithdrawnLocationRequestIsClosed();

private:
    bool isConsentStored()
    {
        return m_stage->tree.read(SettingsFile).contains("LocationDisclaimerAccepted=true");
    }

    std::unique_ptr<FakeDialogs> m_dialogs;
    std::unique_ptr<DaemonStage> m_stage;
};

void TestDaemonDialogs::init()
{
    m_dialogs = std::make_unique<FakeDialogs>();
    m_stage = std::make_unique<DaemonStage>();
    QVERIFY(QFile::remove(m_stage->tree.at(u"/home/user/.location_ok"_s)));
    m_stage->startReady();
}

void TestDaemonDialogs::cleanup()
{
    m_stage.reset();
    m_dialogs.reset();
    ::signal(SIGCHLD, SIG_DFL); // the test's own buses are children
}

void TestDaemonDialogs::aStartWithoutConsentAsksTheUser()
{
    const int id = addSilent(*m_stage);
    QCOMPARE(m_stage->daemon->configRequest(id, SetMethod | Stop, Satellite, 1000), 0);
    QVERIFY(m_dialogs->isIdle());
    QCOMPARE(m_stage->daemon->configRequest(id, SetMethod | Start, Satellite, 1000), 0);
    QCOMPARE(m_dialogs->next(), u"privacyDialog"_s);
    QCOMPARE(m_stage->requests(), QStringList());
}

void TestDaemonDialogs::anAnswerIsCarriedOut_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("isStored");
    QTest::newRow("-1") << -1 << QStringList(Finished) << false;
    QTest::newRow("0") << 0 << QStringList(Finished) << false;
    QTest::newRow("1") << 1 << QStringList{Finished, u"debug: startBrisd()"_s, Popped} << false;
    QTest::newRow("2") << 2
                       << QStringList{Finished, u"debug: startBrisd()"_s,
                                      u"debug: PositionDaemon::userSettingsChanged():  "
                                      "Disclaimer accepted [ true ]"_s,
                                      Popped}
                       << true;
}

void TestDaemonDialogs::anAnswerIsCarriedOut()
{
    QFETCH(int, answer);
    QFETCH(QStringList, lines);
    QFETCH(bool, isStored);
    const int id = addSilent(*m_stage);
    m_stage->daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    m_stage->log.takeLines();
    m_stage->daemon->privacyDialogFinished(LocationUI::DialogReply(answer));
    QCOMPARE(m_stage->logged(DialogLines), lines);
    QCOMPARE(m_stage->requests(), answer > 0 ? QStringList(u"start %1 1 mode 2"_s.arg(id)) : QStringList());
    QCOMPARE(isConsentStored(), isStored);

    // From now on nobody is asked again, or is, as before.
    m_dialogs->next();
    m_stage->daemon->configRequest(id, SetInterval | Start, 0, 5000);
    QCOMPARE(m_stage->requests(), answer > 0 ? QStringList(u"interval %1 5"_s.arg(id)) : QStringList());
}

void TestDaemonDialogs::theRequestsAreReplayedInTheirOrder()
{
    QList<int> ids;
    for (int count = 0; count < 3; ++count)
        ids << addSilent(*m_stage);
    for (const int index : {2, 0, 1})
        m_stage->daemon->configRequest(ids.at(index), SetMethod | SetInterval | Start, Satellite,
                                       1000 * (index + 1));
    const QDBusMessage question = m_dialogs->nextCall();
    QCOMPARE(m_stage->logged({u"debug: There is already"_s}),
             QStringList(2, u"debug: There is already another dialog open!"_s));
    m_dialogs->answer(question, {true});
    QCOMPARE(m_stage->awaitRequests(3),
             (QStringList{u"start %1 3 mode 2"_s.arg(ids[2]), u"start %1 1 mode 2"_s.arg(ids[0]),
                          u"start %1 2 mode 2"_s.arg(ids[1])}));
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_stage->logged(DialogLines),
             (QStringList{Finished, u"debug: startBrisd()"_s, Popped, Popped, Popped}));
}

void TestDaemonDialogs::aRequestIsReplayedWithAllItSaid()
{
    const int id = addSilent(*m_stage);
    m_stage->daemon->configRequest(id, SetMethod | SetInterval | Start | SatInfoStart, NonSatellite, 7000);
    QCOMPARE(m_stage->logged({u"debug: PositionDaemon::configRequest"_s}), QStringList());
    m_stage->daemon->privacyDialogFinished(LocationUI::Accepted);
    QCOMPARE(m_stage->logged({u"debug: PositionDaemon::configRequest"_s}),
             (QStringList{u"debug: PositionDaemon::configRequest: Set Method:  4294967040"_s,
                          u"debug: PositionDaemon::configRequest: Set interval:  7"_s,
                          u"debug: PositionDaemon::configRequest: Start!"_s,
                          u"debug: PositionDaemon::configRequest: SatInfoStart"_s}));
}

void TestDaemonDialogs::aDeclineKeepsWhatWaits()
{
    const int first = addSilent(*m_stage), second = addSilent(*m_stage);
    m_stage->daemon->configRequest(first, SetMethod | Start, Satellite, 1000);
    m_dialogs->answer(m_dialogs->nextCall(), {false});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_stage->requests(), QStringList());

    m_stage->daemon->configRequest(second, SetMethod | Start, Satellite, 1000);
    m_dialogs->answer(m_dialogs->nextCall(), {true});
    QCOMPARE(m_stage->awaitRequests(2),
             (QStringList{u"start %1 1 mode 2"_s.arg(first), u"start %1 1 mode 2"_s.arg(second)}));
}

void TestDaemonDialogs::anUnknownClientFailsWhenItIsReplayed()
{
    QCOMPARE(m_stage->daemon->configRequest(5999, Start, 0, 0), 0);
    m_dialogs->answer(m_dialogs->nextCall(), {true});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_stage->logged(DialogLines),
             (QStringList{Finished, u"debug: startBrisd()"_s, Popped,
                          u"critical: *** Warning! Config request from client with invalid Id!"_s,
                          u"critical: *** id: 5999  command: 1"_s}));
}

void TestDaemonDialogs::consentBySettingReplaysNothing()
{
    const int id = addSilent(*m_stage);
    m_stage->daemon->configRequest(id, SetMethod | Start, Satellite, 1000);
    const QDBusMessage question = m_dialogs->nextCall();
    QVERIFY(DaemonStage::set(u"LocationDisclaimerAccepted"_s, true));
    QCOMPARE(m_stage->requests(), QStringList());
    QVERIFY(!m_stage->log.takeLines().contains(u"debug: startBrisd()"_s));

    // The dialog is still there, and its answer counts.
    m_dialogs->answer(question, {true});
    QCOMPARE(m_stage->awaitRequests(1), QStringList(u"start %1 1 mode 2"_s.arg(id)));
}

void TestDaemonDialogs::aLocationRequestOfTheEngineIsAnswered_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<QByteArray>("packet");
    QTest::newRow("accepted") << 1 << QByteArray::fromHex("EF0F 0006 01 00");
    QTest::newRow("rejected") << 0 << QByteArray::fromHex("EF0F 0006 00 00");
}

void TestDaemonDialogs::aLocationRequestOfTheEngineIsAnswered()
{
    QFETCH(int, answer);
    QFETCH(QByteArray, packet);
    engineside::ReportWriter request(LocationRequest{1, 9});
    request.addClientName(u"Zoë 😀");
    request.addClientId(u"42");
    request.addDefaultAnswer(true);
    QVERIFY(m_stage->engine->send(request.bytes()));
    const QDBusMessage question = m_dialogs->nextCall();
    QCOMPARE(question.arguments(), (QVariantList{1, true, u"Zoë 😀"_s, u"42"_s}));
    m_dialogs->answer(question, {answer});
    QTRY_COMPARE(m_stage->engine->received(), QList<QByteArray>{packet});
}

void TestDaemonDialogs::aWithdrawnLocationRequestIsClosed()
{
    QVERIFY(m_stage->engine->send(engineside::ReportWriter(LocationRequest{0, 9}).bytes()));
    QCOMPARE(m_dialogs->next(), u"locationRequest 0 false  "_s);
    QVERIFY(m_stage->engine->send(engineside::ReportWriter(LocationRequest{4, 9}).bytes()));
    QCOMPARE(m_dialogs->next(), u"locationRequest 2 false  "_s);
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_stage->requests(), QStringList());
}

PRIVATE_BUS_TEST_MAIN(TestDaemonDialogs)
#include "tst_daemondialogs.moc"
