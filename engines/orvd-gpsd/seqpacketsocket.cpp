#include "orvd-gpsd/seqpacketsocket.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace orvdgpsd {
namespace {
// Waiting connections; there is one daemon in a session.
constexpr int backlog = 8;
// Who may connect is for the socket's directory to say: the daemon runs as whoever is logged in.
constexpr mode_t socketMode = 0666;

bool fill(sockaddr_un &address, const QByteArray &path)
{
    if (path.isEmpty() || std::size_t(path.size()) >= sizeof address.sun_path)
        return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), std::size_t(path.size()));
    return true;
}

// The socket calls take every family's address through the one type.
const sockaddr *generic(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

FileDescriptor newSocket()
{
    return FileDescriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}
} // namespace

ListeningSocket::~ListeningSocket()
{
    struct stat now = {};
    if (m_socket.isValid() && ::stat(m_path.constData(), &now) == 0 && now.st_dev == m_device &&
        now.st_ino == m_inode)
        ::unlink(m_path.constData());
}

bool ListeningSocket::fail(const QString &what)
{
    m_error = what;
    return false;
}

bool ListeningSocket::makeRoom(const QByteArray &path)
{
    struct stat old = {};
    if (::lstat(path.constData(), &old) != 0)
        return errno == ENOENT || fail(qt_error_string(errno));
    if (!S_ISSOCK(old.st_mode))
        return fail(QStringLiteral("there is something that is no socket"));
    sockaddr_un address = {};
    const FileDescriptor probe = newSocket();
    if (!probe.isValid() || !fill(address, path))
        return fail(qt_error_string(errno));
    // EAGAIN: it is served, but so many wait to be accepted that there is no place for the probe.
    if (::connect(probe.get(), generic(address), sizeof address) == 0 || errno == EAGAIN)
        return fail(QStringLiteral("another engine serves it"));
    if (errno != ECONNREFUSED)
        return fail(qt_error_string(errno));
    return ::unlink(path.constData()) == 0 || fail(qt_error_string(errno));
}

bool ListeningSocket::listen(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address = {};
    if (!fill(address, name))
        return fail(QStringLiteral("the path is empty or too long"));
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return fail(QStringLiteral("its directory cannot be made"));
    if (!makeRoom(name))
        return false;
    FileDescriptor socket = newSocket();
    if (!socket.isValid() || ::bind(socket.get(), generic(address), sizeof address) != 0 ||
        ::chmod(name.constData(), socketMode) != 0 || ::listen(socket.get(), backlog) != 0)
        return fail(qt_error_string(errno));
    struct stat made = {};
    if (::stat(name.constData(), &made) != 0)
        return fail(qt_error_string(errno));
    m_path = name;
    m_device = made.st_dev;
    m_inode = made.st_ino;
    m_socket = std::move(socket);
    return true;
}

ListeningSocket::Accepted ListeningSocket::accept()
{
    FileDescriptor socket(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    const bool failed = !socket.isValid() && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
    return {std::move(socket), failed ? errno : 0};
}

SendResult sendPacket(int fd, const QByteArray &packet)
{
    const ssize_t sent =
        ::send(fd, packet.constData(), std::size_t(packet.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0)
        return SendResult::Sent;
    return errno == EAGAIN || errno == ENOBUFS ? SendResult::PeerDoesNotRead : SendResult::Failed;
}

Received receivePacket(int fd, std::span<std::byte> buffer)
{
    const ssize_t length = ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (length > 0)
        return {Received::Kind::Packet, buffer.first(std::size_t(length))};
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return {Received::Kind::Nothing, {}};
    return {Received::Kind::Closed, {}};
}
} // namespace orvdgpsd
