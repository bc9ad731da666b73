#pragma once

#include "engine/filedescriptor.h"

#include <QObject>

#include <cstddef>
#include <memory>
#include <span>

class QSocketNotifier;

// The transport under the engine link: one sequenced-packet socket, a whole message at a time.
// Of a message's content it reads nothing but the length in the header of what it sends.
class MsgSockClient : public QObject
{
    Q_OBJECT
public:
    explicit MsgSockClient(QObject *parent = nullptr);
    ~MsgSockClient() override;

    // Connects to the socket at `path`; 0 on success, -1 on any failure (logged, unless there is no path).
    int connect(const char *path);
    // Sends as many bytes as the message's header says; 0 on success, -1 when the system refused them
    // or the engine took none of them for 2 s (both logged). The caller keeps the buffer.
    int send(const void *message);
    // Closes the connection and announces it.
    void shutdown();

    [[nodiscard]] bool isConnected() const { return notifier != nullptr; }
    // The packet that is being received, exactly as long as it arrived; empty outside messageReceived().
    [[nodiscard]] std::span<const std::byte> received() const { return m_received; }

signals: // the order is part of the interface
    // One whole message. It stands in the receive buffer during the emission only, for direct
    // connections; received() knows its length.
    void messageReceived(const char *message);
    // The peer closed the connection; once for each connection.
    void connectionLost();

private slots:
    void inMessage(int);

private:
    void dropNotifier();

    std::unique_ptr<QSocketNotifier> notifier; // null while not connected
    FileDescriptor fd;
    std::span<const std::byte> m_received;
};
