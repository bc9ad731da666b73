#pragma once

#include "engine/enginesidecodec.h"
#include "engine/fixconversion.h"
#include "engine/orvcomm.h"

#include <QTimer>

#include <utility>

// Writes down what the engine link reports: the order as short sentences, the values beside it.
class OrvRecorder
{
public:
    explicit OrvRecorder(ORVComm &orv)
    {
        QObject::connect(&orv, &ORVComm::positionUpdateGNSS, &orv,
                         [this](quint16 id, QGeoPositionInfo &info) {
                             fix = info;
                             note("fix %1", id);
                         });
        QObject::connect(&orv, &ORVComm::positionUpdateSUPL, &orv, [this](QGeoPositionInfo &info) {
            suplFix = info;
            note("supl");
        });
        QObject::connect(&orv, &ORVComm::satellitesInView, &orv, [this](QList<QGeoSatelliteInfo> &list) {
            inView = list;
            note("view %1", int(list.size()));
        });
        QObject::connect(&orv, &ORVComm::satellitesInUse, &orv, [this](QList<QGeoSatelliteInfo> &list) {
            inUse = list;
            note("use %1", int(list.size()));
        });
        QObject::connect(&orv, &ORVComm::GNSSStateUpdated, &orv,
                         [this](ORVComm::GNSSState state) { note("state %1", state); });
        QObject::connect(&orv, &ORVComm::updateTimeoutGNSS, &orv,
                         [this](quint16 id) { note("timeout %1", id); });
        QObject::connect(
            &orv, &ORVComm::locationRequest, &orv,
            [this](quint8 transaction, int type, bool accept, const QString &name, const QString &id) {
                events.append(QStringLiteral("request %1 type %2 default %3 name '%4' id '%5'")
                                  .arg(transaction)
                                  .arg(type)
                                  .arg(int(accept))
                                  .arg(name, id));
            });
        QObject::connect(&orv, &ORVComm::locationRequestTimeout, &orv,
                         [this](quint8 transaction) { note("withdrawn %1", transaction); });
        QObject::connect(&orv, &ORVComm::connectionLost, &orv, [this] { note("lost"); });
        QObject::connect(&orv, &ORVComm::updateVESK, &orv,
                         [this](double lat, double lon, double alt, double along, double ortho, uchar angle,
                                ushort altitudeError, ushort speed, ushort year, uchar month, uchar day,
                                uchar hours, uchar minutes, ushort milliseconds) {
                             raw = {lat,   lon,  alt,   along, ortho, angle,   altitudeError,
                                    speed, year, month, day,   hours, minutes, milliseconds};
                             note("vesk");
                         });
    }

    QStringList take() { return std::exchange(events, {}); }

    QStringList events;
    QGeoPositionInfo fix, suplFix;
    QList<QGeoSatelliteInfo> inView, inUse;
    RawFix raw;

private:
    void note(const char *text) { events.append(QString::fromLatin1(text)); }
    void note(const char *text, int value) { events.append(QString::fromLatin1(text).arg(value)); }
};

// Hands a packet over as if it had just been received.
inline void feed(ORVComm &orv, const QByteArray &packet)
{
    orv.handlePacket(PacketView::of(packet).all());
}

// A notification with a fix, or one that only says it was built for one (status bits as given).
inline QByteArray positionReport(quint16 session, quint8 status = 0x41, const PositionBlock &position = {})
{
    engineside::ReportWriter report(GnssNotification{session, status});
    report.add(position);
    return report.bytes();
}

// The watchdogs in order of creation.
inline QList<QTimer *> watchdogs(const ORVComm &orv)
{
    return orv.findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
}
