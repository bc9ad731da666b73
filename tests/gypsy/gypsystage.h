#pragma once

#include "gypsy/gypsycomm.h"
#include "support/fakebluez.h"
#include "support/fakegypsy.h"
#include "support/logcapture.h"
#include "support/stillclock.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QGeoCoordinate>
#include <QTest>

#include <memory>
#include <utility>

// A client of Gypsy between a fake Gypsy and a fake bluez, and everything that it reports.
class GypsyStage
{
public:
    static inline const QString Address = QStringLiteral("00:1A:7D:DA:71:13");
    static inline const QString Other = QStringLiteral("00:1A:7D:DA:71:14");
    static inline const QString Path = FakeGypsy::pathOf(Address);

    GypsyStage()
        : bluez(std::make_unique<FakeBluez>())
        , gypsy(std::make_unique<FakeGypsy>())
    {
        bluez->plugAdapter();
        QObject::connect(&comm, &GypsyComm::fixStatusUpdate, &comm,
                         [this](int status) { note(QStringLiteral("fix %1").arg(status)); });
        QObject::connect(&comm, &GypsyComm::connectionStatusUpdate, &comm,
                         [this](int status) { note(QStringLiteral("connection %1").arg(status)); });
        QObject::connect(&comm, &GypsyComm::positionUpdateGypsy, &comm,
                         [this](quint16 session, QGeoPositionInfo &update) {
                             note(QStringLiteral("position %1").arg(session));
                             updates << update;
                         });
        QObject::connect(&comm, &GypsyComm::satellitesInView, &comm,
                         [this](QList<QGeoSatelliteInfo> &list) { noteSatellites(u"in view", list); });
        QObject::connect(&comm, &GypsyComm::satellitesInUse, &comm,
                         [this](QList<QGeoSatelliteInfo> &list) { noteSatellites(u"in use", list); });
        settle(); // the bus knows by now what is listened to
    }

    // One session runs, and nothing of its start is left to be looked at.
    void start(quint16 session = 6000)
    {
        QVERIFY(comm.startSession(session, 1, Address));
        forget();
    }
    // A bluez that was started anew, and without an adapter.
    void renewBluez()
    {
        bluez.reset();
        bluez = std::make_unique<FakeBluez>(4712);
    }
    void forget()
    {
        takeEvents();
        takeCalls();
        log.takeLines();
        updates.clear();
    }
    // Everything that the fakes have sent by now has been dealt with: an answer comes behind signals.
    void settle() const
    {
        if (bluez)
            ping(QStringLiteral("org.bluez"));
        if (gypsy)
            ping(QStringLiteral("org.freedesktop.Gypsy"));
        QCoreApplication::processEvents();
    }

    QStringList takeEvents() { return std::exchange(m_events, {}); }
    // What bluez was asked, then what Gypsy was asked.
    QStringList takeCalls()
    {
        QStringList calls = bluez ? bluez->takeCalls() : QStringList();
        return gypsy ? calls + gypsy->takeCalls() : calls;
    }
    QStringList takeLines() { return log.takeLines(); }

    LogCapture log;
    std::unique_ptr<FakeBluez> bluez;
    std::unique_ptr<FakeGypsy> gypsy;
    StillClock clock;
    GypsyComm comm{clock};
    QList<QGeoPositionInfo> updates;

private:
    static void ping(const QString &service)
    {
        const auto call = QDBusMessage::createMethodCall(service, QStringLiteral("/"),
                                                         QStringLiteral("org.freedesktop.DBus.Peer"),
                                                         QStringLiteral("Ping"));
        QCOMPARE(QDBusConnection::systemBus().call(call).type(), QDBusMessage::ReplyMessage);
    }

    void note(const QString &event) { m_events << event; }
    void noteSatellites(QStringView which, const QList<QGeoSatelliteInfo> &list)
    {
        QString event = QStringLiteral("%1:").arg(which);
        for (const QGeoSatelliteInfo &satellite : list)
            event += QStringLiteral(" %1").arg(satellite.satelliteIdentifier());
        note(event);
    }

    QStringList m_events;
};
