#include "platform/gconfitem.h"
#include "platform/storedkey.h"

#undef signals // a member's name in GLib's headers
#include <gconf/gconf-client.h>

namespace {

using Value = std::unique_ptr<GConfValue, decltype(&gconf_value_free)>; // null: unset

Value newValue(GConfValueType type)
{
    return {gconf_value_new(type), gconf_value_free};
}

Value fromQt(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool: {
        Value stored = newValue(GCONF_VALUE_BOOL);
        gconf_value_set_bool(stored.get(), value.toBool());
        return stored;
    }
    case QMetaType::Int: {
        Value stored = newValue(GCONF_VALUE_INT);
        gconf_value_set_int(stored.get(), value.toInt());
        return stored;
    }
    case QMetaType::Double: {
        Value stored = newValue(GCONF_VALUE_FLOAT);
        gconf_value_set_float(stored.get(), value.toDouble());
        return stored;
    }
    case QMetaType::QString: {
        Value stored = newValue(GCONF_VALUE_STRING);
        gconf_value_set_string(stored.get(), value.toString().toUtf8().constData());
        return stored;
    }
    default:
        return {nullptr, gconf_value_free};
    }
}

QVariant toQt(const GConfValue *value)
{
    if (!value)
        return {};
    switch (value->type) {
    case GCONF_VALUE_BOOL:
        return bool(gconf_value_get_bool(value));
    case GCONF_VALUE_INT:
        return gconf_value_get_int(value);
    case GCONF_VALUE_FLOAT:
        return gconf_value_get_float(value);
    case GCONF_VALUE_STRING:
        return QString::fromUtf8(gconf_value_get_string(value));
    default:
        return {};
    }
}

bool areEqual(const Value &one, const Value &other)
{
    return one && other ? gconf_value_compare(one.get(), other.get()) == 0 : one == other;
}

// Through the one client that a process has.
class GConfKey : public StoredKey
{
public:
    GConfKey(GConfItem &item, const QByteArray &name)
        : m_item(item)
        , m_key(name)
        , m_folder(name.left(qMax(name.lastIndexOf('/'), 1)))
        , m_client(gconf_client_get_default())
    {
        // A value that is refused shows when it is read back; the library would print lines about it.
        gconf_client_set_error_handling(m_client, GCONF_CLIENT_HANDLE_NONE);
        gconf_client_add_dir(m_client, m_folder.constData(), GCONF_CLIENT_PRELOAD_NONE, nullptr);
        m_notice = gconf_client_notify_add(m_client, m_key.constData(), onChanged, this, nullptr, nullptr);
    }
    ~GConfKey() override
    {
        gconf_client_notify_remove(m_client, m_notice);
        gconf_client_remove_dir(m_client, m_folder.constData(), nullptr);
        g_object_unref(m_client);
    }

    QVariant read() const override { return toQt(stored().get()); }
    void write(const QVariant &value) override
    {
        // Writing the same again would cost a call and change nothing.
        const Value wanted = fromQt(value);
        if (areEqual(wanted, stored()))
            return;
        if (wanted)
            gconf_client_set(m_client, m_key.constData(), wanted.get(), nullptr);
        else
            gconf_client_unset(m_client, m_key.constData(), nullptr);
    }

private:
    Value stored() const
    {
        return {gconf_client_get(m_client, m_key.constData(), nullptr), gconf_value_free};
    }
    static void onChanged(GConfClient *, guint, GConfEntry *entry, void *self)
    {
        const auto *key = static_cast<GConfKey *>(self);
        if (key->m_key == gconf_entry_get_key(entry)) // and not a key below it
            emit key->m_item.valueChanged();
    }

    GConfItem &m_item;
    const QByteArray m_key;
    const QByteArray m_folder;
    GConfClient *const m_client;
    guint m_notice = 0;
};

} // namespace

std::unique_ptr<StoredKey> StoredKey::open(GConfItem &item, const QByteArray &name)
{
    if (!gconf_valid_key(name.constData(), nullptr))
        return nullptr;
    return std::make_unique<GConfKey>(item, name);
}
