#pragma once

#include "engine/enginesidecodec.h"
#include "engine/filedescriptor.h"
#include "orvd-gpsd/sessiontable.h"

#include <QObject>

#include <memory>

class QSocketNotifier;

// One connected daemon: its sessions, its requests, and what is sent to it. Nothing here waits for
// the daemon: what it does not read in time is lost to it.
namespace orvdgpsd {
class DaemonConnection : public QObject
{
    Q_OBJECT
public:
    explicit DaemonConnection(FileDescriptor socket);
    ~DaemonConnection() override;

    SessionTable &sessions() { return m_sessions; }
    void send(const QByteArray &message);

signals:
    void requested(const engineside::Request &request);
    void closed();

private:
    void readRequests();

    FileDescriptor m_socket;
    std::unique_ptr<QSocketNotifier> m_notifier;
    SessionTable m_sessions;
    quint64 m_dropped = 0; // since the daemon read last
};
} // namespace orvdgpsd
