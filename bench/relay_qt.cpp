// The same relay as relay_floor.cpp on Qt's D-Bus, whose connections live on a thread of their own:
// what is left of the road for whoever builds on Qt. No conversion, no plan, no log.

#include "engine/messagebuilder.h"
#include "engineframe.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QSocketNotifier>

#include <array>
#include <cstring>
#include <vector>

#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int FirstId = 6000;

struct Listener {
    QString service;
    QString path;
};

class Relay : public QDBusVirtualObject
{
public:
    explicit Relay(int engine)
        : m_engine(engine)
        , m_notifier(engine, QSocketNotifier::Read)
    {
        connect(&m_notifier, &QSocketNotifier::activated, this, &Relay::relayOne);
    }

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        const QVariantList arguments = call.arguments();
        if (call.member() == "registerListener"_L1) {
            m_listeners.push_back({arguments.at(0).toString(), arguments.at(1).toString()});
            bus.send(call.createReply({FirstId + int(m_listeners.size()) - 1, 0xffU, 1000U}));
            return true;
        }
        if (call.member() == "configSession"_L1) {
            const auto request =
                wire::gnssRequest({quint16(arguments.at(0).toInt()), GnssCommand::Start, 2, 1});
            send(m_engine, request.constData(), std::size_t(request.size()), MSG_NOSIGNAL);
            bus.send(call.createReply(0));
            return true;
        }
        return false;
    }

private:
    void relayOne()
    {
        std::array<std::uint8_t, 8192> packet;
        const ssize_t size = recv(m_engine, packet.data(), packet.size(), MSG_DONTWAIT);
        if (size == 0)
            QCoreApplication::quit();
        if (size < 8 || bench::messageId(packet.data()) != bench::NotificationId)
            return;
        const auto index = std::size_t(bench::sessionId(packet.data()) - FirstId);
        if (index >= m_listeners.size())
            return;
        QByteArray fix(bench::FixBytes, '\0');
        std::memcpy(fix.data(), packet.data(), std::min(std::size_t(size), bench::FixBytes));
        auto call = QDBusMessage::createMethodCall(m_listeners[index].service, m_listeners[index].path,
                                                   u"com.varn.qlocation.updates"_s, u"positionUpdate"_s);
        call.setAutoStartService(false);
        call << fix;
        QDBusConnection::sessionBus().send(call);
    }

    int m_engine;
    QSocketNotifier m_notifier;
    std::vector<Listener> m_listeners;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    Relay relay(bench::connectToEngine());
    auto bus = QDBusConnection::sessionBus();
    bus.registerVirtualObject(u"/com/varn/lodestard/client"_s, &relay);
    if (!bus.registerService(u"com.varn.lodestard.client"_s))
        return 1;
    return QCoreApplication::exec();
}
