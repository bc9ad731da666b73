#include "platform/gconfitem.h"

#include <QByteArray>

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

} // namespace

// One key that is listened to, through the one client that a process has.
class GConfItem::Watch
{
public:
    Watch(GConfItem *item, const QByteArray &key)
        : m_item(item)
        , m_key(key)
        , m_folder(key.left(qMax(key.lastIndexOf('/'), 1)))
        , m_client(gconf_client_get_default())
    {
        // A value that is refused shows when it is read back; the library would print lines about it.
        gconf_client_set_error_handling(m_client, GCONF_CLIENT_HANDLE_NONE);
        gconf_client_add_dir(m_client, m_folder.constData(), GCONF_CLIENT_PRELOAD_NONE, nullptr);
        m_notice = gconf_client_notify_add(m_client, m_key.constData(), onChanged, this, nullptr, nullptr);
    }
    ~Watch()
    {
        gconf_client_notify_remove(m_client, m_notice);
        gconf_client_remove_dir(m_client, m_folder.constData(), nullptr);
        g_object_unref(m_client);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    Value read() const { return {gconf_client_get(m_client, m_key.constData(), nullptr), gconf_value_free}; }
    void write(const GConfValue *value)
    {
        if (value)
            gconf_client_set(m_client, m_key.constData(), value, nullptr);
        else
            gconf_client_unset(m_client, m_key.constData(), nullptr);
    }

private:
    static void onChanged(GConfClient *, guint, GConfEntry *entry, void *self)
    {
        const auto *watch = static_cast<Watch *>(self);
        if (watch->m_key == gconf_entry_get_key(entry)) // and not a key below it
            emit watch->m_item->valueChanged();
    }

    GConfItem *const m_item;
    const QByteArray m_key;
    const QByteArray m_folder;
    GConfClient *const m_client;
    guint m_notice = 0;
};

GConfItem::GConfItem(const QString &key, QObject *parent)
    : QObject(parent)
{
    const QByteArray path = key.toUtf8();
    if (gconf_valid_key(path.constData(), nullptr))
        m_watch = std::make_unique<Watch>(this, path);
}

GConfItem::~GConfItem() = default;

QVariant GConfItem::value() const
{
    return m_watch ? toQt(m_watch->read().get()) : QVariant();
}

void GConfItem::set(const QVariant &value)
{
    const Value wanted = fromQt(value);
    if (!m_watch || (!wanted && value.isValid()))
        return;
    // Writing the same again would cost a call and change nothing.
    const Value current = m_watch->read();
    if (wanted && current ? gconf_value_compare(wanted.get(), current.get()) != 0 : wanted != current)
        m_watch->write(wanted.get());
}
