#include "client/clientdbusserver.h"
#include "client/clientdbusserverif.h"
#include "client/fixstream.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QMetaClassInfo>
#include <QMetaMethod>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString Service = u"com.varn.lodestard.client"_s;
const QString Path = u"/com/varn/lodestard/client"_s;

// Stands for the daemon: notes what it is asked and answers as it was told to.
class FakeHandler : public ClientDBusServerIF
{
public:
    int registerListener(const QString &service, const QString &path) override
    {
        asked.append(u"registerListener %1 %2"_s.arg(service, path));
        return 6000;
    }
    int configRequest(int id, int command, int method, int interval) override
    {
        asked.append(u"configRequest %1 %2 %3 %4"_s.arg(id).arg(command).arg(method).arg(interval));
        return configResult;
    }
    QGeoPositionInfo latestPosition(bool satelliteOnly) override
    {
        asked.append(u"latestPosition %1"_s.arg(satelliteOnly));
        return latest;
    }
    quint32 supportedMethods() override
    {
        asked.append(u"supportedMethods"_s);
        return 0xffffff00;
    }
    quint32 minimumInterval() override
    {
        asked.append(u"minimumInterval"_s);
        return 1000;
    }
    void prestartPositioning(bool satellite, bool nonSatellite) override
    {
        asked.append(u"prestartPositioning %1 %2"_s.arg(satellite).arg(nonSatellite));
    }

    QStringList asked;
    int configResult = 0;
    QGeoPositionInfo latest;
};

} // namespace

class TestClientDBusServer : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_handler = std::make_unique<FakeHandler>();
        m_host = std::make_unique<QObject>();
        new ClientDBusServer(m_host.get(), m_handler.get());
        auto bus = QDBusConnection::sessionBus();
        QVERIFY(bus.registerObject(Path, m_host.get(), QDBusConnection::ExportAdaptors));
        QVERIFY(bus.registerService(Service));
    }
    void cleanup()
    {
        QDBusConnection::sessionBus().unregisterService(Service);
        QDBusConnection::sessionBus().unregisterObject(Path);
    }

    void theSlotsAreTheInterface()
    {
        const QMetaObject &meta = ClientDBusServer::staticMetaObject;
        QCOMPARE(meta.className(), "ClientDBusServer");
        QCOMPARE(meta.classInfo(meta.indexOfClassInfo("D-Bus Interface")).value(),
                 "com.varn.lodestard.client");
        QStringList signatures;
        QStringList names;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
            names.append(QString::fromLatin1(meta.method(i).parameterNames().join(',')));
        }
        QCOMPARE(signatures, (QStringList{u"registerListener(QString,QString,int&,quint32&,quint32&)"_s,
                                          u"configSession(int,int,int,int)"_s, u"latestPosition(bool)"_s,
                                          u"prestartPositioning(bool,bool)"_s}));
        QCOMPARE(names,
                 (QStringList{u"service,path,id,methods,minInterval"_s, u"id,command,method,interval"_s,
                              u"satelliteOnly"_s, u"satellite,nonSatellite"_s}));
    }

    void registeringRepliesWithThreeValues()
    {
        const QDBusMessage reply = call(u"registerListener"_s, {u"com.varn.maps"_s, u"/maps"_s});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QCOMPARE(reply.signature(), u"iuu"_s);
        QCOMPARE(reply.arguments(), (QVariantList{6000, 0xffffff00U, 1000U}));
        QCOMPARE(m_handler->asked, (QStringList{u"registerListener com.varn.maps /maps"_s,
                                                u"supportedMethods"_s, u"minimumInterval"_s}));
    }

    void namesArePassedOnAsTheyAre()
    {
        QCOMPARE(call(u"registerListener"_s, {u"no name"_s, u"no path"_s}).type(),
                 QDBusMessage::ReplyMessage);
        QCOMPARE(m_handler->asked.constFirst(), u"registerListener no name no path"_s);
    }

    void configuringAlwaysRepliesZero_data()
    {
        QTest::addColumn<int>("result");
        QTest::newRow("the request was carried out") << 0;
        QTest::newRow("the id is unknown") << -1;
        QTest::newRow("any other result") << 7;
    }
    void configuringAlwaysRepliesZero()
    {
        QFETCH(int, result);
        m_handler->configResult = result;
        const QDBusMessage reply = call(u"configSession"_s, {6000, 13, -256, 999});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QCOMPARE(reply.signature(), u"i"_s);
        QCOMPARE(reply.arguments(), QVariantList{0});
        QCOMPARE(m_handler->asked, QStringList{u"configRequest 6000 13 -256 999"_s});
    }

    void theLatestPositionComesAsBytes_data()
    {
        QTest::addColumn<bool>("satelliteOnly");
        QTest::newRow("of the satellites") << true;
        QTest::newRow("of any method") << false;
    }
    void theLatestPositionComesAsBytes()
    {
        QFETCH(bool, satelliteOnly);
        m_handler->latest = QGeoPositionInfo(QGeoCoordinate(60.169856, 24.938379, 25.5),
                                             QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)));
        m_handler->latest.setAttribute(QGeoPositionInfo::GroundSpeed, 2.0);
        const QDBusMessage reply = call(u"latestPosition"_s, {satelliteOnly});
        QCOMPARE(reply.signature(), u"ay"_s);
        const QByteArray bytes = reply.arguments().constFirst().toByteArray();
        QCOMPARE(bytes.toHex(), FixStream::writeFix(m_handler->latest).toHex());
        QCOMPARE(bytes.size(), 49);
        QCOMPARE(m_handler->asked, QStringList{u"latestPosition %1"_s.arg(satelliteOnly)});
    }

    void noPositionIs37Bytes()
    {
        const QDBusMessage reply = call(u"latestPosition"_s, {true});
        QCOMPARE(reply.arguments().constFirst().toByteArray().size(), 37);
    }

    void prestartingRepliesWithNothing()
    {
        const QDBusMessage reply = call(u"prestartPositioning"_s, {true, false});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QCOMPARE(reply.signature(), QString());
        QCOMPARE(reply.arguments(), QVariantList());
        QCOMPARE(m_handler->asked, QStringList{u"prestartPositioning 1 0"_s});
        call(u"prestartPositioning"_s, {false, true});
        QCOMPARE(m_handler->asked.constLast(), u"prestartPositioning 0 1"_s);
    }

    void wrongCallsGetAnError_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QVariantList>("arguments");
        const auto row = [](const char *name, const QString &method, const QVariantList &arguments) {
            QTest::newRow(name) << method << arguments;
        };
        row("an unknown method", u"startSession"_s, {});
        row("a method of the handler that is not on the bus", u"supportedMethods"_s, {});
        row("a method of QObject", u"deleteLater"_s, {});
        row("registering without path", u"registerListener"_s, {u"com.varn.maps"_s});
        row("registering with numbers", u"registerListener"_s, {1, 2});
        row("configuring with a text for the id", u"configSession"_s, {u"6000"_s, 1, 1, 1});
        row("configuring with an unsigned mask", u"configSession"_s, {6000, 4, 0xffffffffU, 1000});
        row("configuring with too few values", u"configSession"_s, {6000, 1});
        row("the latest position with a number", u"latestPosition"_s, {1});
        row("the latest position without a flag", u"latestPosition"_s, {});
        row("prestarting with one flag", u"prestartPositioning"_s, {true});
    }
    void wrongCallsGetAnError()
    {
        QFETCH(QString, method);
        QFETCH(QVariantList, arguments);
        const QDBusMessage reply = call(method, arguments);
        QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
        QCOMPARE(reply.errorName(), u"org.freedesktop.DBus.Error.UnknownMethod"_s);
        QCOMPARE(m_handler->asked, QStringList());
        // The service is none the worse for it.
        QCOMPARE(call(u"configSession"_s, {6000, 1, 1, 1}).type(), QDBusMessage::ReplyMessage);
    }

    void anUnknownInterfaceGetsAnError()
    {
        auto message =
            QDBusMessage::createMethodCall(Service, Path, u"com.varn.nothing"_s, u"latestPosition"_s);
        message << true;
        QCOMPARE(ask(message).errorName(), u"org.freedesktop.DBus.Error.UnknownInterface"_s);
    }

private:
    QDBusMessage call(const QString &method, const QVariantList &arguments)
    {
        auto message = QDBusMessage::createMethodCall(Service, Path, u"com.varn.lodestard.client"_s, method);
        message.setArguments(arguments);
        return ask(message);
    }

    // From another connection, as applications do; the service runs in this thread's event loop.
    QDBusMessage ask(const QDBusMessage &message)
    {
        auto caller = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"caller"_s);
        const QDBusPendingCall pending = caller.asyncCall(message);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, 10000))
            qFatal("no reply");
        return pending.reply();
    }

    std::unique_ptr<FakeHandler> m_handler;
    std::unique_ptr<QObject> m_host;
};

QTEST_GUILESS_MAIN(TestClientDBusServer)
#include "tst_clientdbusserver.moc"
