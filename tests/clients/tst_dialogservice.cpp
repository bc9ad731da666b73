#include "dialogservice.h"
#include "questiondialog.h"
#include "support/leavebus.h"
#include "support/stillclock.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto Name = "com.varn.location.ui"_L1;
constexpr auto Busy = "com.varn.location.ui.Error.Busy"_L1;
constexpr auto Withdrawn = "com.varn.location.ui.Error.Withdrawn"_L1;
constexpr auto Leaving = "com.varn.location.ui.Error.Leaving"_L1;

// An application with a connection of its own.
class Caller
{
public:
    explicit Caller(const QString &name)
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name))
    {
    }
    ~Caller() { leave(); }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    QDBusPendingCall askPrivacy() { return m_bus.asyncCall(privacy()); }
    QDBusPendingCall askLocation(int type, bool defaultAccept = false,
                                 const QString &name = u"Friend Finder"_s)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(Name, u"/com/varn/location/ui"_s, Name, u"locationRequest"_s);
        call << type << defaultAccept << name << u"42"_s;
        return m_bus.asyncCall(call);
    }
    QDBusPendingCall tellExit()
    {
        return m_bus.asyncCall(QDBusMessage::createMethodCall(Name, u"/org/sarnel/m"_s,
                                                              u"com.varn.MApplicationIf"_s, u"exit"_s));
    }
    QString name() const { return m_bus.baseService(); } // on the bus
    void askPrivacyWithoutReply() { m_bus.send(privacy()); }
    void leave() { leaveBus(m_bus); }

private:
    static QDBusMessage privacy()
    {
        return QDBusMessage::createMethodCall(Name, u"/com/varn/location/ui"_s, Name, u"privacyDialog"_s);
    }

    QDBusConnection m_bus;
};

} // namespace

// The service with its real dialogs, on a private bus and a screen that nobody sees.
class TestDialogService : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"^(?!This plugin does not support)"_s));
        m_clock.elapsed = 10s;
        m_service = std::make_unique<DialogService>(QDBusConnection::sessionBus(), m_clock);
        QVERIFY(m_service->start());
        m_caller = std::make_unique<Caller>(u"caller"_s);
        m_other = std::make_unique<Caller>(u"other"_s);
    }
    void cleanup()
    {
        m_other.reset();
        m_caller.reset();
        m_service.reset();
        QDBusConnection::sessionBus().unregisterService(Name);
    }

    void thePrivacyDialogAnswersWithABoolean()
    {
        for (const bool accept : {true, false}) {
            QDBusPendingReply<bool> reply = m_caller->askPrivacy();
            answer(accept);
            QTRY_VERIFY(reply.isFinished());
            QVERIFY2(reply.isValid(), qPrintable(reply.error().message()));
            QCOMPARE(reply.value(), accept);
        }
    }

    void aClosedPrivacyDialogAnswersFalse()
    {
        QDBusPendingReply<bool> reply = m_caller->askPrivacy();
        QVERIFY(isShown());
        m_service->dialog()->close();
        QTRY_VERIFY(reply.isFinished());
        QVERIFY(reply.isValid() && !reply.value());
    }

    void aLocationRequestAnswersWithANumber_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("accept");
        QTest::newRow("type 0, accepted") << 0 << true;
        QTest::newRow("type 0, refused") << 0 << false;
        QTest::newRow("type 1, accepted") << 1 << true;
        QTest::newRow("type 1, refused") << 1 << false;
    }
    void aLocationRequestAnswersWithANumber()
    {
        QFETCH(int, type);
        QFETCH(bool, accept);
        QDBusPendingReply<int> reply = m_caller->askLocation(type);
        answer(accept);
        QTRY_VERIFY(reply.isFinished());
        QVERIFY2(reply.isValid(), qPrintable(reply.error().message()));
        QCOMPARE(reply.value(), int(accept));
    }

    void withoutAnAnswerTheDefaultIsReplied()
    {
        for (const bool defaultAccept : {true, false}) {
            QDBusPendingReply<int> reply = m_caller->askLocation(1, defaultAccept);
            QVERIFY(isShown());
            m_clock.elapsed += Questions::LocationRequestLimit;
            m_service->dialog()->tick();
            QTRY_VERIFY(reply.isFinished());
            QVERIFY(reply.isValid());
            QCOMPARE(reply.value(), int(defaultAccept));
        }
    }

    void aWithdrawnRequestIsAnsweredWithAnError()
    {
        QDBusPendingReply<int> request = m_caller->askLocation(1, true);
        QVERIFY(isShown());
        QDBusPendingReply<int> withdrawal = m_caller->askLocation(2, true);
        QTRY_VERIFY(request.isFinished() && withdrawal.isFinished());
        QCOMPARE(request.error().name(), Withdrawn);
        QVERIFY(withdrawal.isValid());
        QCOMPARE(withdrawal.value(), 0);
        QVERIFY(!m_service->dialog());
        QVERIFY(QApplication::topLevelWidgets().isEmpty() || !anythingVisible());

        QDBusPendingReply<int> next = m_caller->askLocation(1);
        answer(true);
        QTRY_VERIFY(next.isFinished());
        QCOMPARE(next.value(), 1);
    }

    void aWithdrawalOfNothingChangesNothing()
    {
        QDBusPendingReply<int> withdrawal = m_caller->askLocation(2);
        QTRY_VERIFY(withdrawal.isFinished());
        QVERIFY(withdrawal.isValid());
        QCOMPARE(withdrawal.value(), 0);

        QDBusPendingReply<bool> privacy = m_caller->askPrivacy();
        QVERIFY(isShown());
        withdrawal = m_caller->askLocation(2);
        QTRY_VERIFY(withdrawal.isFinished());
        QVERIFY(!privacy.isFinished());
        answer(true);
        QTRY_VERIFY(privacy.isFinished());
        QVERIFY(privacy.value());
    }

    void anUnknownTypeIsAnError()
    {
        QDBusPendingReply<int> reply = m_caller->askLocation(3);
        QTRY_VERIFY(reply.isFinished());
        QCOMPARE(reply.error().type(), QDBusError::InvalidArgs);
        QVERIFY(!m_service->dialog());
    }

    void aSecondDialogIsRefused_data()
    {
        QTest::addColumn<bool>("privacyFirst");
        QTest::addColumn<bool>("privacySecond");
        QTest::newRow("a request beside the privacy dialog") << true << false;
        QTest::newRow("the privacy dialog beside a request") << false << true;
        QTest::newRow("two privacy dialogs") << true << true;
        QTest::newRow("two requests") << false << false;
    }
    void aSecondDialogIsRefused()
    {
        QFETCH(bool, privacyFirst);
        QFETCH(bool, privacySecond);
        const QDBusPendingCall first = privacyFirst ? m_caller->askPrivacy() : m_caller->askLocation(1);
        QVERIFY(isShown());
        const QPointer<QuestionDialog> dialog = m_service->dialog();
        const QDBusPendingCall second = privacySecond ? m_other->askPrivacy() : m_other->askLocation(0);
        QTRY_VERIFY(second.isFinished());
        QCOMPARE(second.error().name(), Busy);
        QVERIFY(!first.isFinished());
        QCOMPARE(m_service->dialog(), dialog);
        answer(true);
        QTRY_VERIFY(first.isFinished());
        QVERIFY(!first.isError());
    }

    void aCallerThatLeavesTakesItsDialogAlong()
    {
        m_caller->askPrivacy();
        QVERIFY(isShown());
        m_other->leave(); // somebody else
        m_caller->leave();
        QTRY_VERIFY(!m_service->dialog());
        QVERIFY(!anythingVisible());
    }

    void aCallerThatIsGoneAlreadyLeavesNoDialogBehind()
    {
        m_caller->askPrivacy();
        m_caller->leave(); // before the service hears of the call
        QTRY_VERIFY(isRoom());
        QTRY_VERIFY(!m_service->dialog());
    }

    void anotherCallerThatLeavesChangesNothing()
    {
        QDBusPendingReply<bool> reply = m_caller->askPrivacy();
        QVERIFY(isShown());
        QDBusServiceWatcher watcher(m_other->name(), QDBusConnection::sessionBus());
        QSignalSpy departures(&watcher, &QDBusServiceWatcher::serviceUnregistered);
        m_other->leave();
        QTRY_VERIFY(!departures.isEmpty());
        answer(true);
        QTRY_VERIFY(reply.isFinished());
        QVERIFY(reply.value());
    }

    void aQuestionThatNobodyHearsTheAnswerOfIsNotAsked()
    {
        m_caller->askPrivacyWithoutReply();
        const QDBusPendingCall behind = m_caller->askLocation(2);
        QTRY_VERIFY(behind.isFinished());
        QVERIFY(!m_service->dialog());
    }

    void exitAnswersEverybodyAndGivesTheNameAway()
    {
        QSignalSpy left(m_service.get(), &DialogService::left);
        const QDBusPendingCall open = m_caller->askPrivacy();
        QVERIFY(isShown());
        const QDBusPendingCall exit = m_other->tellExit();
        QTRY_VERIFY(exit.isFinished() && open.isFinished());
        QVERIFY2(!exit.isError(), qPrintable(exit.error().message()));
        QCOMPARE(open.error().name(), Leaving);
        QVERIFY(!m_service->dialog());
        QCOMPARE(left.size(), 1);
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(Name).value());
    }

    void whoAsksWhileItLeavesGetsAnError()
    {
        // Both are on their way before the service has read either.
        const QDBusPendingCall exit = m_caller->tellExit();
        const QDBusPendingCall late = m_caller->askPrivacy();
        QTRY_VERIFY(exit.isFinished() && late.isFinished());
        QVERIFY(!exit.isError());
        QCOMPARE(late.error().name(), Leaving);
        QVERIFY(!m_service->dialog());
    }

    void aSecondServiceFindsTheNameTaken()
    {
        const auto elsewhere = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"elsewhere"_s);
        {
            DialogService second(elsewhere, m_clock);
            QVERIFY(!second.start());
        }
        leaveBus(u"elsewhere"_s);
    }

private:
    bool isShown() const
    {
        return QTest::qWaitFor([this] { return m_service->dialog() && m_service->dialog()->isVisible(); });
    }
    // Whether the service takes a new question at once.
    bool isRoom()
    {
        const QDBusPendingCall probe = m_other->askLocation(1);
        if (!QTest::qWaitFor([&] { return probe.isFinished() || isShownFor(*m_other); }) ||
            probe.isFinished())
            return false;
        answer(true);
        return true;
    }
    bool isShownFor(const Caller &caller) const
    {
        return m_service->dialog() && m_service->caller() == caller.name();
    }
    static bool anythingVisible()
    {
        for (const QWidget *widget : QApplication::topLevelWidgets())
            if (widget->isVisible())
                return true;
        return false;
    }
    void answer(bool accept)
    {
        QVERIFY(isShown());
        m_clock.elapsed += QuestionDialog::UnreadTime;
        QuestionDialog *dialog = m_service->dialog();
        QTest::mouseClick(accept ? dialog->acceptButton() : dialog->declineButton(), Qt::LeftButton);
        QVERIFY(!m_service->dialog());
    }

    StillClock m_clock;
    std::unique_ptr<DialogService> m_service;
    std::unique_ptr<Caller> m_caller;
    std::unique_ptr<Caller> m_other;
};

QTEST_MAIN(TestDialogService)
#include "tst_dialogservice.moc"
