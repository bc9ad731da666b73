#include "settings/settingsfixture.h"
#include "support/leavebus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QTest>
#include <QXmlStreamReader>

#include <optional>

using namespace Qt::StringLiterals;

// The settings service as other programs see it.

namespace {

const QString Service = u"com.varn.lodestard.settings"_s;
const QString Path = u"/com/varn/lodestard/settings"_s;
const QString Interface = u"com.varn.location.settings"_s;

// "method setSetting(sv)b", "signal valueChanged(s)" for every member of the interface, sorted.
QStringList members(const QString &xml)
{
    QStringList found;
    QString in;
    QString out;
    bool ours = false;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        const auto attribute = [&reader](const char *name) {
            return reader.attributes().value(QLatin1StringView(name)).toString();
        };
        if (token == QXmlStreamReader::StartElement) {
            if (reader.name() == u"interface")
                ours = attribute("name") == Interface;
            else if (reader.name() == u"method" || reader.name() == u"signal" ||
                     reader.name() == u"property") {
                in.clear();
                out.clear();
                if (ours)
                    found << reader.name().toString() + u' ' + attribute("name");
            } else if (reader.name() == u"arg") {
                (attribute("direction") == "out"_L1 && ours && found.last().startsWith("method"_L1) ? out
                                                                                                    : in) +=
                    attribute("type");
            }
        } else if (token == QXmlStreamReader::EndElement && ours &&
                   (reader.name() == u"method" || reader.name() == u"signal")) {
            found.last() += u'(' + in + u')' + out;
        }
    }
    found.sort();
    return found;
}

} // namespace

class TestSettingsBus : public QObject
{
    Q_OBJECT

public slots:
    void keepSignal(const QDBusMessage &message) { m_signals << message; }

private slots:
    void init();
    void cleanup();
    void describesItself();
    void valuesTravelWithTheirTypes();
    void setSettingStoresAndSignals();
    void setSettingOfAnUnknownKeyIsFalse();
    void unstorableValuesAreFalse_data();
    void unstorableValuesAreFalse();
    void anUnknownKeyIsAnErrorAtOnce();
    void aValueThatCannotBeSentIsAnErrorAtOnce();
    void aCallerWhoWantsNoReplyGetsNone();
    void resetIsSignalledToEverybody();
    void deletionIsForwarded();

private:
    QDBusMessage call(const QString &method, const QVariantList &arguments = {});

    std::unique_ptr<SettingsFixture> f;
    std::optional<QDBusConnection> m_client;
    QList<QDBusMessage> m_signals;
};

void TestSettingsBus::init()
{
    f = std::make_unique<SettingsFixture>();
    f->startQuietly();
    auto bus = QDBusConnection::sessionBus();
    QVERIFY(bus.registerObject(Path, &f->host));
    QVERIFY(bus.registerService(Service));
    m_client = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"client"_s);
    m_signals.clear();
    QVERIFY(
        m_client->connect(Service, Path, Interface, u"valueChanged"_s, this, SLOT(keepSignal(QDBusMessage))));
}

void TestSettingsBus::cleanup()
{
    m_client.reset();
    leaveBus(u"client"_s);
    auto bus = QDBusConnection::sessionBus();
    bus.unregisterService(Service);
    bus.unregisterObject(Path);
    f.reset();
}

QDBusMessage TestSettingsBus::call(const QString &method, const QVariantList &arguments)
{
    const bool standard = method == "Introspect"_L1;
    auto message = QDBusMessage::createMethodCall(
        Service, Path, standard ? u"org.freedesktop.DBus.Introspectable"_s : Interface, method);
    message.setArguments(arguments);
    const QDBusPendingCall pending = m_client->asyncCall(message);
    [&] { QTRY_VERIFY(pending.isFinished()); }(); // far earlier than the bus's own 25 s
    return pending.reply();
}

void TestSettingsBus::describesItself()
{
    const QDBusMessage reply = call(u"Introspect"_s);
    QCOMPARE(members(reply.arguments().value(0).toString()),
             QStringList({u"method clearAssistanceData(i)b"_s, u"method getSetting(s)v"_s,
                          u"method resetToDefaults()b"_s, u"method setSetting(sv)b"_s,
                          u"signal valueChanged(s)"_s}));
}

void TestSettingsBus::valuesTravelWithTheirTypes()
{
    const auto get = [this](const QString &key) {
        const QDBusMessage reply = call(u"getSetting"_s, {key});
        return reply.signature() == "v"_L1 ? reply.arguments().constFirst().value<QDBusVariant>().variant()
                                           : QVariant();
    };
    QCOMPARE(get(u"Positioning"_s), QVariant(true));
    QCOMPARE(get(u"PrimarySuplServerUsage"_s), QVariant(2));
    QCOMPARE(get(u"PrimarySuplServer"_s), QVariant(QStringLiteral(LODESTARD_DEFAULT_SUPL_SERVER)));
    QCOMPARE(get(u"SatellitePositioningExternalName"_s), QVariant(u""_s));
}

void TestSettingsBus::setSettingStoresAndSignals()
{
    const QDBusMessage reply =
        call(u"setSetting"_s, {u"WiFiPositioning"_s, QVariant::fromValue(QDBusVariant(false))});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(reply.arguments(), QVariantList{true});
    QCOMPARE(f->settings->value(u"WiFiPositioning"_s), QVariant(false));
    QTRY_COMPARE(m_signals.size(), 1);
    QCOMPARE(m_signals.constFirst().arguments(), QVariantList{u"WiFiPositioning"_s});
    QCOMPARE(m_signals.constFirst().signature(), u"s"_s);
}

void TestSettingsBus::setSettingOfAnUnknownKeyIsFalse()
{
    const QDBusMessage reply = call(u"setSetting"_s, {u"Altimeter"_s, QVariant::fromValue(QDBusVariant(1))});
    QCOMPARE(reply.arguments(), QVariantList{false});
    QCOMPARE(f->log.takeLines(),
             QStringList{u"warning: Location settings does not contain setting for: \"Altimeter\""_s});
}

void TestSettingsBus::unstorableValuesAreFalse_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::newRow("array of strings") << QVariant(QStringList{u"a"_s});
    QTest::newRow("array of integers") << QVariant::fromValue(QList<int>{1, 2});
    QTest::newRow("structure") << QVariant(QPoint(1, 2));
    QTest::newRow("dictionary") << QVariant(QVariantMap{{u"a"_s, 1}});
    QTest::newRow("object path") << QVariant::fromValue(QDBusObjectPath(u"/a"_s));
    QTest::newRow("a structure in a variant") << QVariant::fromValue(QDBusVariant(QPoint(1, 2)));
}

void TestSettingsBus::unstorableValuesAreFalse()
{
    QFETCH(const QVariant, value);
    const QDBusMessage reply =
        call(u"setSetting"_s, {u"Positioning"_s, QVariant::fromValue(QDBusVariant(value))});
    QCOMPARE(reply.arguments(), QVariantList{false});
    QCOMPARE(
        f->log.takeLines(),
        QStringList{u"critical: LocationSecureSettings::set: Cannot write setting Positioning to disk"_s});
    QCOMPARE(f->settings->value(u"Positioning"_s), QVariant(true));
}

void TestSettingsBus::anUnknownKeyIsAnErrorAtOnce()
{
    const QDBusMessage reply = call(u"getSetting"_s, {u"Altimeter"_s});
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), u"org.freedesktop.DBus.Error.InvalidArgs"_s);
    QCOMPARE(f->log.takeLines(), QStringList{u"warning: Wrong location setting key: \"Altimeter\""_s});
}

void TestSettingsBus::aValueThatCannotBeSentIsAnErrorAtOnce()
{
    QVERIFY(f->set(u"SuplForced"_s, false)); // nothing of ours is unwritten
    {                                        // by another program, taken over with the next write
        QSettings file(f->tree.at(SettingsFixture::UserFile), QSettings::NativeFormat);
        file.setValue(u"Positioning"_s, QChar(u'x'));
    }
    QVERIFY(f->set(u"SuplForced"_s, true));
    QCOMPARE(f->settings->value(u"Positioning"_s), QVariant(QChar(u'x')));
    const QDBusMessage reply = call(u"getSetting"_s, {u"Positioning"_s});
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), u"org.freedesktop.DBus.Error.Failed"_s);
    QCOMPARE(f->log.takeLines(), QStringList());
}

void TestSettingsBus::aCallerWhoWantsNoReplyGetsNone()
{
    auto message = QDBusMessage::createMethodCall(Service, Path, Interface, u"getSetting"_s);
    message.setArguments({u"Altimeter"_s});
    QVERIFY(m_client->send(message)); // Qt marks it as wanting no reply
    QTRY_COMPARE(f->log.lines(), QStringList{u"warning: Wrong location setting key: \"Altimeter\""_s});
    QCOMPARE(call(u"getSetting"_s, {u"Positioning"_s}).type(), QDBusMessage::ReplyMessage); // still serving
}

void TestSettingsBus::resetIsSignalledToEverybody()
{
    QVERIFY(f->set(u"SuplForced"_s, true));
    QVERIFY(f->set(u"Positioning"_s, false));
    QCOMPARE(call(u"resetToDefaults"_s).arguments(), QVariantList{true});
    QTRY_COMPARE(m_signals.size(), 4);
    QCOMPARE(m_signals.at(2).arguments(), QVariantList{u"Positioning"_s});
    QCOMPARE(m_signals.at(3).arguments(), QVariantList{u"SuplForced"_s});
}

void TestSettingsBus::deletionIsForwarded()
{
    QCOMPARE(call(u"clearAssistanceData"_s, {0x11111111}).arguments(), QVariantList{true});
    QCOMPARE(f->handler.cleared, QList<int>{0x11111111});
}

PRIVATE_BUS_TEST_MAIN(TestSettingsBus)
#include "tst_settingsbus.moc"
