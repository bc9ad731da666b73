#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QStringList>

#include <optional>

// A desktop's screen saver under either name. It answers and signals when the test lets it.
class FakeScreenSaver : public QDBusVirtualObject
{
    Q_OBJECT
public:
    static inline const QString Freedesktop = QStringLiteral("org.freedesktop.ScreenSaver");
    static inline const QString Gnome = QStringLiteral("org.gnome.ScreenSaver");

    enum class Answers { Properly, WithAnError, WithAText, Never };

    FakeScreenSaver(const QString &name, bool active, Answers answers = Answers::Properly);
    ~FakeScreenSaver() override;

    void setActive(bool active); // and tells
    void leave();                // the name, not the bus
    // What was called since the last taking, "GetActive", "Introspect", ...
    QStringList calls() const { return m_calls; }
    QStringList takeCalls();
    void answerHeldCalls(); // with what held when they came

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &) const override { return {}; }

private:
    void answer(const QDBusMessage &call);

    const QString m_name;
    const QString m_path;
    bool m_active;
    Answers m_answers;
    QStringList m_calls;
    QList<QDBusMessage> m_held;
    QDBusConnection m_bus;
};
