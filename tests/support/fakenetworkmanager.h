#pragma once

#include <QDBusVirtualObject>
#include <QVariantMap>

// NetworkManager's view of the way out, on the system bus of the test.
class FakeNetworkManager : public QDBusVirtualObject
{
public:
    FakeNetworkManager(const QString &primaryConnectionType, quint32 metered);
    ~FakeNetworkManager() override;

    void becomeSilent() { m_silent = true; } // answers no call from now on
    int calls() const { return m_calls; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &path) const override;

private:
    QVariantMap m_properties;
    int m_calls = 0;
    bool m_silent = false;
};
