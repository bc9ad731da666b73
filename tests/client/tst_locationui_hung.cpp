#include "client/fakedialogs.h"
#include "client/locationui.h"
#include "support/logcapture.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

// A dialog service that leaves the daemon waiting. Runs on a clock that is much too fast, so that
// the time-outs pass in a moment; the seconds here are that clock's.
class TestHungDialogs : public QObject
{
    Q_OBJECT
private slots:
    void aQuestionIsGivenUpAfter320Seconds()
    {
        FakeDialogs dialogs;
        LocationUI ui;
        const QSignalSpy answered(&ui, &LocationUI::privacyDialogResult);
        LogCapture log;
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(ui.privacyDialog());
        QTRY_VERIFY_WITH_TIMEOUT(log.lines().size() >= 2, 2000000);
        QVERIFY2(elapsed.elapsed() >= 319000, QByteArray::number(elapsed.elapsed()).constData());
        const QStringList lines = log.takeLines();
        QCOMPARE(lines.first(), u"warning: LocationUI::dialogDone() : Dbus Error:"_s);
        QVERIFY(lines.last().startsWith(u"warning: Did not receive a reply."));
        QCOMPARE(lines.size(), 2);

        // An answer that comes too late is none, and nobody was told to exit.
        const QDBusMessage question = dialogs.nextCall();
        dialogs.answer(question, {true});
        QVERIFY(!ui.privacyDialog());
        QVERIFY(dialogs.isIdle());
        QCOMPARE(log.takeLines(), QStringList(u"debug: There is already another dialog open!"_s));
        QCOMPARE(answered.count(), 0);
    }

    void anExitThatIsNotAnsweredIsWaitedForAsLongAsTheBusLibraryDoes()
    {
        FakeDialogs dialogs;
        dialogs.setExit(FakeDialogs::Exit::Ignored);
        LocationUI ui;
        QElapsedTimer elapsed;
        // Connected first, so it runs before the waiting begins.
        connect(&ui, &LocationUI::privacyDialogResult, this, [&] { elapsed.start(); });
        const QSignalSpy answered(&ui, &LocationUI::privacyDialogResult);
        QVERIFY(ui.privacyDialog());
        dialogs.answer(dialogs.nextCall(), {true});
        QTRY_COMPARE_WITH_TIMEOUT(answered.count(), 1, 2000000);
        QVERIFY2(elapsed.elapsed() >= 24000, QByteArray::number(elapsed.elapsed()).constData());
        QCOMPARE(dialogs.next(), u"exit"_s);
        QVERIFY(ui.privacyDialog()); // that the exit failed does not matter
        QCOMPARE(dialogs.next(), u"privacyDialog"_s);
    }
};

QTEST_GUILESS_MAIN(TestHungDialogs)
#include "tst_locationui_hung.moc"
