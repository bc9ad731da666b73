#include "platform/contextprovider.h"
#include "support/leavebus.h"
#include "support/privatebus.h"
#include "support/stillclock.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString ServiceName = u"com.varn.test.context"_s;
const QString Interface = u"com.varn.context.Property"_s;
const QString Path = u"/com/varn/context/Some/Deep/Key"_s;

} // namespace

// An interested program with a connection of its own.
class Subscriber : public QObject
{
    Q_OBJECT
public:
    explicit Subscriber(const QString &name)
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name))
    {
        // Whatever reaches this connection, whether it was meant for it or not.
        m_bus.connect(QString(), QString(), Interface, u"ValueChanged"_s, this, SLOT(take(QDBusMessage)));
    }
    ~Subscriber() override { leaveBus(m_bus); }

    QDBusMessage call(const QString &member, const QString &path = Path)
    {
        const QDBusPendingReply<> reply = post(member, path);
        return QTest::qWaitFor([&reply] { return reply.isFinished(); }) ? reply.reply() : QDBusMessage();
    }
    QDBusPendingReply<> post(const QString &member, const QString &path = Path)
    {
        return m_bus.asyncCall(QDBusMessage::createMethodCall(ServiceName, path, Interface, member));
    }
    QString uniqueName() const { return m_bus.baseService(); }

    QList<QDBusMessage> heard;

private slots:
    void take(const QDBusMessage &signal) { heard << signal; }

private:
    QDBusConnection m_bus;
};

class TestContextProvider : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void anUnsetPropertyIsAnEmptyArray();
    void aTextIsOneVariant();
    void coordinatesAreTwoDoubles();
    void subscribersHearOfChangesAndNobodyElse();
    void aSubscriberCountsOnce();
    void theFirstSubscriberFindsWhatIsSetForIt();
    void whoLeavesTheBusIsGone();
    void whoLeftBeforeItsCallWasReadIsGone();
    void unsubscribingWithoutSubscribing();
    void subscribersComeBack();
    void aTakenNameIsNoEnd();
    void objectsOutliveNobody();

private:
    // The first argument of an answer or a signal.
    static QVariantList values(const QDBusMessage &message)
    {
        const auto array = message.arguments().value(0);
        return array.canConvert<QDBusArgument>() ? qdbus_cast<QVariantList>(array) : array.toList();
    }

    StillClock m_clock;
    std::unique_ptr<ContextProvider::Service> m_service;
    std::unique_ptr<ContextProvider::Property> m_property;
};

void TestContextProvider::init()
{
    m_service = std::make_unique<ContextProvider::Service>(QDBusConnection::sessionBus(), ServiceName);
    m_property = std::make_unique<ContextProvider::Property>(*m_service, u"Some.Deep.Key"_s, m_clock);
    QVERIFY(m_service->start());
}

void TestContextProvider::cleanup()
{
    m_property.reset();
    m_service.reset();
    QDBusConnection::sessionBus().unregisterService(ServiceName);
}

void TestContextProvider::anUnsetPropertyIsAnEmptyArray()
{
    Subscriber someone(u"someone"_s);
    const QDBusMessage answer = someone.call(u"Get"_s);
    QCOMPARE(answer.signature(), u"avt"_s);
    QCOMPARE(values(answer), QVariantList());
    QCOMPARE(answer.arguments().value(1).toULongLong(), 0ULL);
}

void TestContextProvider::aTextIsOneVariant()
{
    m_property->setValue(u"search"_s);
    Subscriber someone(u"someone"_s);
    const QDBusMessage answer = someone.call(u"Get"_s);
    QCOMPARE(answer.signature(), u"avt"_s);
    QCOMPARE(values(answer), QVariantList{u"search"_s});
    QCOMPARE(answer.arguments().value(1).toULongLong(), qulonglong(m_clock.time.toMSecsSinceEpoch()));
    // The time is that of the value, not of the question.
    m_clock.time = m_clock.time.addSecs(5);
    QCOMPARE(someone.call(u"Get"_s).arguments().value(1), answer.arguments().value(1));
}

void TestContextProvider::coordinatesAreTwoDoubles()
{
    m_property->setValue(QVariant::fromValue(QList<double>{60.169856123456, -24.938379654321}));
    Subscriber someone(u"someone"_s);
    const QDBusMessage answer = someone.call(u"Subscribe"_s);
    QCOMPARE(answer.signature(), u"avt"_s);
    const auto inner = values(answer).value(0).value<QDBusArgument>();
    QCOMPARE(inner.currentSignature(), u"ad"_s);
    QCOMPARE(qdbus_cast<QList<double>>(inner), (QList<double>{60.169856123456, -24.938379654321}));
}

void TestContextProvider::subscribersHearOfChangesAndNobodyElse()
{
    Subscriber one(u"one"_s);
    Subscriber two(u"two"_s);
    Subscriber bystander(u"bystander"_s);
    QCOMPARE(one.call(u"Subscribe"_s).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(two.call(u"Subscribe"_s).type(), QDBusMessage::ReplyMessage);
    bystander.call(u"Get"_s);
    m_property->setValue(u"on"_s);
    for (Subscriber *each : {&one, &two}) {
        QTRY_COMPARE(each->heard.size(), 1);
        const QDBusMessage signal = each->heard.constFirst();
        QCOMPARE(signal.path(), Path);
        QCOMPARE(signal.signature(), u"avt"_s);
        QCOMPARE(values(signal), QVariantList{u"on"_s});
        QCOMPARE(signal.arguments().value(1).toULongLong(), qulonglong(m_clock.time.toMSecsSinceEpoch()));
    }
    // Told again, though it is the same: the time is new.
    m_property->setValue(u"on"_s);
    QTRY_COMPARE(two.heard.size(), 2);

    two.call(u"Unsubscribe"_s);
    m_property->setValue(u"off"_s);
    QTRY_COMPARE(one.heard.size(), 3);
    two.call(u"Get"_s);
    bystander.call(u"Get"_s);
    QCOMPARE(two.heard.size(), 2);
    QCOMPARE(bystander.heard.size(), 0);
}

void TestContextProvider::aSubscriberCountsOnce()
{
    const QSignalSpy first(m_property.get(), &ContextProvider::Property::firstSubscriberAppeared);
    const QSignalSpy last(m_property.get(), &ContextProvider::Property::lastSubscriberDisappeared);
    Subscriber one(u"one"_s);
    Subscriber two(u"two"_s);
    one.call(u"Subscribe"_s);
    one.call(u"Subscribe"_s);
    QCOMPARE(first, (QList<QVariantList>{{u"Some.Deep.Key"_s}}));
    two.call(u"Subscribe"_s);
    QCOMPARE(first.count(), 1);
    m_property->setValue(u"on"_s);
    one.call(u"Unsubscribe"_s);
    QCOMPARE(one.heard.size(), 1);
    QCOMPARE(last.count(), 0);
    two.call(u"Unsubscribe"_s);
    QCOMPARE(last, (QList<QVariantList>{{u"Some.Deep.Key"_s}}));
}

void TestContextProvider::theFirstSubscriberFindsWhatIsSetForIt()
{
    connect(m_property.get(), &ContextProvider::Property::firstSubscriberAppeared, this,
            [this] { m_property->setValue(u"search"_s); });
    Subscriber one(u"one"_s);
    QCOMPARE(values(one.call(u"Subscribe"_s)), QVariantList{u"search"_s});
    one.call(u"Get"_s);
    QCOMPARE(one.heard.size(), 0); // the answer said it
}

void TestContextProvider::whoLeavesTheBusIsGone()
{
    const QSignalSpy first(m_property.get(), &ContextProvider::Property::firstSubscriberAppeared);
    const QSignalSpy last(m_property.get(), &ContextProvider::Property::lastSubscriberDisappeared);
    auto one = std::make_unique<Subscriber>(u"one"_s);
    auto two = std::make_unique<Subscriber>(u"two"_s);
    one->call(u"Subscribe"_s);
    two->call(u"Subscribe"_s);
    one.reset();
    two->call(u"Unsubscribe"_s);
    QTRY_COMPARE(last.count(), 1);
    two->call(u"Subscribe"_s);
    QCOMPARE(first.count(), 2);
    two.reset();
    QTRY_COMPARE(last.count(), 2);
}

void TestContextProvider::whoLeftBeforeItsCallWasReadIsGone()
{
    const QSignalSpy first(m_property.get(), &ContextProvider::Property::firstSubscriberAppeared);
    const QSignalSpy last(m_property.get(), &ContextProvider::Property::lastSubscriberDisappeared);
    auto hasty = std::make_unique<Subscriber>(u"hasty"_s);
    const QString name = hasty->uniqueName();
    hasty->post(u"Subscribe"_s);
    hasty.reset();
    // The bus has forgotten it before our event loop gets to its call.
    auto *bus = QDBusConnection::sessionBus().interface();
    while (bus->isServiceRegistered(name))
        continue;
    QTRY_COMPARE(first.count(), 1);
    QTRY_COMPARE(last.count(), 1);
}

void TestContextProvider::unsubscribingWithoutSubscribing()
{
    const QSignalSpy last(m_property.get(), &ContextProvider::Property::lastSubscriberDisappeared);
    Subscriber one(u"one"_s);
    QCOMPARE(one.call(u"Unsubscribe"_s).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(last.count(), 0);
}

void TestContextProvider::subscribersComeBack()
{
    const QSignalSpy first(m_property.get(), &ContextProvider::Property::firstSubscriberAppeared);
    Subscriber one(u"one"_s);
    one.call(u"Subscribe"_s);
    one.call(u"Unsubscribe"_s);
    m_property->setValue(u"on"_s);
    QCOMPARE(values(one.call(u"Subscribe"_s)), QVariantList{u"on"_s});
    QCOMPARE(first.count(), 2);
    m_property->setValue(u"off"_s);
    QTRY_COMPARE(one.heard.size(), 1);
}

void TestContextProvider::aTakenNameIsNoEnd()
{
    auto other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other"_s);
    QVERIFY(other.registerService(u"com.varn.test.taken"_s));
    ContextProvider::Service service(QDBusConnection::sessionBus(), u"com.varn.test.taken"_s);
    ContextProvider::Property property(service, u"Other.Key"_s, m_clock);
    QVERIFY(!service.start());
    property.setValue(u"on"_s); // for nobody
    leaveBus(u"other"_s);
    Subscriber someone(u"someone"_s);
    QCOMPARE(values(someone.call(u"Get"_s, u"/com/varn/context/Other/Key"_s)), QVariantList{u"on"_s});
}

void TestContextProvider::objectsOutliveNobody()
{
    m_property.reset();
    Subscriber someone(u"someone"_s);
    QCOMPARE(someone.call(u"Get"_s).errorName(), u"org.freedesktop.DBus.Error.UnknownObject"_s);
}

PRIVATE_BUS_TEST_MAIN(TestContextProvider)
#include "tst_contextprovider.moc"
