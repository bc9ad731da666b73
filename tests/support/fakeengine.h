#pragma once

#include "engine/filedescriptor.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

// The engine's side of the socket in the test process: a real server for one daemon at a time. It
// keeps every packet that arrives and sends what the test tells it to.
class FakeEngine : public QObject
{
    Q_OBJECT
public:
    enum Reading { ReadsPackets, NeverReads };

    // Listens at once; missing directories are made, a stale socket is removed.
    explicit FakeEngine(const QString &path, Reading reading = ReadsPackets);
    ~FakeEngine() override;

    [[nodiscard]] bool isListening() const { return m_listener.isValid(); }
    [[nodiscard]] bool isConnected() const { return m_connection.isValid(); }
    [[nodiscard]] bool isLeft() const { return m_left; }            // the daemon has closed the connection
    [[nodiscard]] int connections() const { return m_connections; } // accepted so far

    [[nodiscard]] const QList<QByteArray> &received() const { return m_received; }
    // Reads what has come in, without an event loop; hands everything over and forgets it.
    QList<QByteArray> takeReceived();

    bool send(const QByteArray &packet);
    void drop(); // closes the connection; unread packets make it a reset for the peer

private:
    void acceptConnection();
    void readPackets();
    bool readPacket();

    QString m_path;
    Reading m_reading;
    FileDescriptor m_listener;
    FileDescriptor m_connection;
    std::unique_ptr<QSocketNotifier> m_listenNotifier;
    std::unique_ptr<QSocketNotifier> m_readNotifier;
    QList<QByteArray> m_received;
    int m_connections = 0;
    bool m_left = false;
};
