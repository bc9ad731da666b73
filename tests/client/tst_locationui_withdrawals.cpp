#include "client/locationuitest.h"

using namespace Qt::StringLiterals;

// Location requests that are withdrawn while their dialog is open, or are not.
class TestWithdrawals : public LocationUITest
{
    Q_OBJECT
private slots:
    void aWithdrawnRequestIsClosed_data();
    void aWithdrawnRequestIsClosed();
    void aWithdrawalOfAnotherRequestIsLogged();
    void aWithdrawalWithoutARequestIsLogged();
    void aWithdrawalAfterTheAnswerIsLogged();
    void aWithdrawalDoesNotCloseThePrivacyDialog();
    void aWithdrawalEndsARequestThatFailed();
    void theAnswerToAWithdrawnRequestIsDropped();
    void theAnswerToAWithdrawnRequestDoesNotCloseTheNext();
    void aRequestThatWasRefusedIsNotRemembered();
};

void TestWithdrawals::aWithdrawnRequestIsClosed_data()
{
    QTest::addColumn<int>("transaction");
    QTest::addColumn<bool>("defaultAccept");
    QTest::newRow("accepted by default") << 9 << true;
    QTest::newRow("refused by default, transaction 0") << 0 << false;
    QTest::newRow("the last transaction id") << 255 << false;
}

void TestWithdrawals::aWithdrawnRequestIsClosed()
{
    QFETCH(int, transaction);
    QFETCH(bool, defaultAccept);
    m_ui->showLocationRequest(quint8(transaction), 1, defaultAccept, u"Alice"_s, u"42"_s);
    m_dialogs->nextCall();
    m_ui->closeLocationRequest(quint8(transaction));
    const QDBusMessage withdrawal = m_dialogs->nextCall();
    QCOMPARE(withdrawal.member(), u"locationRequest"_s);
    QCOMPARE(withdrawal.path(), u"/com/varn/location/ui"_s);
    QCOMPARE(withdrawal.arguments(), (QVariantList{2, defaultAccept, u"Alice"_s, QString()}));
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(lines(), QStringList());
    QCOMPARE(m_request->count(), 0);

    QVERIFY(m_ui->privacyDialog());
    QCOMPARE(m_dialogs->next(), u"privacyDialog"_s);
}

void TestWithdrawals::aWithdrawalOfAnotherRequestIsLogged()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    const QDBusMessage question = m_dialogs->nextCall();
    m_ui->closeLocationRequest(200);
    QCOMPARE(lines(), QStringList(u"debug: Could not close dialog with transaction id: 200"_s));
    QVERIFY(m_dialogs->isIdle());
    m_dialogs->answer(question, {1});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_request->count(), 1);
}

void TestWithdrawals::aWithdrawalWithoutARequestIsLogged()
{
    m_ui->closeLocationRequest(0);
    QCOMPARE(lines(), QStringList(u"debug: Could not close dialog with transaction id: 0"_s));
    QVERIFY(m_dialogs->isIdle());
}

void TestWithdrawals::aWithdrawalAfterTheAnswerIsLogged()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    m_dialogs->answer(m_dialogs->nextCall(), {1});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    m_ui->closeLocationRequest(9);
    QCOMPARE(lines(), QStringList(u"debug: Could not close dialog with transaction id: 9"_s));
    QVERIFY(m_dialogs->isIdle());
}

void TestWithdrawals::aWithdrawalDoesNotCloseThePrivacyDialog()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    m_dialogs->answer(m_dialogs->nextCall(), {1});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    m_ui->privacyDialog();
    const QDBusMessage question = m_dialogs->nextCall();
    for (const quint8 transaction : {quint8(9), quint8(0)})
        m_ui->closeLocationRequest(transaction);
    QCOMPARE(lines(), (QStringList{u"debug: Could not close dialog with transaction id: 9"_s,
                                   u"debug: Could not close dialog with transaction id: 0"_s}));
    QVERIFY(m_dialogs->isIdle());
    m_dialogs->answer(question, {true});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_privacy->count(), 1);
}

void TestWithdrawals::aWithdrawalEndsARequestThatFailed()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    m_dialogs->fail(m_dialogs->nextCall(), u"no display"_s);
    QTRY_COMPARE(m_log->lines().size(), 2);
    m_ui->closeLocationRequest(9);
    QCOMPARE(m_dialogs->next(), u"locationRequest 2 true Alice "_s);
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QVERIFY(m_ui->privacyDialog());
}

void TestWithdrawals::theAnswerToAWithdrawnRequestIsDropped()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    const QDBusMessage question = m_dialogs->nextCall();
    m_ui->closeLocationRequest(9);
    m_dialogs->answer(question, {1});
    const QStringList dropped{
        u"debug: LocationUI::locationRequestDone: answer to a withdrawn request dropped"_s};
    QTRY_COMPARE(m_log->lines(), dropped);
    QCOMPARE(m_request->count(), 0);
    QCOMPARE(m_dialogs->next(), u"locationRequest 2 true Alice "_s);
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QVERIFY(m_dialogs->isIdle());
}

void TestWithdrawals::theAnswerToAWithdrawnRequestDoesNotCloseTheNext()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    const QDBusMessage first = m_dialogs->nextCall();
    m_ui->closeLocationRequest(9);
    m_dialogs->nextCall();
    m_dialogs->nextCall();
    m_ui->showLocationRequest(10, 1, true, u"Bob"_s, {});
    const QDBusMessage second = m_dialogs->nextCall();
    m_dialogs->answer(first, {1});
    m_dialogs->answer(second, {0});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QVERIFY(m_dialogs->isIdle());
    QCOMPARE(m_request->count(), 1);
    QCOMPARE(m_request->takeFirst(), QVariantList{false});
}

void TestWithdrawals::aRequestThatWasRefusedIsNotRemembered()
{
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    m_dialogs->nextCall();
    m_ui->showLocationRequest(10, 1, false, u"Bob"_s, {});
    m_ui->closeLocationRequest(10);
    QCOMPARE(lines(), (QStringList{AlreadyOpen, u"debug: Could not close dialog with transaction id: 10"_s}));
    m_ui->closeLocationRequest(9);
    QCOMPARE(m_dialogs->next(), u"locationRequest 2 true Alice "_s);
    QCOMPARE(m_dialogs->next(), u"exit"_s);
}

QTEST_GUILESS_MAIN(TestWithdrawals)
#include "tst_locationui_withdrawals.moc"
