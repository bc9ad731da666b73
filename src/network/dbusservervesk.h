#pragma once

#include <QDBusAbstractAdaptor>

class DBusServerVESKIF;
class QDBusMessage;

// The bus face of the side channel to the peer of the network-positioning stack: passes requests to
// the handler, and broadcasts the engine's fixes and the user's network settings.
class DBusServerVESK : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.lodestard.vesk")
public:
    // host is the object on the bus and owns the adaptor; handler outlives both.
    DBusServerVESK(QObject *host, DBusServerVESKIF *handler);

signals: // all of these are on the bus, and so are their parameter names and their order
    // Degrees, metres, the orientation byte, whole metres, km/h (65535: not known), and the report's time.
    void positionMessage(double latitude, double longitude, double altitude, double uncertaintyAlong,
                         double uncertaintyOrtho, uchar uncertaintyAngle, ushort uncertaintyAltitude,
                         ushort groundSpeed, ushort year, uchar month, uchar day, uchar hours, uchar minutes,
                         ushort mseconds);
    // The code of a query or of a setting that changed, and 1 for allowed or 0 for not.
    void settingMessage(int settingId, int value);

public slots:
    // Never answered, even when the caller asks for a reply. The call itself is not on the bus.
    Q_NOREPLY void request(int command, const QDBusMessage &call);

private:
    DBusServerVESKIF *handler;
};
