#include "settings/locationgconfsettings.h"

#include "settings/locationsettingitem.h"

using namespace Qt::StringLiterals;

LocationGConfSettings::LocationGConfSettings(QObject *parent)
    : QObject(parent)
{
    items << new LocationSettingItem(u"magneticvariation"_s, KeyMagneticVariation, 0.0, this)
          << new LocationSettingItem(u"satellitePositioning"_s, KeySatellitePositioning, true, this)
          << new LocationSettingItem(u"networkPositioning"_s, KeyNetworkPositioning, true, this)
          << new LocationSettingItem(u"VESK"_s, KeyVesk, true, this);
    for (const LocationSettingItem *item : std::as_const(items))
        connect(item, &LocationSettingItem::valueChanged, this, &LocationGConfSettings::valueChanged);
}

LocationGConfSettings::~LocationGConfSettings()
{
    qDeleteAll(items);
}

QVariant LocationGConfSettings::value(Keys key) const
{
    const LocationSettingItem *item = find(key);
    return item ? item->value() : QVariant();
}

bool LocationGConfSettings::set(Keys key, const QVariant &value)
{
    LocationSettingItem *item = find(key);
    return item && item->set(value);
}

int LocationGConfSettings::setDefaults()
{
    int result = 0;
    for (LocationSettingItem *item : std::as_const(items)) {
        if (!item->isSet() && !item->setDefault())
            result = -1;
    }
    return result;
}

LocationSettingItem *LocationGConfSettings::find(Keys key) const
{
    LocationSettingItem *found = nullptr;
    for (LocationSettingItem *item : items) {
        if (item->key() == key)
            found = item;
    }
    return found;
}
