#pragma once

#include "engine/enginesidecodec.h"
#include "engine/filedescriptor.h"
#include "orvd-gpsd/sendqueue.h"
#include "orvd-gpsd/sessiontable.h"
#include "platform/clock.h"

#include <QObject>

#include <memory>

class QSocketNotifier;

// One connected daemon: its sessions, its requests, and what is sent to it. Nothing here waits for
// the daemon: messages wait for it, and what it does not read in time is lost to it.
namespace orvdgpsd {
class DaemonConnection : public QObject
{
    Q_OBJECT
public:
    DaemonConnection(FileDescriptor socket, const Clock &clock);
    ~DaemonConnection() override;

    SessionTable &sessions() { return m_sessions; }
    void send(const QByteArray &message);

signals:
    void requested(const engineside::Request &request);
    void closed();

private:
    void readRequests();
    void sendWaiting();

    const Clock &m_clock;
    FileDescriptor m_socket;
    std::unique_ptr<QSocketNotifier> m_readable;
    std::unique_ptr<QSocketNotifier> m_writable; // enabled while something waits
    SendQueue m_queue;
    SessionTable m_sessions;
    bool m_stalled = false; // the daemon has not read for so long that messages were dropped
};
} // namespace orvdgpsd
