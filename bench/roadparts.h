#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

// What the measuring programs share: the subject, the applications, and how to give up.
namespace bench {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

inline constexpr const char *ServiceName = "com.varn.lodestard.client";
inline constexpr const char *ObjectPath = "/com/varn/lodestard/client";
inline constexpr const char *CallbackPath = "/bench/client";
// Command bits and method masks of the client interface.
inline constexpr int Start = 0x01, Stop = 0x02, SetMethod = 0x04, SetInterval = 0x08;
inline constexpr int SatelliteMethods = 0xff, NetworkMethods = int(0xffffff00);
inline constexpr auto Patience = std::chrono::seconds(60);

[[noreturn]] inline void fail(const std::string &why)
{
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    std::exit(1);
}

inline void require(bool condition, const std::string &why)
{
    if (!condition)
        fail(why);
}

// The subject under measurement, ended with this object.
class Subject
{
public:
    explicit Subject(char **arguments)
        : m_started(Clock::now())
        , m_pid(fork())
    {
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
    pid_t m_pid;
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
        if (start)
            configure(SetMethod | SetInterval | Start, SatelliteMethods);
    }

    // A request with an interval of one second.
    void configure(int command, int methods)
    {
        require(sd_bus_call_method(m_bus, ServiceName, ObjectPath, ServiceName, "configSession", nullptr,
                                   nullptr, "iiii", m_id, command, methods, 1000) >= 0,
                "configSession failed");
    }

    void process()
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
inline void waitForSubject(const Application &application, bool there)
{
    const auto deadline = Clock::now() + Patience;
    while (application.subjectIsThere() != there) {
        require(Clock::now() < deadline,
                there ? "the subject never took its name" : "the name is taken for good");
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

inline double percentile(const std::vector<double> &sorted, double share)
{
    const auto index = std::size_t(share * double(sorted.size() - 1));
    return sorted[index];
}

} // namespace bench
