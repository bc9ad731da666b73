// The floor of a network position's road: the least a program can do that asks GeoClue for one
// location a start, reads it and makes the same D-Bus call.

#include "floorparts.h"
#include "geocluenames.h"

#include <array>
#include <cstdint>
#include <string>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace {

constexpr std::size_t FixBytes = 37 + 12; // with an accuracy

struct Relay {
    sd_bus *session = nullptr;
    sd_bus *system = nullptr;
    bench::Listener listener;
    std::string client; // GeoClue's, while one is searching
};

int onRegisterListener(sd_bus_message *call, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    const auto listener = bench::readListener(call);
    if (!listener)
        return -EINVAL;
    relay.listener = *listener;
    return sd_bus_reply_method_return(call, "iuu", 6000, 0xffffffffU, 1000U);
}

void setProperty(const Relay &relay, const char *name, const char *type, const char *text, unsigned number)
{
    sd_bus_message *call = nullptr;
    sd_bus_message_new_method_call(relay.system, &call, geoclue::Service, relay.client.c_str(),
                                   geoclue::PropertiesInterface, "Set");
    sd_bus_message_append(call, "ss", geoclue::ClientInterface, name);
    if (text)
        sd_bus_message_append(call, "v", type, text);
    else
        sd_bus_message_append(call, "v", type, number);
    sd_bus_message_set_expect_reply(call, 0);
    sd_bus_send(relay.system, call, nullptr);
    sd_bus_message_unref(call);
}

int onClient(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    const char *path = nullptr;
    if (sd_bus_message_read(reply, "o", &path) < 0)
        return 0;
    relay.client = path;
    setProperty(relay, "DesktopId", "s", "lodestard", 0);
    setProperty(relay, "RequestedAccuracyLevel", "u", nullptr, 6);
    return sd_bus_call_method_async(relay.system, nullptr, geoclue::Service, path, geoclue::ClientInterface,
                                    "Start", nullptr, nullptr, nullptr);
}

int onConfigSession(sd_bus_message *call, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    int id = 0;
    int command = 0;
    if (const int r = sd_bus_message_read(call, "ii", &id, &command); r < 0)
        return r;
    constexpr int Start = 0x01;
    if ((command & Start) != 0)
        sd_bus_call_method_async(relay.system, nullptr, geoclue::Service, geoclue::ManagerPath,
                                 geoclue::ManagerInterface, "CreateClient", onClient, &relay, nullptr);
    return sd_bus_reply_method_return(call, "i", 0);
}

int onLocation(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    // As many bytes as the daemon's serialised fix, whatever they say.
    std::array<std::uint8_t, FixBytes> fix{};
    fix[0] = std::uint8_t(sd_bus_message_is_method_error(reply, nullptr));
    bench::sendFix(relay.session, relay.listener, fix);
    return sd_bus_call_method_async(relay.system, nullptr, geoclue::Service, geoclue::ManagerPath,
                                    geoclue::ManagerInterface, "DeleteClient", nullptr, nullptr, "o",
                                    relay.client.c_str());
}

int onLocationUpdated(sd_bus_message *signal, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    const char *before = nullptr;
    const char *location = nullptr;
    if (sd_bus_message_read(signal, "oo", &before, &location) < 0)
        return 0;
    sd_bus_call_method_async(relay.system, nullptr, geoclue::Service, location, geoclue::PropertiesInterface,
                             "GetAll", onLocation, &relay, "s", geoclue::LocationInterface);
    return 0;
}

} // namespace

int main()
{
    using bench::check;
    Relay relay;
    sd_event *event = nullptr;
    check(sd_event_default(&event), "event loop");
    check(sd_bus_open_system(&relay.system), "system bus");
    check(sd_bus_open_user(&relay.session), "session bus");
    check(sd_bus_attach_event(relay.system, event, 0), "event loop of the system bus");
    check(sd_bus_attach_event(relay.session, event, 0), "event loop of the session bus");
    check(sd_bus_match_signal(relay.system, nullptr, geoclue::Service, nullptr, geoclue::ClientInterface,
                              "LocationUpdated", onLocationUpdated, &relay),
          "signal");
    bench::serveClients(relay.session, onRegisterListener, onConfigSession, &relay);
    return sd_event_loop(event);
}
