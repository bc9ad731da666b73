#include "client/dialogreply.h"

#include <QDBusArgument>
#include <QDBusVariant>

namespace {

// Arrays and structures of several values are left to be of the wrong type.
QVariant unwrapped(QVariant value)
{
    for (;;) {
        if (value.metaType() == QMetaType::fromType<QDBusVariant>()) {
            value = value.value<QDBusVariant>().variant();
        } else if (value.metaType() == QMetaType::fromType<QDBusArgument>()) {
            const auto argument = value.value<QDBusArgument>();
            if (argument.currentType() != QDBusArgument::StructureType)
                return value;
            argument.beginStructure();
            const QVariant first = argument.asVariant();
            const bool isOnly = argument.atEnd();
            argument.endStructure(); // a structure that is left open is never freed
            if (!isOnly)
                return value;
            value = first;
        } else {
            return value;
        }
    }
}

template <typename T>
std::optional<T> readFirst(const QVariantList &reply)
{
    const QVariant value = unwrapped(reply.value(0));
    return value.metaType() == QMetaType::fromType<T>() ? std::optional(value.value<T>()) : std::nullopt;
}

} // namespace

std::optional<bool> readBoolean(const QVariantList &reply)
{
    return readFirst<bool>(reply);
}

std::optional<int> readInteger(const QVariantList &reply)
{
    return readFirst<int>(reply);
}
