// What a plan costs when a thousand applications have running sessions and nothing changes for any
// of them, beside the floor: visiting a thousand records. Runs the daemon's own object with its real
// services, so it wants a private session bus and the sandbox's fixed paths.

#include "core/positiondaemon.h"
#include "engineframe.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTimer>

#include <array>
#include <atomic>
#include <benchmark/benchmark.h>
#include <memory>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int Clients = 1000;

// Takes whatever the daemon sends, on a thread of its own, and says nothing.
class SilentEngine
{
public:
    SilentEngine()
    {
        m_reader = std::thread([this] {
            const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            std::array<char, 8192> packet;
            while (recv(connection, packet.data(), packet.size(), 0) > 0)
                ++m_packets;
            close(connection);
        });
    }
    ~SilentEngine()
    {
        m_reader.join(); // the daemon has closed its end by now
        close(m_listener);
    }
    SilentEngine(const SilentEngine &) = delete;
    SilentEngine &operator=(const SilentEngine &) = delete;

    int packets() const { return m_packets; }

private:
    int m_listener = bench::listenAsEngine();
    std::atomic<int> m_packets = 0;
    std::thread m_reader;
};

// The daemon with a thousand started clients; made once, since its name on the bus is its own for good.
class Stage
{
public:
    Stage()
    {
        if (daemon.init() != 0)
            qFatal("the daemon does not start here");
        constexpr int StartWithMethodAndInterval = 0x01 | 0x04 | 0x08;
        for (int i = 0; i < Clients; ++i) {
            const int id = daemon.registerListener(u":9.%1"_s.arg(i), u"/bench/client"_s);
            daemon.configRequest(id, StartWithMethodAndInterval, 0xff, 1000);
        }
        // The engine's methods are on offer half a second after the connection.
        QTimer::singleShot(700, QCoreApplication::instance(), &QCoreApplication::quit);
        QCoreApplication::exec();
    }

    SilentEngine engine;
    PositionDaemon daemon;
};

Stage *theStage = nullptr;

void planThousandClients(benchmark::State &state)
{
    const int before = theStage->engine.packets();
    if (before < Clients)
        state.SkipWithError("the sessions did not start");
    for (auto _ : state)
        theStage->daemon.userSettingsChanged(u"ContinuousLocationCleanup"_s);
    if (theStage->engine.packets() != before)
        state.SkipWithError("a plan in which nothing changes told the engine something");
}
BENCHMARK(planThousandClients)->Unit(benchmark::kMicrosecond);

struct Record {
    int id;
    quint32 methods;
    bool stopped, satelliteInfo, modified, gnssActive, suplActive;
};

void visitThousandRecords(benchmark::State &state)
{
    std::vector<std::unique_ptr<Record>> records;
    records.reserve(Clients);
    for (int i = 0; i < Clients; ++i)
        records.push_back(std::make_unique<Record>(Record{6000 + i, 0xff, false, false, false, true, false}));
    for (auto _ : state) {
        int idle = 0;
        for (const auto &record : records) {
            const quint32 wanted = record->methods & 0xffU;
            if (record->stopped || record->modified || (wanted != 0) != record->gnssActive ||
                record->suplActive)
                ++idle;
        }
        benchmark::DoNotOptimize(idle);
    }
}
BENCHMARK(visitThousandRecords)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    Stage stage;
    theStage = &stage;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    theStage = nullptr;
    return 0;
}
