#pragma once

#include <QList>
#include <QQueue>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

class ClientApp;

// A configuration request that waits for the user's consent.
struct PendingRequest {
    int id;
    int command;
    int method;
    int interval; // ms

    bool operator==(const PendingRequest &) const = default;
};

// The clients in registration order, and the lists that name some of them.
class ClientRegistry
{
public:
    ClientRegistry();
    ~ClientRegistry();
    ClientRegistry(const ClientRegistry &) = delete;
    ClientRegistry &operator=(const ClientRegistry &) = delete;

    ClientApp &add(const QString &service, const QString &path, const QString &interfaceName);
    bool remove(int id); // the proxy may be on the stack: it goes on the next turn of the loop
    ClientApp *find(int id) const;
    // Exact id first, then the low 16 bits of a client whose satellite session runs.
    ClientApp *findSession(quint16 sessionId) const;
    // Calls back for each client in registration order. Clients may come and go meanwhile: who
    // leaves is not visited any more, and who comes is not visited yet.
    template <typename Visitor>
    void forEach(Visitor visit) const
    {
        for (const int id : ids()) {
            if (ClientApp *client = find(id))
                visit(*client);
        }
    }
    bool anyStartedSatelliteClient() const;

    bool enrolFreeFix(int id); // false when it is enrolled already
    void dropFreeFix(int id) { m_freeFixIds.removeOne(id); }
    QList<int> freeFixIds() const { return m_freeFixIds; }

    void addPrestart(int id) { m_prestartIds.enqueue(id); }
    std::optional<int> takeOldestPrestart();

    void park(const PendingRequest &request) { m_pending.enqueue(request); }
    std::optional<PendingRequest> takeParked();

private:
    using Clients = std::vector<std::unique_ptr<ClientApp>>;
    Clients::const_iterator position(qint64 id) const;
    QList<int> ids() const;

    int nextClientId = 6000;
    Clients m_clients; // ids only grow, so the list is sorted
    QList<int> m_freeFixIds;
    QQueue<int> m_prestartIds;
    QQueue<PendingRequest> m_pending;
};
