#pragma once

#include "client/fakeclient.h"
#include "client/fixstream.h"
#include "core/positiondaemon.h"
#include "engine/enginesidecodec.h"
#include "support/devicetree.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QTest>

#include <memory>

// A daemon of its own device tree, with an engine that does what the test tells it.
class DaemonStage
{
public:
    DaemonStage() { tree.write(QStringLiteral("/home/user/.location_ok"), {}); }
    ~DaemonStage()
    {
        daemon.reset();
        auto bus = QDBusConnection::sessionBus();
        bus.unregisterService(QStringLiteral("com.varn.lodestard.client"));
        bus.unregisterService(QStringLiteral("com.varn.lodestard.settings"));
        bus.unregisterService(QStringLiteral("com.varn.lodestard.context"));
    }

    // Once, before the first stage.
    static void prepareEnvironment()
    {
        qputenv("USER", "root");
        qunsetenv("POSITIONING_SOURCE");
    }

    void makeEngine() { engine = std::make_unique<FakeEngine>(tree.paths().engineSocket()); }
    void setDefault(const QByteArray &line)
    {
        m_operatorFile += line + '\n';
        tree.write(QStringLiteral("/etc/xdg/varn/location-settings.conf"), m_operatorFile);
    }
    // The daemon's init(); the engine, if there is one, takes the connection.
    int start()
    {
        daemon = std::make_unique<PositionDaemon>(tree.paths());
        return daemon->init();
    }
    // The engine has had its time to get ready: nothing of that is left to be read.
    void startReady()
    {
        makeEngine();
        QCOMPARE(start(), 0);
        QTRY_VERIFY(engine->isConnected());
        daemon->allowOrvClients();
        engine->takeReceived();
        log.takeLines();
    }

    // Over the bus, as a settings application does it.
    static bool set(const QString &key, const QVariant &value)
    {
        static auto application = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                                QStringLiteral("settings application"));
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("com.varn.lodestard.settings"), QStringLiteral("/com/varn/lodestard/settings"),
            QStringLiteral("com.varn.location.settings"), QStringLiteral("setSetting"));
        call << key << QVariant::fromValue(QDBusVariant(value));
        const QDBusPendingReply<bool> reply = application.asyncCall(call);
        return QTest::qWaitFor([&reply] { return reply.isFinished(); }) && reply.isValid() && reply.value();
    }

    // What the engine was asked since the last look, one word each: "start 6000 1", "stop 6000", ...
    QStringList requests()
    {
        QStringList words;
        const auto packets = engine->takeReceived();
        for (const QByteArray &packet : packets)
            words << word(packet);
        return words;
    }
    // The same, once the engine was asked that often, or 5 s have passed.
    QStringList awaitRequests(qsizetype count)
    {
        QStringList words;
        [[maybe_unused]] const bool enough =
            QTest::qWaitFor([&] { return (words += requests()).size() >= count; });
        return words;
    }
    // The log since the last look that begins with one of the texts.
    QStringList logged(const QStringList &beginnings)
    {
        QStringList found;
        const auto lines = log.takeLines();
        for (const QString &line : lines) {
            for (const QString &beginning : beginnings) {
                if (line.startsWith(beginning)) {
                    found << line;
                    break;
                }
            }
        }
        return found;
    }

    DeviceTree tree;
    LogCapture log;
    std::unique_ptr<FakeEngine> engine;
    std::unique_ptr<PositionDaemon> daemon;

private:
    static QString word(const QByteArray &packet)
    {
        const auto bytes = std::as_bytes(std::span(packet.constData(), std::size_t(packet.size())));
        const auto request = engineside::readRequest(PacketView(bytes));
        if (!request)
            return QStringLiteral("unreadable");
        if (const auto *gnss = std::get_if<GnssRequest>(&*request)) {
            const QString id = QString::number(gnss->sessionId);
            const QString interval = QString::number(gnss->intervalSeconds);
            switch (gnss->command) {
            case GnssCommand::Start:
                return QStringLiteral("start %1 %2 mode %3").arg(id, interval).arg(gnss->mode);
            case GnssCommand::ChangeInterval:
                return QStringLiteral("interval %1 %2").arg(id, interval);
            case GnssCommand::Stop:
                return QStringLiteral("stop %1").arg(id);
            }
        }
        if (const auto *wiped = std::get_if<DeleteAssistance>(&*request))
            return QStringLiteral("delete %1").arg(wiped->mask, 8, 16, QLatin1Char('0'));
        if (const auto *position = std::get_if<SuplRequest>(&*request))
            return QStringLiteral("locate %1 %2").arg(position->requestId).arg(position->parameter);
        if (const auto *servers = std::get_if<SuplServers>(&*request))
            return QStringLiteral("supl %1 %2")
                .arg(servers->primary.usage)
                .arg(QString::fromLatin1(servers->primary.name));
        return std::holds_alternative<RegisterPrivacy>(*request) ? QStringLiteral("privacy")
                                                                 : QStringLiteral("other");
    }

    QByteArray m_operatorFile = "[General]\n";
};

// What clients ask for, as numbers on the bus.
namespace clients {

inline constexpr int Start = 0x01, Stop = 0x02, SetMethod = 0x04, SetInterval = 0x08, SatInfoStart = 0x10;
inline constexpr int Satellite = 0xff, NonSatellite = int(0xffffff00), All = -1; // method masks
inline constexpr int FreeFixMs = 666000;

inline int add(DaemonStage &stage, const FakeClient &client)
{
    return stage.daemon->registerListener(client.service(), client.path());
}

// The latitudes that a client was sent; NaN stands for an empty fix.
inline QList<double> latitudes(FakeClient &client)
{
    QList<double> sent;
    const auto calls = client.takeCalls();
    for (const QDBusMessage &call : calls) {
        if (call.member() == QLatin1StringView("positionUpdate"))
            sent << FixStream::readFix(call.arguments().value(0).toByteArray())
                        .value()
                        .coordinate()
                        .latitude();
    }
    return sent;
}

// A client that is never called back.
inline int addSilent(DaemonStage &stage)
{
    return stage.daemon->registerListener(QStringLiteral("prestart"), QStringLiteral("prestart"));
}

} // namespace clients
