// The daemon's engine link: messages one after another into one object, in the state the first byte
// asks for. Input: the state, then messages, each behind its length of two bytes.
#include "engine/orvcomm.h"
#include "engine/packetview.h"
#include "target.h"

#include <QCoreApplication>

#include <algorithm>
#include <array>

namespace {
// Timers need an application; the log texts are formatted and thrown away.
void startQt()
{
    static int argc = 1;
    static std::array<char, 5> name{"fuzz"};
    static std::array<char *, 2> argv{name.data(), nullptr};
    static QCoreApplication application(argc, argv.data());
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

const char *untrue = nullptr;

void watch(ORVComm &link)
{
    QObject::connect(&link, &ORVComm::satellitesInView, [](const QList<QGeoSatelliteInfo> &satellites) {
        if (satellites.isEmpty() || satellites.size() > 255)
            untrue = "a list that is announced holds some, and no more than a count can say";
    });
    QObject::connect(&link, &ORVComm::satellitesInUse, [](const QList<QGeoSatelliteInfo> &satellites) {
        if (satellites.isEmpty())
            untrue = "a list that is announced is not empty";
    });
    QObject::connect(&link, &ORVComm::positionUpdateGNSS, [](quint16, const QGeoPositionInfo &fix) {
        if (!fix.timestamp().isValid())
            untrue = "a satellite fix has the time of its arrival";
    });
    QObject::connect(&link, &ORVComm::locationRequest, [](quint8, int type) {
        if (type != 0 && type != 1)
            untrue = "only requests to show are shown";
    });
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool started = (startQt(), true);
    Q_UNUSED(started);
    if (size == 0)
        return 0;

    untrue = nullptr;
    ORVComm link;
    watch(link);
    const auto state = data[0];
    for (quint16 session = 0; session < state % 4; ++session)
        link.startGNSS(session, 1 + 60 * session);
    link.setVESKUpdatesEnabled((state & 0x80) != 0);

    auto rest = fuzz::bytes(data, size).subspan(1);
    while (rest.size() >= 2) {
        const std::size_t claimed = PacketView(rest).get(Field<quint16>{0});
        const auto length = std::min(claimed, rest.size() - 2);
        link.handlePacket(rest.subspan(2, length));
        rest = rest.subspan(2 + length);
        fuzz::require(untrue);
    }
    return 0;
}
