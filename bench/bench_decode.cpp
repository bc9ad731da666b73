// What it costs to turn a notification with position, velocity and twelve satellites into a fix and
// two satellite lists, beside the floor: the same fields read at fixed places by hand.

#include "engine/orvcomm.h"
#include "engineframe.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <endian.h>

namespace {

constexpr std::uint16_t Session = 6000;

std::span<const std::byte> bytesOf(const QByteArray &packet)
{
    return std::as_bytes(std::span(packet.constData(), std::size_t(packet.size())));
}

// As the daemon runs when nobody wants debug lines.
void silence()
{
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
}

void decodeNotification(benchmark::State &state)
{
    silence();
    const QByteArray packet = bench::fullNotification(Session);
    ORVComm engine;
    engine.startGNSS(Session, 1);
    int fixes = 0;
    QObject::connect(&engine, &ORVComm::positionUpdateGNSS,
                     [&fixes](quint16, QGeoPositionInfo &) { ++fixes; });
    for (auto _ : state)
        engine.handlePacket(bytesOf(packet));
    if (fixes == 0)
        state.SkipWithError("no fix came out");
}
BENCHMARK(decodeNotification);

struct Report {
    std::int32_t latitude, longitude, along, ortho;
    std::int16_t altitude, geoid, heading, speed, climb;
    std::array<std::uint16_t, 36> satellites;
};

template <typename T>
T bigEndian(const char *bytes)
{
    T raw;
    std::memcpy(&raw, bytes, sizeof raw);
    if constexpr (sizeof raw == 4)
        return T(be32toh(std::uint32_t(raw)));
    else
        return T(be16toh(std::uint16_t(raw)));
}

void readFieldsByHand(benchmark::State &state)
{
    const QByteArray packet = bench::fullNotification(Session);
    for (auto _ : state) {
        const char *position = packet.constData() + layout::blocks::first;
        const char *velocity = position + layout::position::size;
        const char *satellites = velocity + layout::velocity::size + 8;
        Report report{};
        report.latitude = bigEndian<std::int32_t>(position + 4);
        report.longitude = bigEndian<std::int32_t>(position + 8);
        report.along = bigEndian<std::int32_t>(position + 12);
        report.ortho = bigEndian<std::int32_t>(position + 16);
        report.altitude = bigEndian<std::int16_t>(position + 24);
        report.geoid = bigEndian<std::int16_t>(position + 28);
        report.heading = bigEndian<std::int16_t>(velocity + 4);
        report.speed = bigEndian<std::int16_t>(velocity + 10);
        report.climb = bigEndian<std::int16_t>(velocity + 14);
        for (std::size_t i = 0; i < report.satellites.size(); ++i)
            report.satellites[i] = bigEndian<std::uint16_t>(satellites + 8 * (i / 3) + 2 + 2 * (i % 3));
        benchmark::DoNotOptimize(report);
    }
}
BENCHMARK(readFieldsByHand);

} // namespace

int main(int argc, char **argv)
{
    // The watchdog timers of ORVComm want a thread with an event dispatcher.
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
