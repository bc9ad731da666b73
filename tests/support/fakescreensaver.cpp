#include "support/fakescreensaver.h"

#include "support/leavebus.h"

#include <QDBusMessage>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

QString freshConnectionName()
{
    static int number = 0;
    return u"screen saver %1"_s.arg(++number);
}

} // namespace

FakeScreenSaver::FakeScreenSaver(const QString &name, bool active, Answers answers)
    : m_name(name)
    , m_path(u'/' + QString(name).replace(u'.', u'/'))
    , m_active(active)
    , m_answers(answers)
    , m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, freshConnectionName()))
{
    if (!m_bus.registerVirtualObject(m_path, this) || !m_bus.registerService(m_name))
        qFatal("The fake screen saver cannot appear on the bus");
}

FakeScreenSaver::~FakeScreenSaver()
{
    m_bus.unregisterObject(m_path);
    leaveBus(m_bus);
}

void FakeScreenSaver::setActive(bool active)
{
    m_active = active;
    auto signal = QDBusMessage::createSignal(m_path, m_name, u"ActiveChanged"_s);
    signal << active;
    m_bus.send(signal);
}

void FakeScreenSaver::leave()
{
    m_bus.unregisterService(m_name);
}

QStringList FakeScreenSaver::takeCalls()
{
    return std::exchange(m_calls, {});
}

void FakeScreenSaver::answerHeldCalls()
{
    for (const QDBusMessage &reply : std::exchange(m_held, {}))
        m_bus.send(reply);
}

bool FakeScreenSaver::handleMessage(const QDBusMessage &message, const QDBusConnection &)
{
    m_calls << message.member();
    if (message.interface() != m_name || message.member() != "GetActive"_L1)
        return false;
    answer(message);
    return true;
}

void FakeScreenSaver::answer(const QDBusMessage &call)
{
    switch (m_answers) {
    case Answers::Properly:
        m_bus.send(call.createReply(m_active));
        break;
    case Answers::WithAnError:
        m_bus.send(call.createErrorReply(QDBusError::NotSupported, u"not here"_s));
        break;
    case Answers::WithAText:
        m_bus.send(call.createReply(u"yes"_s));
        break;
    case Answers::Never:
        m_held << call.createReply(m_active);
        break;
    }
}
