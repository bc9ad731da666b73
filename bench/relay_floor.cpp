// The floor that the daemon's main road is measured against: the least a program can do that reads
// the engine's socket and makes the same D-Bus calls. It knows its clients, and nothing else.

#include "engine/messagebuilder.h"
#include "engineframe.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

namespace {

struct Listener {
    std::string service;
    std::string path;
};

struct Relay {
    sd_bus *bus = nullptr;
    int engine = -1;
    std::vector<Listener> listeners;
};

constexpr int FirstId = 6000;

int onRegisterListener(sd_bus_message *call, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    const char *service = nullptr;
    const char *path = nullptr;
    if (const int r = sd_bus_message_read(call, "ss", &service, &path); r < 0)
        return r;
    relay.listeners.push_back({service, path});
    return sd_bus_reply_method_return(call, "iuu", FirstId + int(relay.listeners.size()) - 1, 0xffU, 1000U);
}

int onConfigSession(sd_bus_message *call, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    int id = 0;
    int command = 0;
    int method = 0;
    int interval = 0;
    if (const int r = sd_bus_message_read(call, "iiii", &id, &command, &method, &interval); r < 0)
        return r;
    const QByteArray request = wire::gnssRequest({std::uint16_t(id), GnssCommand::Start, 2, 1});
    if (send(relay.engine, request.constData(), std::size_t(request.size()), MSG_NOSIGNAL) < 0)
        return -errno;
    return sd_bus_reply_method_return(call, "i", 0);
}

const sd_bus_vtable ClientInterface[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("registerListener", "ss", "iuu", onRegisterListener, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("configSession", "iiii", "i", onConfigSession, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int onEnginePacket(sd_event_source *, int descriptor, std::uint32_t, void *data)
{
    auto &relay = *static_cast<Relay *>(data);
    std::array<std::uint8_t, 8192> packet;
    const ssize_t size = recv(descriptor, packet.data(), packet.size(), MSG_DONTWAIT);
    if (size == 0)
        return sd_event_exit(sd_bus_get_event(relay.bus), 0);
    if (size < 8 || bench::messageId(packet.data()) != bench::NotificationId)
        return 0;
    const std::size_t index = std::size_t(bench::sessionId(packet.data()) - FirstId);
    if (index >= relay.listeners.size())
        return 0;
    const Listener &listener = relay.listeners[index];
    // As many bytes as the daemon's serialised fix, with the report's own bytes for content.
    std::array<std::uint8_t, bench::FixBytes> fix{};
    std::copy_n(packet.data(), std::min(std::size_t(size), fix.size()), fix.data());
    sd_bus_message *message = nullptr;
    if (sd_bus_message_new_method_call(relay.bus, &message, listener.service.c_str(), listener.path.c_str(),
                                       "com.varn.qlocation.updates", "positionUpdate") < 0)
        return 0;
    sd_bus_message_set_expect_reply(message, 0);
    sd_bus_message_append_array(message, 'y', fix.data(), fix.size());
    sd_bus_send(relay.bus, message, nullptr);
    sd_bus_message_unref(message);
    return 0;
}

int connectToEngine(const char *path)
{
    const int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        std::perror("relay-floor: engine socket");
        std::exit(1);
    }
    return descriptor;
}

void check(int result, const char *what)
{
    if (result >= 0)
        return;
    std::fprintf(stderr, "relay-floor: %s: %d\n", what, result);
    std::exit(1);
}

} // namespace

int main()
{
    Relay relay;
    relay.engine = connectToEngine(bench::EngineSocket);
    sd_event *event = nullptr;
    check(sd_event_default(&event), "event loop");
    check(sd_bus_open_user(&relay.bus), "session bus");
    check(sd_bus_attach_event(relay.bus, event, 0), "event loop of the bus");
    check(sd_bus_add_object_vtable(relay.bus, nullptr, "/com/varn/lodestard/client",
                                   "com.varn.lodestard.client", ClientInterface, &relay),
          "object");
    check(sd_event_add_io(event, nullptr, relay.engine, EPOLLIN, onEnginePacket, &relay), "engine notifier");
    check(sd_bus_request_name(relay.bus, "com.varn.lodestard.client", 0), "name");
    return sd_event_loop(event);
}
