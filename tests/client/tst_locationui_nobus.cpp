#include "client/locationui.h"
#include "support/logcapture.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

// A process whose session bus is not there.
class TestDialogsWithoutBus : public QObject
{
    Q_OBJECT
private slots:
    void theConstructionReportsItAndNobodyIsAsked()
    {
        QVERIFY(!QDBusConnection::sessionBus().isConnected());
        LogCapture log;
        LocationUI ui;
        QCOMPARE(log.takeLines(), QStringList(u"critical: Cannot connect to the D-Bus session bus."_s));

        const QSignalSpy answered(&ui, &LocationUI::privacyDialogResult);
        QVERIFY(ui.privacyDialog());
        ui.showLocationRequest(1, 0, true, u"Alice"_s, u"42"_s);
        QCOMPARE(log.takeLines(), QStringList(u"debug: There is already another dialog open!"_s));
        QCoreApplication::processEvents();
        QCOMPARE(answered.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDialogsWithoutBus)
#include "tst_locationui_nobus.moc"
