#pragma once

#include "platform/devicepaths.h"
#include "settings/locationsecuresettingsif.h"

#include <QDBusAbstractAdaptor>
#include <QDBusVariant>
#include <QVariant>

#include <memory>

class QDBusMessage;
class QSettings;
class SettingsFile;

// The store of the user's location settings, and its face on the session bus.
class LocationSecureSettings : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.location.settings")
public:
    // Opens the files and fills in what the user's file lacks. The handler must outlive the service.
    LocationSecureSettings(QObject *parent, LocationSecureSettingsIF *handler, const DevicePaths &paths = {});
    ~LocationSecureSettings() override;

    // The stored value, invalid for an unknown key. Reading one of the two external-receiver keys asks
    // bluez (blocking) whether the receiver is still paired, and forgets it, with signals, when it is not.
    QVariant value(const QString &key);

signals:
    void valueChanged(QString key);

public slots: // all of these are on the bus: helpers are plain members
    // True when the value was stored and written to disk.
    bool setSetting(QString key, QDBusVariant value);
    // As value(), but an unknown key or a value that D-Bus cannot carry is an error reply. The
    // message is the call itself and no argument on the bus.
    QDBusVariant getSetting(QString key, const QDBusMessage &call);
    bool resetToDefaults();
    bool clearAssistanceData(int data);

private:
    void seed();
    void seedKey(const QString &key, const QVariant &defaultValue);
    void store(const QString &key, const QVariant &value);
    void writePending();
    void forgetExternalDevice(const QString &key);
    bool isExternalDeviceKnown() const;
    static bool readInternalGpsDisabled(const DevicePaths &paths);

    LocationSecureSettingsIF *handler;
    QVariant internalGpsDisabled;
    std::unique_ptr<SettingsFile> userSettings;
    std::unique_ptr<QSettings> operatorSettings; // read only
};
