#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <errno.h> // program_invocation_short_name
#include <optional>
#include <span>
#include <string>

#include <systemd/sd-bus.h>

// What the floors share: the daemon's face to its clients, as thin as it can be.
namespace bench {

// Ends the program when a step of its start has failed.
inline void check(int result, const char *what)
{
    if (result >= 0)
        return;
    std::fprintf(stderr, "%s: %s: %d\n", program_invocation_short_name, what, result);
    std::exit(1);
}

struct Listener {
    std::string service;
    std::string path;
};

// Out of a call of registerListener; nothing when it cannot be read.
inline std::optional<Listener> readListener(sd_bus_message *call)
{
    const char *service = nullptr;
    const char *path = nullptr;
    if (sd_bus_message_read(call, "ss", &service, &path) < 0)
        return std::nullopt;
    return Listener{service, path};
}

// Calls the listener back, without a reply.
inline void sendFix(sd_bus *bus, const Listener &listener, std::span<const std::uint8_t> fix)
{
    sd_bus_message *message = nullptr;
    if (sd_bus_message_new_method_call(bus, &message, listener.service.c_str(), listener.path.c_str(),
                                       "com.varn.qlocation.updates", "positionUpdate") < 0)
        return;
    sd_bus_message_set_expect_reply(message, 0);
    sd_bus_message_append_array(message, 'y', fix.data(), fix.size());
    sd_bus_send(bus, message, nullptr);
    sd_bus_message_unref(message);
}

// Exports the client service and takes its name; ends the program when that cannot be.
inline void serveClients(sd_bus *bus, sd_bus_message_handler_t onRegisterListener,
                         sd_bus_message_handler_t onConfigSession, void *relay)
{
    static const sd_bus_vtable vtable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("registerListener", "ss", "iuu", onRegisterListener, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("configSession", "iiii", "i", onConfigSession, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
    };
    check(sd_bus_add_object_vtable(bus, nullptr, "/com/varn/lodestard/client", "com.varn.lodestard.client",
                                   vtable, relay),
          "object");
    check(sd_bus_request_name(bus, "com.varn.lodestard.client", 0), "name");
}

} // namespace bench
