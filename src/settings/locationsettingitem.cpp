#include "settings/locationsettingitem.h"

#include "platform/gconfitem.h"

using namespace Qt::StringLiterals;

LocationSettingItem::LocationSettingItem(const QString &name, LocationGConfSettings::Keys key,
                                         const QVariant &fallback, QObject *parent)
    : QObject(parent)
    , item(new GConfItem(u"/system/tavi/location/settings/"_s + name, this))
    , m_key(key)
    , defaultValue(fallback)
{
    connect(item, &GConfItem::valueChanged, this, &LocationSettingItem::sendValueChanged);
}

LocationSettingItem::~LocationSettingItem()
{
    delete item;
}

QVariant LocationSettingItem::value() const
{
    return item->value();
}

bool LocationSettingItem::set(const QVariant &value)
{
    item->set(value);
    return item->value() == value;
}

bool LocationSettingItem::setDefault()
{
    return set(defaultValue);
}

bool LocationSettingItem::isSet() const
{
    return item->value().isValid();
}

void LocationSettingItem::sendValueChanged()
{
    emit valueChanged(m_key);
}
