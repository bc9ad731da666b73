#include "engineframe.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char *EngineSocket = "/var/run/orvd/orvd.socket";

// Applies bind() or connect() to a new socket and the engine's address.
template <typename Operation>
int openEngineSocket(Operation operation, const char *failure)
{
    const int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", EngineSocket);
    if (operation(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        std::perror(failure);
        std::exit(1);
    }
    return descriptor;
}

engineside::ReportWriter fixReport(std::uint16_t session)
{
    engineside::ReportWriter report(GnssNotification{.sessionId = session, .status = 0x41});
    PositionBlock position{};
    position.latitude = 0x2AAAAAAA; // 60 degrees
    position.longitude = 0x11C71C71;
    position.along = 400;
    position.ortho = 300;
    position.altitude = 50;
    position.altitudeError = 12;
    position.geoid = -40;
    report.add(position);
    VelocityBlock velocity{};
    velocity.heading = 4500;
    velocity.variation = 820;
    velocity.speed = 140;
    velocity.climb = 10;
    report.add(velocity);
    return report;
}

} // namespace

int bench::listenAsEngine()
{
    mkdir("/var/run/orvd", 0755);
    unlink(EngineSocket);
    const int listener = openEngineSocket(bind, "cannot take the engine's place");
    if (listen(listener, 1) != 0) {
        std::perror("cannot listen in the engine's place");
        std::exit(1);
    }
    return listener;
}

int bench::connectToEngine()
{
    return openEngineSocket(connect, "cannot connect to the engine");
}

QByteArray bench::fixNotification(std::uint16_t session)
{
    return fixReport(session).bytes();
}

QByteArray bench::fullNotification(std::uint16_t session)
{
    auto report = fixReport(session);
    std::vector<SatelliteRecord> satellites;
    for (std::uint8_t number = 0; number < 12; ++number) {
        satellites.push_back({.number = number,
                              .used = std::uint8_t(number < 8),
                              .cno = std::uint16_t((30 + number) * 16),
                              .elevation = std::uint16_t(500 + 600 * number),
                              .azimuth = std::uint16_t(3000 * number)});
    }
    report.addSatellites(satellites);
    return report.bytes();
}
