#include "core/singleinstance.h"
#include "support/privatebus.h"

#include <QDBusConnection>
#include <QTest>

using namespace Qt::StringLiterals;

class TestSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }
    void withoutABusNothingRuns();
    void aFreeNameMeansThatNothingRuns();
    void anotherOwnerIsToldByItsProcessId();
};

void TestSingleInstance::withoutABusNothingRuns()
{
    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection(u"no such connection"_s)), 0);
}

void TestSingleInstance::aFreeNameMeansThatNothingRuns()
{
    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection::sessionBus()), 0);
}

void TestSingleInstance::anotherOwnerIsToldByItsProcessId()
{
    const QString name = u"another daemon"_s;
    auto other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    QVERIFY(other.registerService(u"com.varn.lodestard.client"_s));

    QTest::ignoreMessage(QtDebugMsg, "Checking if already running.");
    QTest::ignoreMessage(QtCriticalMsg, "lodestard is already running.");
    QCOMPARE(checkAlreadyRunning(QDBusConnection::sessionBus()), int(QCoreApplication::applicationPid()));

    QVERIFY(other.unregisterService(u"com.varn.lodestard.client"_s));
    QDBusConnection::disconnectFromBus(name);
}

PRIVATE_BUS_TEST_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
