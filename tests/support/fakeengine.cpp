#include "support/fakeengine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>

namespace {

FileDescriptor listenAt(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::size_t(name.size()) > sizeof address.sun_path)
        return {};
    std::copy(name.begin(), name.end(), address.sun_path);
    const auto length = socklen_t(offsetof(sockaddr_un, sun_path) + std::size_t(name.size()));

    FileDescriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (::bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0 ||
        ::listen(listener.get(), 0) != 0)
        return {};
    return listener;
}

} // namespace

FakeEngine::FakeEngine(const QString &path, Reading reading)
    : m_path(path)
    , m_reading(reading)
    , m_listener(listenAt(path))
{
    if (!isListening())
        return;
    m_listenNotifier = std::make_unique<QSocketNotifier>(m_listener.get(), QSocketNotifier::Read);
    connect(m_listenNotifier.get(), &QSocketNotifier::activated, this, &FakeEngine::acceptConnection);
}

FakeEngine::~FakeEngine()
{
    drop();
    m_listenNotifier.reset();
    if (isListening())
        QFile::remove(m_path);
}

QList<QByteArray> FakeEngine::takeReceived()
{
    if (!isConnected())
        acceptConnection();
    while (readPacket()) {
    }
    return std::exchange(m_received, {});
}

bool FakeEngine::send(const QByteArray &packet)
{
    if (!isConnected())
        acceptConnection();
    return ::send(m_connection.get(), packet.constData(), std::size_t(packet.size()), MSG_NOSIGNAL) ==
           packet.size();
}

void FakeEngine::drop()
{
    m_readNotifier.reset();
    m_connection.reset();
}

void FakeEngine::acceptConnection()
{
    FileDescriptor connection(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isValid())
        return;
    drop();
    m_connection = std::move(connection);
    ++m_connections;
    m_left = false;
    if (m_reading == NeverReads)
        return;
    m_readNotifier = std::make_unique<QSocketNotifier>(m_connection.get(), QSocketNotifier::Read);
    connect(m_readNotifier.get(), &QSocketNotifier::activated, this, &FakeEngine::readPackets);
}

void FakeEngine::readPackets()
{
    while (readPacket()) {
    }
}

bool FakeEngine::readPacket()
{
    std::array<char, 8192> buffer;
    const auto count = ::recv(m_connection.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0)
        m_received.append(QByteArray(buffer.data(), qsizetype(count)));
    else if (count == 0) {
        m_left = true; // the test decides what follows
        if (m_readNotifier)
            m_readNotifier->setEnabled(false);
    }
    return count > 0;
}
