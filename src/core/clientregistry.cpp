#include "core/clientregistry.h"

#include "client/clientapp.h"
#include "core/methodselection.h"

#include <algorithm>

namespace {

template <typename T>
std::optional<T> takeFirst(QQueue<T> &queue)
{
    return queue.isEmpty() ? std::nullopt : std::optional<T>(queue.dequeue());
}

} // namespace

ClientRegistry::ClientRegistry() = default;
ClientRegistry::~ClientRegistry() = default;

ClientApp &ClientRegistry::add(const QString &service, const QString &path, const QString &interfaceName)
{
    m_clients.push_back(std::make_unique<ClientApp>(nextClientId++, service, path, interfaceName));
    return *m_clients.back();
}

ClientRegistry::Clients::const_iterator ClientRegistry::position(qint64 id) const
{
    const auto found =
        std::lower_bound(m_clients.begin(), m_clients.end(), id,
                         [](const auto &client, qint64 wanted) { return client->id() < wanted; });
    return found != m_clients.end() && (*found)->id() == id ? found : m_clients.end();
}

bool ClientRegistry::remove(int id)
{
    m_freeFixIds.removeOne(id);
    const auto found = position(id);
    if (found == m_clients.end())
        return false;
    const auto mutableFound = m_clients.begin() + (found - m_clients.cbegin());
    mutableFound->release()->deleteLater();
    m_clients.erase(mutableFound);
    return true;
}

ClientApp *ClientRegistry::find(int id) const
{
    const auto found = position(id);
    return found == m_clients.end() ? nullptr : found->get();
}

ClientApp *ClientRegistry::findSession(quint16 sessionId) const
{
    if (ClientApp *exact = find(sessionId))
        return exact;
    for (qint64 id = qint64(sessionId) + 0x10000; id < nextClientId; id += 0x10000) {
        const auto found = position(id);
        if (found != m_clients.end() && (*found)->isGnssActive())
            return found->get();
    }
    return nullptr;
}

QList<int> ClientRegistry::ids() const
{
    QList<int> result;
    result.reserve(qsizetype(m_clients.size()));
    for (const auto &client : m_clients)
        result.append(client->id());
    return result;
}

bool ClientRegistry::anyStartedSatelliteClient() const
{
    return std::any_of(m_clients.begin(), m_clients.end(), [](const auto &client) {
        return !client->isStopped() && Methods::hasSatellite(client->methods());
    });
}

bool ClientRegistry::enrolFreeFix(int id)
{
    if (m_freeFixIds.contains(id))
        return false;
    m_freeFixIds.append(id);
    return true;
}

std::optional<int> ClientRegistry::takeOldestPrestart()
{
    return takeFirst(m_prestartIds);
}

std::optional<PendingRequest> ClientRegistry::takeParked()
{
    return takeFirst(m_pending);
}
