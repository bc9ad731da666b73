#pragma once

#include "engine/filedescriptor.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <span>

// Sequenced-packet Unix sockets, as far as an engine needs them.
namespace orvdgpsd {
// The socket a daemon connects to. It makes the directory if that is missing, takes the place of a
// socket that nobody serves any more, and refuses one that is served, and whatever is no socket.
class ListeningSocket
{
public:
    ListeningSocket() = default;
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;
    ~ListeningSocket(); // removes the socket file, if it is still ours

    [[nodiscard]] bool listen(const QString &path);
    QString errorText() const { return m_error; }
    int fd() const { return m_socket.get(); }
    struct Accepted {
        FileDescriptor socket; // not open when nobody waits, or when there was an error
        int error = 0;         // why one who waits cannot be taken in (EMFILE, ...)
    };
    Accepted accept();

private:
    bool makeRoom(const QByteArray &path);
    bool fail(const QString &what);

    FileDescriptor m_socket;
    QByteArray m_path;
    quint64 m_device = 0;
    quint64 m_inode = 0;
    QString m_error;
};

enum class SendResult { Sent, PeerDoesNotRead, Failed };
SendResult sendPacket(int fd, const QByteArray &packet); // never waits

struct Received {
    enum class Kind { Packet, Nothing, Closed } kind;
    std::span<const std::byte> packet;
};
Received receivePacket(int fd, std::span<std::byte> buffer); // never waits
} // namespace orvdgpsd
