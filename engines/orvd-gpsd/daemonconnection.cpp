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

DaemonConnection::DaemonConnection(FileDescriptor socket, const Clock &clock)
    : m_clock(clock)
    , m_socket(std::move(socket))
    , m_readable(std::make_unique<QSocketNotifier>(m_socket.get(), QSocketNotifier::Read))
    , m_writable(std::make_unique<QSocketNotifier>(m_socket.get(), QSocketNotifier::Write))
{
    m_writable->setEnabled(false);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &DaemonConnection::readRequests);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &DaemonConnection::sendWaiting);
}

DaemonConnection::~DaemonConnection() = default;

void DaemonConnection::send(const QByteArray &message)
{
    m_queue.push(message, m_clock.monotonic());
    sendWaiting();
}

void DaemonConnection::sendWaiting()
{
    bool blocked = false;
    while (const QByteArray *message = m_queue.next(m_clock.monotonic())) {
        blocked = sendPacket(m_socket.get(), *message) == SendResult::PeerDoesNotRead;
        if (blocked)
            break;
        m_queue.sent(); // or it failed, and the next read tells that the connection has ended
    }
    m_writable->setEnabled(blocked);
    if (m_queue.takeDropped() > 0 && !std::exchange(m_stalled, true))
        qWarning("The daemon does not read, messages to it are dropped");
    if (!blocked && std::exchange(m_stalled, false))
        qInfo("The daemon reads again");
}

void DaemonConnection::readRequests()
{
    std::array<std::byte, layout::longestMessage> buffer;
    for (int i = 0; i < requestsAtOnce; ++i) {
        const Received received = receivePacket(m_socket.get(), buffer);
        if (received.kind == Received::Kind::Nothing)
            return;
        if (received.kind == Received::Kind::Closed) {
            m_readable->setEnabled(false);
            m_writable->setEnabled(false);
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
