// Plays GeoClue and one application around a subject (the daemon, or its floor) and measures the
// road of a network position: from the signal that tells of a location to the application's
// callback. One JSON object on standard output.
//
//   networkroad MESSAGES -- subject...

#include "engineframe.h"
#include "geocluenames.h"
#include "roadparts.h"

#include <ctime>

#include <poll.h>

using namespace bench;

namespace {

// A GeoClue with one client at a time, which is started and then told where it is.
class GeoClue
{
public:
    GeoClue()
    {
        require(sd_bus_open_system(&m_bus) >= 0, "no system bus");
        require(sd_bus_add_object_vtable(m_bus, nullptr, geoclue::ManagerPath, geoclue::ManagerInterface,
                                         managerTable(), this) >= 0 &&
                    sd_bus_add_object_vtable(m_bus, nullptr, ClientPath, geoclue::ClientInterface,
                                             clientTable(), this) >= 0 &&
                    sd_bus_add_object_vtable(m_bus, nullptr, LocationPath, geoclue::LocationInterface,
                                             locationTable(), this) >= 0,
                "cannot export GeoClue's objects");
        require(sd_bus_request_name(m_bus, geoclue::Service, 0) >= 0, "GeoClue's name is taken");
    }
    ~GeoClue() { sd_bus_flush_close_unref(m_bus); }
    GeoClue(const GeoClue &) = delete;
    GeoClue &operator=(const GeoClue &) = delete;

    int descriptor() const { return sd_bus_get_fd(m_bus); }
    bool isSearching() const { return m_searching; }

    void process() const
    {
        while (sd_bus_process(m_bus, nullptr) > 0) {
        }
    }

    void tellLocation()
    {
        m_searching = false;
        require(sd_bus_emit_signal(m_bus, ClientPath, geoclue::ClientInterface, "LocationUpdated", "oo", "/",
                                   LocationPath) >= 0,
                "cannot send the signal");
        sd_bus_flush(m_bus);
    }

private:
    static constexpr const char *ClientPath = "/org/freedesktop/GeoClue2/Client/1";
    static constexpr const char *LocationPath = "/org/freedesktop/GeoClue2/Client/1/Location/0";

    static int createClient(sd_bus_message *call, void *, sd_bus_error *)
    {
        return sd_bus_reply_method_return(call, "o", ClientPath);
    }
    static int deleteClient(sd_bus_message *call, void *, sd_bus_error *)
    {
        return sd_bus_reply_method_return(call, nullptr);
    }
    static int start(sd_bus_message *call, void *self, sd_bus_error *)
    {
        static_cast<GeoClue *>(self)->m_searching = true;
        return sd_bus_reply_method_return(call, nullptr);
    }
    static int take(sd_bus *, const char *, const char *, const char *, sd_bus_message *value, void *,
                    sd_bus_error *)
    {
        return sd_bus_message_skip(value, nullptr);
    }
    static int number(sd_bus *, const char *, const char *, const char *property, sd_bus_message *reply,
                      void *, sd_bus_error *)
    {
        const std::string_view name = property;
        if (name == "DesktopId")
            return sd_bus_message_append(reply, "s", "lodestard");
        if (name == "RequestedAccuracyLevel")
            return sd_bus_message_append(reply, "u", 6U);
        if (name == "Timestamp")
            return sd_bus_message_append(reply, "(tt)", std::uint64_t(std::time(nullptr)), std::uint64_t{0});
        const double value = name == "Latitude"    ? 60.17
                             : name == "Longitude" ? 24.94
                             : name == "Accuracy"  ? 50.0
                                                   : 25.5;
        return sd_bus_message_append(reply, "d", value);
    }
    static const sd_bus_vtable *managerTable()
    {
        static const sd_bus_vtable table[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("CreateClient", "", "o", &GeoClue::createClient, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("DeleteClient", "o", "", &GeoClue::deleteClient, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END,
        };
        return table;
    }
    static const sd_bus_vtable *clientTable()
    {
        static const sd_bus_vtable table[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Start", "", "", &GeoClue::start, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("Stop", "", "", &GeoClue::deleteClient, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_WRITABLE_PROPERTY("DesktopId", "s", &GeoClue::number, &GeoClue::take, 0,
                                     SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_WRITABLE_PROPERTY("RequestedAccuracyLevel", "u", &GeoClue::number, &GeoClue::take, 0,
                                     SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_SIGNAL("LocationUpdated", "oo", 0),
            SD_BUS_VTABLE_END,
        };
        return table;
    }
    static const sd_bus_vtable *locationTable()
    {
        static const sd_bus_vtable table[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY("Latitude", "d", &GeoClue::number, 0, 0),
            SD_BUS_PROPERTY("Longitude", "d", &GeoClue::number, 0, 0),
            SD_BUS_PROPERTY("Accuracy", "d", &GeoClue::number, 0, 0),
            SD_BUS_PROPERTY("Altitude", "d", &GeoClue::number, 0, 0),
            SD_BUS_PROPERTY("Timestamp", "(tt)", &GeoClue::number, 0, 0),
            SD_BUS_VTABLE_END,
        };
        return table;
    }

    sd_bus *m_bus = nullptr;
    bool m_searching = false;
};

// Lets both sides work until the condition holds.
template <typename Condition>
void workUntil(GeoClue &geoclue, Application &application, const char *missing, Condition condition)
{
    const auto deadline = Clock::now() + Patience;
    for (;;) {
        geoclue.process();
        application.process();
        if (condition())
            return;
        require(Clock::now() < deadline, missing);
        pollfd events[] = {{geoclue.descriptor(), POLLIN, 0}, {sd_bus_get_fd(application.bus()), POLLIN, 0}};
        poll(events, std::size(events), 1000);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4 || std::strcmp(argv[2], "--") != 0) {
        std::fprintf(stderr, "usage: networkroad MESSAGES -- subject...\n");
        return 2;
    }
    const long messages = std::strtol(argv[1], nullptr, 10);
    listenAsEngine(); // silent, and there until the subject has ended: it would write lines about a loss
    GeoClue geoclue;
    Application application;
    waitForSubject(application, false);
    const Subject subject(argv + 3);
    waitForSubject(application, true);
    application.enlist(false);

    std::vector<double> times;
    constexpr long WarmUp = 20;
    for (long i = 0; i < messages + WarmUp; ++i) {
        // Whoever starts is due at once, and a fix it has had before is news to it again.
        application.configure(SetMethod | SetInterval | Stop, NetworkMethods);
        application.configure(Start, 0);
        workUntil(geoclue, application, "GeoClue is not asked", [&] { return geoclue.isSearching(); });
        const long before = application.received();
        const auto told = Clock::now();
        geoclue.tellLocation();
        workUntil(geoclue, application, "a callback never came",
                  [&] { return application.received() > before; });
        if (i >= WarmUp)
            times.push_back(Microseconds(Clock::now() - told).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("{\"median_us\": %.1f, \"p99_us\": %.1f}\n", percentile(times, 0.5), percentile(times, 0.99));
    return 0;
}
