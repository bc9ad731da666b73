#include "platform/contextproperty.h"

#include "platform/screensaver.h"

using namespace Qt::StringLiterals;

ContextProperty::ContextProperty(const QString &key, const QDBusConnection &bus)
    : m_key(key)
    , m_bus(bus)
{
}

void ContextProperty::subscribe()
{
    if (!m_sources.isEmpty() || m_key != "Screen.Blanked"_L1)
        return;
    // Both are followed: a desktop may offer the first name without an answer behind it.
    for (const QString &name : {u"org.freedesktop.ScreenSaver"_s, u"org.gnome.ScreenSaver"_s}) {
        auto *source = new ScreenSaver(m_bus, name, this);
        connect(source, &ScreenSaver::changed, this, &ContextProperty::refresh);
        m_sources.append(source);
    }
}

void ContextProperty::unsubscribe()
{
    // One of them may be what led here.
    for (ScreenSaver *source : std::as_const(m_sources)) {
        source->disconnect(this);
        source->deleteLater();
    }
    m_sources.clear();
    m_value.clear();
}

void ContextProperty::refresh()
{
    QVariant known;
    for (const ScreenSaver *source : std::as_const(m_sources)) {
        if (const auto active = source->isActive()) {
            known = *active;
            break;
        }
    }
    if (known == m_value)
        return;
    m_value = known;
    emit valueChanged();
}
