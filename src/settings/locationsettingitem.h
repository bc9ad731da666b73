#pragma once

#include "settings/locationgconfsettings.h"

#include <QObject>
#include <QString>
#include <QVariant>

class GConfItem;

// One status key: its place in the store, and what it holds when nobody has set it.
class LocationSettingItem : public QObject
{
    Q_OBJECT
public:
    LocationSettingItem(const QString &name, LocationGConfSettings::Keys key, const QVariant &defaultValue,
                        QObject *parent);
    ~LocationSettingItem() override;

    LocationGConfSettings::Keys key() const { return m_key; }
    QVariant value() const;          // invalid while unset: the default does not stand in
    bool set(const QVariant &value); // true when the key holds the value now
    bool setDefault();
    bool isSet() const;

public slots:
    void sendValueChanged();

signals:
    void valueChanged(LocationGConfSettings::Keys key);

private:
    GConfItem *item;
    LocationGConfSettings::Keys m_key;
    QVariant defaultValue;
};
