// Plays the engine and the applications around one subject (the daemon, or its floor) and measures
// the road between them. One JSON object on standard output.
//
//   road startup    RUNS            -- subject...   start to the name on the bus
//   road latency    MESSAGES        -- subject...   engine packet to callback, one client
//   road throughput MESSAGES CLIENTS -- subject...  fixes a second
//   road memory     CLIENTS         -- subject...   resident memory with registered clients

#include "engineframe.h"
#include "roadparts.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

using namespace bench;

namespace {

// The engine's side of the socket.
class Engine
{
public:
    Engine() = default;
    ~Engine()
    {
        close(m_connection);
        close(m_listener);
    }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    void accept()
    {
        m_connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        require(m_connection >= 0, "the subject did not connect");
    }

    int descriptor() const { return m_connection; }

    void send(const QByteArray &packet) const
    {
        require(::send(m_connection, packet.constData(), std::size_t(packet.size()), MSG_NOSIGNAL) >= 0,
                "the subject closed the connection");
    }

    // False when the subject's queue is full at this moment.
    bool trySend(const QByteArray &packet) const
    {
        if (::send(m_connection, packet.constData(), std::size_t(packet.size()),
                   MSG_NOSIGNAL | MSG_DONTWAIT) >= 0)
            return true;
        require(errno == EAGAIN, "the subject closed the connection");
        return false;
    }

    // Takes whatever the subject has asked for; returns how many sessions it started.
    int takeStarts() const
    {
        int starts = 0;
        std::array<std::uint8_t, 8192> packet;
        for (;;) {
            const ssize_t size = recv(m_connection, packet.data(), packet.size(), MSG_DONTWAIT);
            if (size <= 0)
                return starts;
            const auto view = std::as_bytes(std::span(packet.data(), std::size_t(size)));
            const auto request = engineside::readRequest(PacketView(view));
            if (request && std::holds_alternative<GnssRequest>(*request))
                ++starts;
        }
    }

private:
    int m_listener = bench::listenAsEngine();
    int m_connection = -1;
};

// Subject, engine and applications with running sessions.
struct Stage {
    Stage(char **subjectArguments, std::size_t clients)
        : applications(clients)
        , subject(start(subjectArguments))
    {
        engine.accept();
        waitForSubject(applications.front(), true);
        for (auto &application : applications)
            application.enlist(true);
        std::size_t started = 0;
        const auto deadline = Clock::now() + Patience;
        while (started < clients) {
            pollfd events{engine.descriptor(), POLLIN, 0};
            poll(&events, 1, 100);
            started += std::size_t(engine.takeStarts());
            require(Clock::now() < deadline, "the subject did not start its sessions");
        }
        for (auto &application : applications)
            application.process();
    }

    long received() const
    {
        long sum = 0;
        for (const auto &application : applications)
            sum += application.received();
        return sum;
    }

    char **start(char **subjectArguments) const
    {
        waitForSubject(applications.front(), false);
        return subjectArguments;
    }

    Engine engine;
    std::vector<Application> applications;
    Subject subject; // ends first
};

void setLatitude(QByteArray &packet, std::uint32_t sequence)
{
    for (std::size_t i = 0; i < 4; ++i)
        packet[qsizetype(bench::LatitudeOffset) + qsizetype(i)] = char(sequence >> (24 - 8 * i) & 0xFF);
}

int measureStartup(int runs, char **subjectArguments)
{
    Engine engine;
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        const Application application;
        waitForSubject(application, false);
        const Subject subject(subjectArguments);
        engine.accept();
        waitForSubject(application, true);
        times.push_back(Microseconds(Clock::now() - subject.started()).count() / 1000.0);
    }
    std::sort(times.begin(), times.end());
    std::printf("{\"median_ms\": %.1f, \"p99_ms\": %.1f}\n", percentile(times, 0.5), percentile(times, 0.99));
    return 0;
}

int measureLatency(int messages, char **subjectArguments)
{
    Stage stage(subjectArguments, 1);
    Application &application = stage.applications.front();
    QByteArray packet = bench::fixNotification(std::uint16_t(application.id()));
    std::vector<double> times;
    constexpr int WarmUp = 200;
    for (int i = 0; i < messages + WarmUp; ++i) {
        setLatitude(packet, 0x20000000U + std::uint32_t(i) * 1000U);
        const long before = application.received();
        const auto sent = Clock::now();
        stage.engine.send(packet);
        while (application.received() == before) {
            require(sd_bus_wait(application.bus(), 5'000'000) >= 0, "waiting for the callback failed");
            application.process();
            require(Clock::now() - sent < Patience, "a callback never came");
        }
        if (i >= WarmUp)
            times.push_back(Microseconds(Clock::now() - sent).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("{\"median_us\": %.1f, \"p99_us\": %.1f}\n", percentile(times, 0.5), percentile(times, 0.99));
    return 0;
}

int measureThroughput(long messages, std::size_t clients, char **subjectArguments)
{
    Stage stage(subjectArguments, clients);
    std::vector<QByteArray> packets;
    for (const auto &application : stage.applications)
        packets.push_back(bench::fixNotification(std::uint16_t(application.id())));

    const int poller = epoll_create1(EPOLL_CLOEXEC);
    for (std::size_t i = 0; i < clients; ++i) {
        epoll_event event{.events = EPOLLIN, .data = {.u64 = i}};
        epoll_ctl(poller, EPOLL_CTL_ADD, sd_bus_get_fd(stage.applications[i].bus()), &event);
    }
    constexpr std::uint64_t EngineKey = ~0ULL;
    epoll_event engineEvent{.events = EPOLLOUT, .data = {.u64 = EngineKey}};
    epoll_ctl(poller, EPOLL_CTL_ADD, stage.engine.descriptor(), &engineEvent);

    const double processorBefore = stage.subject.processorMicroseconds();
    const auto begin = Clock::now();
    long sent = 0;
    const long before = stage.received(); // what applications were told while they waited for the engine
    const auto received = [&] { return stage.received() - before; };
    while (received() < messages) {
        require(Clock::now() - begin < Patience, "callbacks are missing");
        std::array<epoll_event, 128> events;
        const int ready = epoll_wait(poller, events.data(), int(events.size()), 1000);
        for (int i = 0; i < ready; ++i) {
            if (events[std::size_t(i)].data.u64 != EngineKey) {
                stage.applications[events[std::size_t(i)].data.u64].process();
                continue;
            }
            // A bounded lead keeps queues short, as a receiver that reports in real time does.
            constexpr long Lead = 2000;
            while (sent < messages && sent - received() < Lead) {
                QByteArray &packet = packets[std::size_t(sent) % clients];
                setLatitude(packet, 0x20000000U + std::uint32_t(sent));
                if (!stage.engine.trySend(packet))
                    break;
                ++sent;
            }
            if (sent == messages)
                epoll_ctl(poller, EPOLL_CTL_DEL, stage.engine.descriptor(), nullptr);
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const double processor = stage.subject.processorMicroseconds() - processorBefore;
    std::printf("{\"fixes_per_s\": %.0f, \"processor_us_per_fix\": %.2f}\n", double(messages) / seconds,
                processor / double(messages));
    close(poller);
    return 0;
}

int measureMemory(std::size_t clients, char **subjectArguments)
{
    const Stage stage(subjectArguments, std::max<std::size_t>(clients, 1));
    std::printf("{\"resident_kB\": %ld, \"proportional_kB\": %ld, \"private_kB\": %ld}\n",
                stage.subject.kilobytes("status", "VmRSS:"), stage.subject.kilobytes("smaps_rollup", "Pss:"),
                stage.subject.kilobytes("smaps_rollup", "Private_Dirty:"));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    int separator = 1;
    while (separator < argc && std::strcmp(argv[separator], "--") != 0)
        ++separator;
    const auto number = [&](int index) {
        return index < separator ? std::strtol(argv[index], nullptr, 10) : 0L;
    };
    if (separator + 1 >= argc || separator < 3) {
        std::fprintf(stderr,
                     "usage: road startup|latency|throughput|memory NUMBER [CLIENTS] -- subject...\n");
        return 2;
    }
    char **subject = argv + separator + 1;
    const std::string_view mode = argv[1];
    if (mode == "startup")
        return measureStartup(int(number(2)), subject);
    if (mode == "latency")
        return measureLatency(int(number(2)), subject);
    if (mode == "throughput")
        return measureThroughput(number(2), std::size_t(number(3)), subject);
    if (mode == "memory")
        return measureMemory(std::size_t(number(2)), subject);
    fail("no such measurement: " + std::string(mode));
}
