#include "platform/deadlineworker.h"
#include "platform/gconfitem.h"
#include "platform/storedkey.h"

#undef signals // a member's name in GLib's headers
#include <dconf.h>
#include <gio/gio.h>

using namespace std::chrono_literals;

namespace {

constexpr auto LongestWrite = 2000ms; // what a service that hangs may cost the event loop, once

using Value = std::shared_ptr<GVariant>; // null: unset

Value own(GVariant *value)
{
    return value ? Value(g_variant_ref_sink(value), g_variant_unref) : Value();
}

Value fromQt(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return own(g_variant_new_boolean(value.toBool()));
    case QMetaType::Int:
        return own(g_variant_new_int32(value.toInt()));
    case QMetaType::Double:
        return own(g_variant_new_double(value.toDouble()));
    case QMetaType::QString:
        return own(g_variant_new_string(value.toString().toUtf8().constData()));
    default:
        return {};
    }
}

QVariant toQt(GVariant *value)
{
    if (!value)
        return {};
    switch (g_variant_classify(value)) {
    case G_VARIANT_CLASS_BOOLEAN:
        return bool(g_variant_get_boolean(value));
    case G_VARIANT_CLASS_INT32:
        return g_variant_get_int32(value);
    case G_VARIANT_CLASS_DOUBLE:
        return g_variant_get_double(value);
    case G_VARIANT_CLASS_STRING:
        return QString::fromUtf8(g_variant_get_string(value, nullptr));
    default:
        return {};
    }
}

bool areEqual(const Value &one, const Value &other)
{
    return one && other ? bool(g_variant_equal(one.get(), other.get())) : one == other;
}

// dconf as all items use it. Reads look into the database file itself, without a message.
class Dconf
{
public:
    // Lives as long as somebody uses it
    static std::shared_ptr<Dconf> instance()
    {
        static std::weak_ptr<Dconf> current;
        auto dconf = current.lock();
        if (!dconf)
            current = dconf = std::make_shared<Dconf>();
        return dconf;
    }

    // GLib would end the process when the bus ends, on the connection that libdconf has made.
    static void outliveTheBus()
    {
        if (GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
            g_dbus_connection_set_exit_on_close(bus, FALSE);
            g_object_unref(bus);
        }
    }

    DConfClient *client() const { return m_client.get(); }
    Value read(const QByteArray &key) const { return own(dconf_client_read(client(), key.constData())); }
    void write(const QByteArray &key, const Value &value);

private:
    std::shared_ptr<DConfClient> m_client{dconf_client_new(), g_object_unref}; // a late write's too
    DeadlineWorker m_worker{LongestWrite};
};

void Dconf::write(const QByteArray &key, const Value &value)
{
    // A write costs the service a file and the disk a flush; writing the same again changes nothing.
    if (!m_worker.isBusy() && areEqual(read(key), value))
        return;
    m_worker.run(key, [client = m_client, key, value] {
        dconf_client_write_sync(client.get(), key.constData(), value.get(), nullptr, nullptr, nullptr);
    });
}

class DconfKey : public StoredKey
{
public:
    DconfKey(GConfItem &item, const QByteArray &name)
        : m_item(item)
        , m_key(name)
        , m_told(m_dconf->read(name))
    {
        m_handler = g_signal_connect(m_dconf->client(), "changed", G_CALLBACK(onChanged), this);
        dconf_client_watch_fast(m_dconf->client(), m_key.constData());
        // Not before the event loop: by then libdconf has connected, beside the program's start.
        QMetaObject::invokeMethod(&item, &Dconf::outliveTheBus, Qt::QueuedConnection);
    }
    ~DconfKey() override
    {
        dconf_client_unwatch_fast(m_dconf->client(), m_key.constData());
        g_signal_handler_disconnect(m_dconf->client(), m_handler);
    }

    QVariant read() const override { return toQt(m_dconf->read(m_key).get()); }
    void write(const QVariant &value) override { m_dconf->write(m_key, fromQt(value)); }

private:
    // Not every call is news for this key: dconf tells all items of every watched key, and also speaks
    // up when a change and the beginning of a watch cross.
    static void onChanged(DConfClient *, const char *, const char *const *, const char *, DconfKey *self)
    {
        const Value value = self->m_dconf->read(self->m_key);
        if (areEqual(value, self->m_told))
            return;
        self->m_told = value;
        emit self->m_item.valueChanged();
    }

    GConfItem &m_item;
    const std::shared_ptr<Dconf> m_dconf = Dconf::instance();
    const QByteArray m_key;
    Value m_told; // what the item's listeners know
    gulong m_handler = 0;
};

} // namespace

std::unique_ptr<StoredKey> StoredKey::open(GConfItem &item, const QByteArray &name)
{
    if (!dconf_is_key(name.constData(), nullptr))
        return nullptr;
    return std::make_unique<DconfKey>(item, name);
}
