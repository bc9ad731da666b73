#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QMap>
#include <QStringList>

#include <optional>

// GeoClue 2.6 on the system bus of the test, answering from the test's event loop. It behaves like the
// real one, except that it keeps the clients of a peer that left the bus, so that they can be counted.
class FakeGeoClue : public QDBusVirtualObject
{
public:
    struct Location {
        double latitude = 60.17;
        double longitude = 24.94;
        double accuracy = 50.0;
        double altitude = -1.7976931348623157e308; // GeoClue's "unknown"
        quint64 seconds = 0;
        quint64 microseconds = 0;
    };

    FakeGeoClue(); // on the bus, with an agent, knowing no location
    ~FakeGeoClue() override;

    void vanish(); // like a crash: it leaves the bus, its clients are gone
    void appear(); // as a new process

    void agentVanishes(); // from now on nobody gets a client
    void agentAppears();  // all who waited get theirs
    void becomeSilent();  // from now on no call is answered, ever
    void refuseStart(const QString &errorName);
    void switchOff();                       // clients become inactive, without a word
    void answerLate(const QString &method); // keeps the replies until releaseAnswers()
    void releaseAnswers();
    void cache(const Location &location);  // told at once to everyone who starts
    void locate(const Location &location); // tells all who have started
    void announce(const QString &path);    // tells them of a location object of that path

    // "CreateClient", "Set DesktopId lodestard", "Start", "GetAll /path", ... since the last time.
    QStringList takeCalls();
    QStringList calls() const { return m_calls; } // the same, and they are remembered
    int clientCount() const { return int(m_clients.size()); }
    int activeCount() const;
    int waitingForAgent() const { return int(m_waiting.size()); }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &path) const override;

private:
    struct Client {
        QString owner;
        QVariantMap properties;
        bool active = false;
        QString location = QStringLiteral("/");
        int locations = 0;
    };

    void handleManager(const QDBusMessage &call);
    void handleClient(const QDBusMessage &call, Client &client);
    void handleLocation(const QDBusMessage &call);
    void createClient(const QDBusMessage &call);
    void start(const QDBusMessage &call, Client &client);
    void tell(const QString &path, Client &client, const Location &location);
    void tellOf(const QString &path, Client &client, const QString &location);
    void setActive(const QString &path, Client &client, bool active);
    void answer(const QDBusMessage &call, const QDBusMessage &reply);
    QString connectionName() const;
    QDBusConnection bus() const;

    int m_generation = 0;
    int m_created = 0;
    bool m_hasAgent = true;
    bool m_silent = false;
    std::optional<QString> m_refusal;
    std::optional<Location> m_cached;
    QString m_lateMethod;
    QList<QDBusMessage> m_lateReplies;
    QList<QDBusMessage> m_waiting;
    QMap<QString, Client> m_clients;
    QMap<QString, Location> m_locations;
    QStringList m_calls;
};
