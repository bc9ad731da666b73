// What a step of the scheduler costs with a thousand clients of network positions, a second of their
// time after the one before, beside the floor: one look at each of a thousand intervals.

#include "core/scheduler.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <benchmark/benchmark.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int Rows = 1000;

constexpr int intervalOf(int row)
{
    return 1 + row % 60; // s
}

class WoundClock final : public Clock
{
public:
    std::chrono::milliseconds elapsed{0};

    QDateTime now() const override { return {}; }
    std::chrono::milliseconds monotonic() const override { return elapsed; }
};

// Every second those whose intervals are over, 78 on average; the batch is taken as when a position arrived.
void stepThousandRows(benchmark::State &state)
{
    WoundClock clock;
    Scheduler scheduler(clock);
    for (int row = 0; row < Rows; ++row)
        scheduler.addClient(6000 + row, intervalOf(row));
    qsizetype served = 0;
    for (auto _ : state) {
        served += scheduler.takeDueClients().size();
        clock.elapsed += 1s;
        scheduler.nextStep();
    }
    if (served < state.iterations())
        state.SkipWithError("nobody fell due");
}
BENCHMARK(stepThousandRows)->Unit(benchmark::kMicrosecond);

void lookAtThousandIntervals(benchmark::State &state)
{
    struct Interval {
        qint64 length, start;
    };
    std::vector<Interval> intervals;
    intervals.reserve(Rows);
    for (int row = 0; row < Rows; ++row)
        intervals.push_back({qint64(1000) * intervalOf(row), 0});
    qint64 now = 0;
    for (auto _ : state) {
        now += 1000;
        qint64 shortest = 86400000;
        for (Interval &interval : intervals) {
            if (now - interval.start >= interval.length)
                interval.start = now;
            shortest = std::min(shortest, interval.length - (now - interval.start));
        }
        benchmark::DoNotOptimize(shortest);
    }
}
BENCHMARK(lookAtThousandIntervals)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
