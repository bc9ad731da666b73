// The floor that the daemon's main road is measured against: the least a program can do that reads
// the engine's socket and makes the same D-Bus calls. It knows its clients, and nothing else.

#include "engine/messagebuilder.h"
#include "engineframe.h"
#include "floorparts.h"

#include <algorithm>
#include <array>
#include <vector>

#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace {

struct Relay {
    sd_bus *bus = nullptr;
    int engine = -1;
    std::vector<bench::Listener> listeners;
};

constexpr int FirstId = 6000;

int onRegisterListener(sd_bus_message *call, void *data, sd_bus_error *)
{
    auto &relay = *static_cast<Relay *>(data);
    const auto listener = bench::readListener(call);
    if (!listener)
        return -EINVAL;
    relay.listeners.push_back(*listener);
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

int onEnginePacket(sd_event_source *, int descriptor, std::uint32_t, void *data)
{
    auto &relay = *static_cast<Relay *>(data);
    std::array<std::uint8_t, 8192> packet;
    const ssize_t size = recv(descriptor, packet.data(), packet.size(), MSG_DONTWAIT);
    if (size == 0)
        return sd_event_exit(sd_bus_get_event(relay.bus), 0);
    if (size < 8 || bench::messageId(packet.data()) != bench::NotificationId)
        return 0;
    const auto index = std::size_t(bench::sessionId(packet.data()) - FirstId);
    if (index >= relay.listeners.size())
        return 0;
    // As many bytes as the daemon's serialised fix, with the report's own bytes for content.
    std::array<std::uint8_t, bench::FixBytes> fix{};
    std::copy_n(packet.data(), std::min(std::size_t(size), fix.size()), fix.data());
    bench::sendFix(relay.bus, relay.listeners[index], fix);
    return 0;
}

} // namespace

int main()
{
    using bench::check;
    Relay relay;
    relay.engine = bench::connectToEngine();
    sd_event *event = nullptr;
    check(sd_event_default(&event), "event loop");
    check(sd_bus_open_user(&relay.bus), "session bus");
    check(sd_bus_attach_event(relay.bus, event, 0), "event loop of the bus");
    check(sd_event_add_io(event, nullptr, relay.engine, EPOLLIN, onEnginePacket, &relay), "engine notifier");
    bench::serveClients(relay.bus, onRegisterListener, onConfigSession, &relay);
    return sd_event_loop(event);
}
