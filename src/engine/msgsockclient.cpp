#include "engine/msgsockclient.h"

#include "engine/messagereader.h"

#include <QDeadlineTimer>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

// An engine that does not read must not stop the daemon for longer than this.
constexpr std::chrono::seconds SendTimeout{2};

// Also bounds connect(): a peer whose backlog is full would block it for ever.
bool limitSendTime(int fd)
{
    const timeval timeout{.tv_sec = SendTimeout.count(), .tv_usec = 0};
    return ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) == 0;
}

// A call with a time-out ends with EINTR at every signal: it is made again, but signal after signal
// must not prolong it for ever.
template <typename Call>
ssize_t uninterrupted(Call call)
{
    const QDeadlineTimer deadline(SendTimeout);
    ssize_t result = call();
    while (result == -1 && errno == EINTR && !deadline.hasExpired())
        result = call();
    return result;
}

// The path counts without a terminating zero; errno tells why it failed.
bool connectTo(int fd, const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length > sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path, length);
    const auto addressLength = socklen_t(offsetof(sockaddr_un, sun_path) + length);
    return uninterrupted([&] {
               return ::connect(fd, reinterpret_cast<const sockaddr *>(&address), addressLength);
           }) == 0;
}

} // namespace

MsgSockClient::MsgSockClient(QObject *parent)
    : QObject(parent)
{
}

MsgSockClient::~MsgSockClient()
{
    notifier.reset(); // while its descriptor is still open
}

int MsgSockClient::connect(const char *path)
{
    if (!path || *path == '\0')
        return -1;

    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!socket.isValid()) {
        qWarning("MsgSockClient::%s: socket() : %s", __func__, std::strerror(errno));
        return -1;
    }
    if (!limitSendTime(socket.get()) || !connectTo(socket.get(), path)) {
        qCritical("MsgSockClient::%s: (socket) connect() : %s", __func__, std::strerror(errno));
        return -1;
    }
    qDebug("MsgSockClient::%s: Connected to orv.", __func__);

    dropNotifier(); // of a connection that this one replaces
    fd = std::move(socket);
    notifier = std::make_unique<QSocketNotifier>(fd.get(), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, this, &MsgSockClient::inMessage);
    return 0;
}

int MsgSockClient::send(const void *message)
{
    const PacketView start({static_cast<const std::byte *>(message), layout::header::size});
    const std::size_t length = wire::readHeader(start)->length;

    const ssize_t sent = uninterrupted([&] { return ::send(fd.get(), message, length, MSG_NOSIGNAL); });
    if (sent == -1) {
        qCritical("MsgSockClient::%s: send() : %s", __func__, std::strerror(errno));
        return -1;
    }
    return 0;
}

void MsgSockClient::shutdown()
{
    qDebug("MsgSockClient::%s()", __func__);
    dropNotifier();
    fd.reset();
    emit connectionLost(); // the last step: a receiver may connect anew
}

// It may be the notifier's own signal that led here.
void MsgSockClient::dropNotifier()
{
    if (!notifier)
        return;
    notifier->setEnabled(false);
    notifier.release()->deleteLater();
}

void MsgSockClient::inMessage(int)
{
    // A whole message or nothing: the socket keeps the boundaries.
    std::array<std::byte, layout::longestMessage> buffer;
    const ssize_t count = ::recv(fd.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0) {
        m_received = std::span(buffer).first(std::size_t(count));
        emit messageReceived(reinterpret_cast<const char *>(buffer.data()));
        m_received = {};
    } else if (count == 0) {
        qWarning("MsgSockClient::%s: Connection to ORV lost.", __func__);
        shutdown();
    } else if (errno != EAGAIN) {
        qErrnoWarning(errno, "MsgSockClient::%s: Unable to read!", __func__);
    }
}
