#pragma once

#include "engine/enginesidecodec.h"
#include "orvd-gpsd/epochassembler.h"
#include "orvd-gpsd/gpsdclient.h"
#include "orvd-gpsd/seqpacketsocket.h"
#include "platform/clock.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

class QSocketNotifier;

// The engine: daemons on one side, gpsd on the other. gpsd is connected to only while somebody waits
// for a position, so that it can put the receiver to sleep otherwise.
namespace orvdgpsd {
class DaemonConnection;

class GpsdEngine : public QObject
{
    Q_OBJECT
public:
    GpsdEngine(GpsdAddress address, std::chrono::milliseconds settleTime,
               const Clock &clock = Clock::system());
    ~GpsdEngine() override;

    [[nodiscard]] bool listen(const QString &path);
    QString errorText() const { return m_listener.errorText(); }

private:
    using Milliseconds = std::chrono::milliseconds;
    struct SingleFix { // a SUPL request that waits for its answer
        DaemonConnection *daemon;
        Milliseconds deadline;
    };

    void acceptDaemons();
    void acceptLater(int error);
    void dropDaemon(DaemonConnection *daemon);
    void answer(DaemonConnection &daemon, const engineside::Request &request);
    void answer(DaemonConnection &daemon, const GnssRequest &request);
    void answer(DaemonConnection &daemon, const SuplRequest &request);
    void answer(DaemonConnection &daemon, const DeleteAssistance &request);
    void answer(DaemonConnection &daemon, const RegisterPrivacy &request);
    void answer(DaemonConnection &daemon, const LocationReply &request);
    void answer(DaemonConnection &daemon, const SuplServers &request);

    void connectWhenNeeded();
    void openGpsd();
    void openGpsdLater();
    void leaveGpsd();
    void onGpsdLost();
    void onSettled();
    void onSingleFixTimeout();

    void onReported(const std::optional<Epoch> &done);
    void deliver(const Epoch &epoch);
    void answerSingleFixes();
    bool isNeeded() const;

    const Clock &m_clock;
    ListeningSocket m_listener;
    std::unique_ptr<QSocketNotifier> m_newDaemon;
    std::vector<std::unique_ptr<DaemonConnection>> m_daemons;
    std::vector<SingleFix> m_singleFixes;

    GpsdClient m_gpsd;
    EpochAssembler m_assembler;
    Milliseconds m_settleTime;
    QTimer m_acceptAgain{this};
    QTimer m_settle{this};    // silence that ends an epoch
    QTimer m_reconnect{this}; // to gpsd
    QTimer m_linger{this};    // before gpsd is left alone
    QTimer m_singleFixTimer{this};
    Milliseconds m_reconnectDelay{}; // the next one; grows until gpsd says something
    bool m_unreachable = false;      // and that has been told

    std::optional<SkyReport> m_sky; // the latest
    quint64 m_skyNumber = 0;
    std::optional<FixReport> m_fix; // the latest, for single fixes
    Milliseconds m_fixArrival{};
};
} // namespace orvdgpsd
