#include "platform/gconfitem.h"

#include "platform/storedkey.h"

namespace {

bool isOfAnItemsType(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::Double:
    case QMetaType::QString:
        return true;
    default:
        return false;
    }
}

} // namespace

GConfItem::GConfItem(const QString &key, QObject *parent)
    : QObject(parent)
    , m_key(StoredKey::open(*this, key.toUtf8()))
{
}

GConfItem::~GConfItem() = default;

QVariant GConfItem::value() const
{
    return m_key ? m_key->read() : QVariant();
}

void GConfItem::set(const QVariant &value)
{
    if (m_key && (!value.isValid() || isOfAnItemsType(value)))
        m_key->write(value);
}
