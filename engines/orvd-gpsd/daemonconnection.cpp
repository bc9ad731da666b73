#include "orvd-gpsd/daemonconnection.h"

#include "engine/layout.h"
#include "orvd-gpsd/seqpacketsocket.h"

#include <QDebug>
#include <QSocketNotifier>

#include <array>
#include <utility>

namespace orvdgpsd {
namespace {
constexpr int requestsAtOnce = 64; // then the other connections have their turn
}

DaemonConnection::DaemonConnection(FileDescriptor socket)
    : m_socket(std::move(socket))
    , m_notifier(std::make_unique<QSocketNotifier>(m_socket.get(), QSocketNotifier::Read))
{
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &DaemonConnection::readRequests);
}

DaemonConnection::~DaemonConnection() = default;

void DaemonConnection::send(const QByteArray &message)
{
    switch (sendPacket(m_socket.get(), message)) {
    case SendResult::Sent:
        if (m_dropped > 0)
            qWarning("The daemon reads again, %llu messages were lost", std::exchange(m_dropped, 0));
        break;
    case SendResult::PeerDoesNotRead:
        if (m_dropped++ == 0)
            qWarning("The daemon does not read, messages to it are dropped");
        break;
    case SendResult::Failed:
        break; // the next read tells that the connection has ended
    }
}

void DaemonConnection::readRequests()
{
    std::array<std::byte, layout::longestMessage> buffer;
    for (int i = 0; i < requestsAtOnce; ++i) {
        const Received received = receivePacket(m_socket.get(), buffer);
        if (received.kind == Received::Kind::Nothing)
            return;
        if (received.kind == Received::Kind::Closed) {
            m_notifier->setEnabled(false);
            emit closed();
            return;
        }
        if (const auto request = engineside::readRequest(PacketView(received.packet)))
            emit requested(*request);
        else
            qWarning("Dropped a request that cannot be read, %zu bytes", received.packet.size());
    }
}
} // namespace orvdgpsd
