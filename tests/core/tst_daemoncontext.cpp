#include "core/daemonstage.h"
#include "support/leavebus.h"
#include "support/privatebus.h"

#include <QDBusArgument>
#include <QFile>
#include <QSignalSpy>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace clients;

namespace {

const QString State = u"/com/varn/context/Location/SatPositioningState"_s;
const QString Coordinates = u"/com/varn/context/Location/Coordinates"_s;
const QString ContextLine = u"debug: PositionDaemon::contextSetState"_s;

// A status bar, or whoever else is interested.
class Subscriber
{
public:
    explicit Subscriber(const QString &name = u"subscriber"_s)
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name))
    {
    }
    ~Subscriber() { leaveBus(m_bus); }

    // The text or the pair of coordinates in the answer, nothing for an unset property.
    QVariant call(const QString &path, const QString &member)
    {
        const auto message = QDBusMessage::createMethodCall(u"com.varn.lodestard.context"_s, path,
                                                            u"com.varn.context.Property"_s, member);
        const QDBusPendingReply<> reply = m_bus.asyncCall(message);
        if (!QTest::qWaitFor([&reply] { return reply.isFinished(); }) || reply.isError())
            return u"no answer"_s;
        const auto value = qdbus_cast<QVariantList>(reply.reply().arguments().value(0)).value(0);
        return value.canConvert<QDBusArgument>() ? QVariant::fromValue(qdbus_cast<QList<double>>(value))
                                                 : value;
    }

private:
    QDBusConnection m_bus;
};

QString stateLine(int satellite, int network, int published)
{
    return u"%1: satelliteState=%2, nonsatelliteState=%3, tmpState=%4, iconState=%5"_s.arg(ContextLine)
        .arg(satellite)
        .arg(network)
        .arg(std::max(satellite, network))
        .arg(published);
}

QVariant place(double latitude, double longitude)
{
    return QVariant::fromValue(QList<double>{latitude, longitude});
}

} // namespace

// The published properties, and what a report of the engine sets going.
class TestDaemonContext : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { DaemonStage::prepareEnvironment(); }
    void cleanup() { ::signal(SIGCHLD, SIG_DFL); } // the test's own buses are children
    void theStateIsPublishedToSubscribers();
    void theStateIsLoggedWhereItMayChange();
    void coordinatesHaveAClientOfTheirOwn();
    void coordinatesWithoutConsentWait();
    void consentComesWhenTheSubscriberHasGone();
    void onlyValidCoordinatesArePublished();
    void aTakenNameDoesNotEndTheStart();
    void reportsAreHandledInTheirOrder();

private:
    static void searching(DaemonStage &stage) { stage.daemon->onGNSSStateUpdated(ORVComm::Search); }
    static QGeoPositionInfo fixAt(double latitude, double longitude)
    {
        return {QGeoCoordinate(latitude, longitude), QDateTime::currentDateTime()};
    }
    static int satelliteClient(DaemonStage &stage, int methods = Satellite)
    {
        const int id = addSilent(stage);
        stage.daemon->configRequest(id, Start | SetMethod | SetInterval, methods, 1000);
        return id;
    }
};

void TestDaemonContext::theStateIsPublishedToSubscribers()
{
    DaemonStage stage;
    stage.startReady();
    Subscriber bar;
    QCOMPARE(bar.call(State, u"Get"_s), u"off"_s);
    searching(stage);
    QCOMPARE(bar.call(State, u"Get"_s), u"off"_s); // nobody listens: nothing is published
    QCOMPARE(stage.logged({ContextLine}), QStringList{stateLine(1, 0, 0)});

    QCOMPARE(bar.call(State, u"Subscribe"_s), u"search"_s);
    QCOMPARE(stage.log.takeLines(),
             (QStringList{u"debug: First context fw client for gps state."_s, stateLine(1, 0, 0)}));
    stage.daemon->addContextFWStateClient({}); // once more, from whoever says so
    QCOMPARE(stage.log.takeLines(), QStringList{u"debug: First context fw client for gps state."_s});
    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking);
    QCOMPARE(bar.call(State, u"Get"_s), u"on"_s);
    stage.log.takeLines();
    bar.call(State, u"Unsubscribe"_s);
    QCOMPARE(stage.log.takeLines(), QStringList{u"debug: PositionDaemon::delContextFWStateClient()"_s});
    stage.daemon->onGNSSStateUpdated(ORVComm::Idle);
    QCOMPARE(bar.call(State, u"Get"_s), u"on"_s);
    QCOMPARE(bar.call(State, u"Subscribe"_s), u"off"_s);
}

void TestDaemonContext::theStateIsLoggedWhereItMayChange()
{
    DaemonStage stage;
    stage.startReady();
    Subscriber bar;
    bar.call(State, u"Subscribe"_s);
    stage.log.takeLines();

    // Network positioning starts, finds something, stops.
    satelliteClient(stage, NonSatellite);
    QCOMPARE(stage.logged({ContextLine}), QStringList{stateLine(0, 1, 0)});
    QGeoPositionInfo nowhere;
    stage.daemon->onPositionUpdateSUPL(nowhere);
    QCOMPARE(bar.call(State, u"Get"_s), u"search"_s);
    auto somewhere = fixAt(1, 2);
    stage.daemon->onPositionUpdateSUPL(somewhere);
    QCOMPARE(bar.call(State, u"Get"_s), u"on"_s);
    stage.log.takeLines();
    stage.daemon->configRequest(6000, Stop, 0, 0);
    QCOMPARE(stage.logged({ContextLine}), QStringList{stateLine(0, 0, 2)});
    QCOMPARE(bar.call(State, u"Get"_s), u"off"_s);

    // Settings that change what users see of satellites.
    for (const QString &key : {u"Positioning"_s, u"SatellitePositioning"_s, u"SatellitePositioningInternal"_s,
                               u"WiFiPositioning"_s, u"SatellitePositioningExternalName"_s}) {
        stage.daemon->onClientDisconnected(6000);
        stage.log.takeLines();
        QVERIFY(DaemonStage::set(key, true));
        const bool updates = key.startsWith(u"Pos") || (key.startsWith(u"Sat") && !key.endsWith(u"Name"));
        QCOMPARE(stage.logged({ContextLine}).size(), updates ? 1 : 0);
    }
}

void TestDaemonContext::coordinatesHaveAClientOfTheirOwn()
{
    DaemonStage stage;
    stage.startReady();
    Subscriber map;
    Subscriber other(u"other"_s);
    QCOMPARE(map.call(Coordinates, u"Subscribe"_s), QVariant());
    QCOMPARE(stage.logged({u"debug: First"_s, u"debug: ##"_s, u"debug: PositionDaemon::configRequest"_s}),
             (QStringList{u"debug: First context fw client for positioinig."_s,
                          u"debug: ## Adding new client with Id:  6000"_s, u"debug: ## Service:  context"_s,
                          u"debug: ##    Path:  context"_s,
                          u"debug: PositionDaemon::configRequest: Set Method:  255"_s,
                          u"debug: PositionDaemon::configRequest: Set interval:  1"_s,
                          u"debug: PositionDaemon::configRequest: Start!"_s}));
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});

    // One client for all of them, a fix of its own session, and no call to anybody.
    other.call(Coordinates, u"Subscribe"_s);
    QCOMPARE(stage.requests(), QStringList());
    QCOMPARE(stage.logged({u"debug: First"_s, u"debug: ##"_s}), QStringList());
    stage.daemon->addContextFWPositionClient({}); // once more, from whoever says so
    QCOMPARE(stage.log.takeLines(), QStringList{u"debug: First context fw client for positioinig."_s});
    auto fix = fixAt(60.169856123456, -24.938379654321);
    stage.daemon->onPositionUpdateGNSS(6000, fix);
    QCOMPARE(map.call(Coordinates, u"Get"_s), place(60.169856123456, -24.938379654321));
    QCOMPARE(stage.logged({u"debug: ClientApp"_s, u"debug: Sending"_s, u"critical"_s}),
             QStringList{u"debug: Sending GNSS fix to ClientId: 6000"_s});

    // The last one takes the client with it, and nothing is sent anywhere.
    map.call(Coordinates, u"Unsubscribe"_s);
    QCOMPARE(stage.logged({u"debug: PositionDaemon"_s}), QStringList());
    other.call(Coordinates, u"Unsubscribe"_s);
    QCOMPARE(stage.log.takeLines(), (QStringList{u"debug: PositionDaemon::delContextFWPositionClient()"_s,
                                                 u"debug: PositionDaemon: Removing client with id: 6000"_s}));
    QCOMPARE(stage.requests(), QStringList());
    auto late = fixAt(1, 2);
    stage.daemon->onPositionUpdateGNSS(6000, late);
    QCOMPARE(map.call(Coordinates, u"Get"_s), place(60.169856123456, -24.938379654321));
    QCOMPARE(
        stage.log.takeLines(),
        QStringList{u"critical: PositionDaemon::onPositionUpdateGNSS: Invalid GNSS session id from ORV."_s});
    stage.daemon->delContextFWPositionClient({}); // nobody is left to remove
    QCOMPARE(stage.log.takeLines(), QStringList{u"debug: PositionDaemon::delContextFWPositionClient()"_s});
    map.call(Coordinates, u"Subscribe"_s);
    QCOMPARE(stage.requests(), QStringList{u"start 6001 1 mode 2"_s});
}

void TestDaemonContext::coordinatesWithoutConsentWait()
{
    DaemonStage stage;
    QVERIFY(QFile::remove(stage.tree.at(u"/home/user/.location_ok"_s)));
    stage.startReady();
    Subscriber map;
    map.call(Coordinates, u"Subscribe"_s);
    QCOMPARE(stage.requests(), QStringList());
    stage.daemon->privacyDialogFinished(LocationUI::Accepted);
    QCOMPARE(stage.requests(), QStringList{u"start 6000 1 mode 2"_s});
}

void TestDaemonContext::consentComesWhenTheSubscriberHasGone()
{
    DaemonStage stage;
    QVERIFY(QFile::remove(stage.tree.at(u"/home/user/.location_ok"_s)));
    stage.startReady();
    {
        Subscriber gone(u"gone"_s);
        gone.call(Coordinates, u"Subscribe"_s);
    }
    QTRY_VERIFY(stage.log.lines().contains(u"debug: PositionDaemon: Removing client with id: 6000"_s));
    Subscriber map;
    map.call(Coordinates, u"Subscribe"_s);
    stage.log.takeLines();
    stage.daemon->privacyDialogFinished(LocationUI::Accepted);
    QCOMPARE(stage.logged({u"critical"_s}),
             (QStringList{u"critical: *** Warning! Config request from client with invalid Id!"_s,
                          u"critical: *** id: 6000  command: 13"_s}));
    QCOMPARE(stage.requests(), QStringList{u"start 6001 1 mode 2"_s});
}

void TestDaemonContext::onlyValidCoordinatesArePublished()
{
    DaemonStage stage;
    stage.startReady();
    Subscriber map;
    const int id = satelliteClient(stage);
    auto fix = fixAt(1, 2);
    stage.daemon->onPositionUpdateGNSS(quint16(id), fix);
    QCOMPARE(map.call(Coordinates, u"Get"_s), QVariant()); // nobody had subscribed
    map.call(Coordinates, u"Subscribe"_s);

    // The fixes of other clients count too, and those of the network.
    stage.daemon->onPositionUpdateGNSS(quint16(id), fix);
    QCOMPARE(map.call(Coordinates, u"Get"_s), place(1, 2));
    auto network = fixAt(3, 4);
    stage.daemon->onPositionUpdateSUPL(network);
    QCOMPARE(map.call(Coordinates, u"Get"_s), place(3, 4));
    for (auto bad : {QGeoPositionInfo(), fixAt(91, 0)}) {
        stage.daemon->onPositionUpdateGNSS(quint16(id), bad);
        stage.daemon->onPositionUpdateSUPL(bad);
        QCOMPARE(map.call(Coordinates, u"Get"_s), place(3, 4));
    }
    stage.daemon->configRequest(id, Stop, 0, 0); // a fix that is not handed out
    stage.daemon->onPositionUpdateGNSS(quint16(id), fix);
    QCOMPARE(map.call(Coordinates, u"Get"_s), place(3, 4));
}

void TestDaemonContext::aTakenNameDoesNotEndTheStart()
{
    auto other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other"_s);
    QVERIFY(other.registerService(u"com.varn.lodestard.context"_s));
    DaemonStage stage;
    stage.makeEngine();
    QCOMPARE(stage.start(), 0);
    leaveBus(u"other"_s);
    QCOMPARE(stage.logged({u"warning"_s, u"critical"_s, u"debug: PositionDaemon::init() Context"_s}),
             (QStringList{u"warning: The context service com.varn.lodestard.context cannot be registered."_s,
                          u"debug: PositionDaemon::init() ContextProvider init done."_s}));
}

void TestDaemonContext::reportsAreHandledInTheirOrder()
{
    DaemonStage stage;
    stage.startReady();
    const QStringList kinds{u"debug: GNSS"_s, ContextLine, u"debug: PositionDaemon::enable"_s,
                            u"debug: PositionDaemon::disable"_s, u"debug: assign"_s};
    searching(stage);
    QCOMPARE(stage.logged(kinds),
             (QStringList{u"debug: GNSS mode: Search"_s, stateLine(1, 0, 0),
                          u"debug: PositionDaemon::enablePowerSave"_s, u"debug: assignClients"_s}));
    searching(stage);
    QCOMPARE(stage.logged(kinds),
             (QStringList{u"debug: GNSS mode: Search"_s, stateLine(1, 0, 0), u"debug: assignClients"_s}));
    stage.daemon->onGNSSStateUpdated(ORVComm::Tracking);
    QCOMPARE(stage.logged(kinds),
             (QStringList{u"debug: GNSS mode: Tracking"_s, stateLine(2, 0, 0),
                          u"debug: PositionDaemon::disablePowerSave"_s, u"debug: assignClients"_s}));
    stage.daemon->onGNSSStateUpdated(ORVComm::Idle);
    QCOMPARE(stage.logged(kinds),
             (QStringList{u"debug: GNSS mode: Idle"_s, stateLine(0, 0, 0), u"debug: assignClients"_s}));

    // The external receiver has no power save.
    stage.daemon->onFixStatusUpdate(GypsyComm::NoFix);
    QCOMPARE(stage.logged(kinds), (QStringList{stateLine(1, 0, 0), u"debug: assignClients"_s}));
}

PRIVATE_BUS_TEST_MAIN(TestDaemonContext)
#include "tst_daemoncontext.moc"
