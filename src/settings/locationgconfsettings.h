#pragma once

#include <QList>
#include <QObject>
#include <QVariant>

class LocationSettingItem;

// The status keys: what the daemon tells the rest of the handset about positioning, below
// "/system/tavi/location/settings/" of the shared configuration store. Nothing in the daemon depends
// on them.
class LocationGConfSettings : public QObject
{
    Q_OBJECT
public:
    enum Keys : int {
        KeyMagneticVariation = 0,    // int, whole degrees; the default is a double
        KeySatellitePositioning = 1, // bool, like the rest: in use
        KeyNetworkPositioning = 2,
        KeyVesk = 3, // the network positioning library
    };
    Q_ENUM(Keys)

    explicit LocationGConfSettings(QObject *parent);
    ~LocationGConfSettings() override;

    QVariant value(Keys key) const;            // invalid while unset, and for a key that there is not
    bool set(Keys key, const QVariant &value); // true when the key holds the value now

    // Writes the default of every key that is unset: 0, or -1 when one of them did not take it.
    int setDefaults();

signals:
    void valueChanged(LocationGConfSettings::Keys key);

private:
    LocationSettingItem *find(Keys key) const;

    QList<LocationSettingItem *> items;
};
