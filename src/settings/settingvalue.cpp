#include "settings/settingvalue.h"

#include <QDBusMetaType>
#include <QDBusVariant>

#include <algorithm>

std::optional<QVariant> settingvalue::storable(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QString:
        return value;
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<QDBusVariant>())
        return storable(value.value<QDBusVariant>().variant());
    return std::nullopt;
}

bool settingvalue::isSendable(const QVariant &value)
{
    if (!value.isValid() || !QDBusMetaType::typeToSignature(value.metaType()))
        return false;
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        const auto list = value.toList();
        return std::ranges::all_of(list, isSendable);
    }
    if (value.metaType() == QMetaType::fromType<QVariantMap>()) {
        const auto map = value.toMap();
        return std::all_of(map.cbegin(), map.cend(), isSendable);
    }
    return true;
}
