#pragma once

#include "platform/geoclueclients.h"
#include "platform/veskrules.h"

#include <QDBusConnection>
#include <QTimer>
#include <QVariantMap>

#include <chrono>
#include <optional>

class QDBusObjectPath;
class QDBusPendingCall;

// One request for a position: the conversation with GeoClue, from its client object to the answer.
class GeoClueRequest : public QObject
{
    Q_OBJECT
public:
    struct Terms {
        unsigned technologyMask;
        VeskPacketDataUsage usage;
        std::chrono::milliseconds workingTime; // until the answer
        std::chrono::milliseconds settle;      // for better locations after the first
        std::chrono::milliseconds requestedAt; // since 1970
    };

    GeoClueRequest(const QDBusConnection &bus, GeoClueClients &clients, const Terms &terms, QObject *parent);
    ~GeoClueRequest() override; // gives its client object back

    void start();

signals:
    // Once, from the event loop. The position is the answer when error is vesk::Success.
    void finished(int error, const VeskPosition &position);

private slots: // called by name, from the bus
    void onLocationUpdated(const QDBusObjectPath &before, const QDBusObjectPath &location);
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed,
                             const QStringList &invalidated);

private:
    void askGeoClue();
    void onClientCreated(const GeoClueClient &client);
    void onLocation(const NetworkLocation &location);
    void finishWithBest();
    void fail(const QDBusError &error);
    void finish(int error);
    void finish(int error, const VeskPosition &position);
    void leaveGeoClue();
    void setProperty(const QString &name, const QVariant &value);
    void expectSuccess(const QDBusPendingCall &call);

    QDBusConnection m_bus;
    GeoClueClients &m_clients;
    const Terms m_terms;
    LocationChoice m_choice;
    std::optional<GeoClueClient> m_client;
    QTimer m_timeout;
    QTimer m_settle;
    bool m_finished = false;
};
