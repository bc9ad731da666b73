// Plays the engine and the applications around one subject (the daemon, or its floor) and measures
// the road between them. One JSON object on standard output.
//
//   road startup    RUNS            -- subject...   start to the name on the bus
//   road latency    MESSAGES        -- subject...   engine packet to callback, one client
//   road throughput MESSAGES CLIENTS -- subject...  fixes a second
//   road memory     CLIENTS         -- subject...   resident memory with registered clients

#include "engineframe.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr const char *ServiceName = "com.varn.lodestard.client";
constexpr const char *ObjectPath = "/com/varn/lodestard/client";
constexpr const char *CallbackPath = "/bench/client";
constexpr auto Patience = std::chrono::seconds(60);

[[noreturn]] void fail(const std::string &why)
{
    std::fprintf(stderr, "road: %s\n", why.c_str());
    std::exit(1);
}

void require(bool condition, const std::string &why)
{
    if (!condition)
        fail(why);
}

// The subject under measurement, ended with this object.
class Subject
{
public:
    explicit Subject(char **arguments)
    {
        m_started = Clock::now();
        m_pid = fork();
        if (m_pid == 0) {
            execv(arguments[0], arguments);
            std::perror(arguments[0]);
            _exit(127);
        }
    }
    ~Subject()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    Subject(const Subject &) = delete;
    Subject &operator=(const Subject &) = delete;

    Clock::time_point started() const { return m_started; }

    // User and system time so far, in microseconds; proc(5), fields 14 and 15 of stat.
    double processorMicroseconds() const
    {
        std::ifstream file("/proc/" + std::to_string(m_pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(file)), {});
        text.erase(0, text.rfind(')') + 2);
        long user = 0;
        long system = 0;
        std::sscanf(text.c_str(), "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system);
        return double(user + system) * 1e6 / double(sysconf(_SC_CLK_TCK));
    }

    // A kilobyte field of /proc/PID/FILE, such as "Pss:".
    long kilobytes(const char *file, std::string_view field) const
    {
        std::ifstream lines("/proc/" + std::to_string(m_pid) + "/" + file);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(field))
                return std::strtol(line.c_str() + field.size(), nullptr, 10);
        }
        return -1;
    }

private:
    Clock::time_point m_started;
    pid_t m_pid = -1;
};

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

// One application: a connection of its own, counting callbacks.
class Application
{
public:
    Application()
    {
        require(sd_bus_open_user(&m_bus) >= 0, "no session bus");
        // Waits for the bus's answer: it admits only some connections that have not said who they are.
        require(sd_bus_get_unique_name(m_bus, &m_name) >= 0, "the session bus does not let us in");
        static const sd_bus_vtable vtable[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("positionUpdate", "ay", "", &Application::onPosition, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END,
        };
        require(sd_bus_add_object_vtable(m_bus, nullptr, CallbackPath, "com.varn.qlocation.updates", vtable,
                                         this) >= 0,
                "cannot export the callback object");
    }
    ~Application() { sd_bus_flush_close_unref(m_bus); }
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    sd_bus *bus() const { return m_bus; }
    long received() const { return m_received; }
    int id() const { return m_id; }

    bool subjectIsThere() const
    {
        sd_bus_message *reply = nullptr;
        int there = 0;
        if (sd_bus_call_method(m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                               "NameHasOwner", nullptr, &reply, "s", ServiceName) >= 0)
            sd_bus_message_read(reply, "b", &there);
        sd_bus_message_unref(reply);
        return there != 0;
    }

    void enlist(bool start)
    {
        sd_bus_message *reply = nullptr;
        require(sd_bus_call_method(m_bus, ServiceName, ObjectPath, ServiceName, "registerListener", nullptr,
                                   &reply, "ss", m_name, CallbackPath) >= 0,
                "registerListener failed");
        sd_bus_message_read(reply, "iuu", &m_id, nullptr, nullptr);
        sd_bus_message_unref(reply);
        constexpr int StartWithMethodAndInterval = 0x01 | 0x04 | 0x08;
        if (start)
            require(sd_bus_call_method(m_bus, ServiceName, ObjectPath, ServiceName, "configSession", nullptr,
                                       nullptr, "iiii", m_id, StartWithMethodAndInterval, 0xff, 1000) >= 0,
                    "configSession failed");
    }

    void process() const
    {
        while (sd_bus_process(m_bus, nullptr) > 0) {
        }
    }

private:
    static int onPosition(sd_bus_message *, void *self, sd_bus_error *)
    {
        ++static_cast<Application *>(self)->m_received;
        return 1;
    }

    sd_bus *m_bus = nullptr;
    const char *m_name = nullptr; // the connection's unique name
    long m_received = 0;
    int m_id = 0;
};

// The subject before this one may still be leaving the bus when this one starts.
void waitForSubject(const Application &application, bool there)
{
    const auto deadline = Clock::now() + Patience;
    while (application.subjectIsThere() != there) {
        require(Clock::now() < deadline,
                there ? "the subject never took its name" : "the name is taken for good");
        usleep(200);
    }
}

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

double percentile(std::vector<double> &sorted, double share)
{
    const auto index = std::size_t(share * double(sorted.size() - 1));
    return sorted[index];
}

void setLatitude(QByteArray &packet, std::uint32_t sequence)
{
    for (std::size_t i = 0; i < 4; ++i)
        packet[qsizetype(bench::LatitudeOffset + i)] = char(sequence >> (24 - 8 * i) & 0xFF);
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
    while (stage.received() < messages) {
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
            while (sent < messages && sent - stage.received() < Lead) {
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
