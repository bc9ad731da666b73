#include "client/clientdbusserver.h"
#include "client/clientdbusserverif.h"
#include "client/fixstream.h"
#include "platform/contextprovider.h"
#include "settings/locationsecuresettings.h"
#include "settings/locationsecuresettingsif.h"
#include "settings/settingstable.h"

#include <QDBusConnection>
#include <QFile>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QGeoSatelliteInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Only introspected, never called.
class SilentHandler : public ClientDBusServerIF, public LocationSecureSettingsIF
{
public:
    int registerListener(const QString &, const QString &) override { return 0; }
    int configRequest(int, int, int, int) override { return 0; }
    QGeoPositionInfo latestPosition(bool) override { return {}; }
    quint32 supportedMethods() override { return 0; }
    quint32 minimumInterval() override { return 0; }
    void prestartPositioning(bool, bool) override {}
    void clearAssistanceData(int) override {}
};

} // namespace

// The annotated interface documents against the live objects, by the checker that the end-to-end
// tests use too.
class TestInterfaceDocuments : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qputenv("USER", "root");
        new ClientDBusServer(&m_clientHost, &m_handler);
        DevicePaths paths;
        paths.root = m_directory.path();
        new LocationSecureSettings(&m_settingsHost, &m_handler, paths);
        auto bus = QDBusConnection::sessionBus();
        m_property = std::make_unique<ContextProvider::Property>(
            ContextProvider::Service(bus, u"com.varn.test.context"_s), u"Some.Key"_s);
        QVERIFY(bus.registerObject(u"/client"_s, &m_clientHost, QDBusConnection::ExportAdaptors));
        QVERIFY(bus.registerObject(u"/settings"_s, &m_settingsHost, QDBusConnection::ExportAdaptors));
    }

    void theDocumentIsWhatTheObjectOffers_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<QString>("path");
        QTest::newRow("the client service") << u"dbus/com.varn.lodestard.client.xml"_s << u"/client"_s;
        QTest::newRow("a context property")
            << u"dbus/com.varn.context.Property.xml"_s << u"/com/varn/context/Some/Key"_s;
        QTest::newRow("the settings service") << u"dbus/com.varn.location.settings.xml"_s << u"/settings"_s;
    }
    void theDocumentIsWhatTheObjectOffers()
    {
        QFETCH(QString, document);
        QFETCH(QString, path);
        QCOMPARE(check(read(document), path), u"exit code 0: "_s);
    }

    void everyDifferenceIsFound_data()
    {
        QTest::addColumn<QString>("was");
        QTest::addColumn<QString>("is");
        QTest::addColumn<QString>("found");
        QTest::newRow("another interface") << u"com.varn.lodestard.client\""_s << u"com.varn.else\""_s
                                           << u"com.varn.else: the object does not have it"_s;
        QTest::newRow("another method")
            << u"<method name=\"latestPosition\""_s << u"<method name=\"position\""_s
            << u"only in the document: method position"_s;
        QTest::newRow("another type")
            << u"\"interval\" type=\"i\""_s << u"\"interval\" type=\"u\""_s << u"u interval"_s;
        QTest::newRow("another argument name") << u"\"satelliteOnly\""_s << u"\"only\""_s << u"in(b only)"_s;
        QTest::newRow("another direction")
            << u"type=\"ay\" direction=\"out\""_s << u"type=\"ay\" direction=\"in\""_s
            << u"only on the bus: method latestPosition in(b satelliteOnly) out(ay)"_s;
        QTest::newRow("a method too many") << u"</interface>"_s << u"<method name=\"more\"/></interface>"_s
                                           << u"only in the document: method more"_s;
        const QString whole = read(u"dbus/com.varn.lodestard.client.xml"_s);
        const qsizetype last = whole.indexOf(u"<method name=\"prestartPositioning\""_s);
        QTest::newRow("a method too few") << whole.sliced(last, whole.indexOf(u"</interface>"_s) - last)
                                          << QString() << u"only on the bus: method prestartPositioning"_s;
        QTest::newRow("a signal") << u"</interface>"_s << u"<signal name=\"more\"/></interface>"_s
                                  << u"only in the document: signal more"_s;
        QTest::newRow("an annotation")
            << u"<arg name=\"satelliteOnly\""_s
            << u"<annotation name=\"a\" value=\"b\"/><arg name=\"satelliteOnly\""_s << u"@a=b"_s;
    }
    void everyDifferenceIsFound()
    {
        QFETCH(QString, was);
        QFETCH(QString, is);
        QFETCH(QString, found);
        QString document = read(u"dbus/com.varn.lodestard.client.xml"_s);
        QVERIFY(document.contains(was));
        document.replace(was, is);
        const QString output = check(document, u"/client"_s);
        QVERIFY2(output.startsWith(u"exit code 1: ") && output.contains(found), qPrintable(output));
    }

    void theSettingsTableIsTheDocumentedOne()
    {
        static const QRegularExpression row(
            u"^\\| `(\\w+)` \\| (\\w+) \\| ([^|]+) \\| (read|read, write) \\|$"_s,
            QRegularExpression::MultilineOption);
        auto rows = row.globalMatch(read(u"dbus.md"_s));
        for (const SettingDefinition &definition : settingDefinitions()) {
            QVERIFY2(rows.hasNext(), qPrintable(definition.key));
            const auto match = rows.next();
            QCOMPARE(match.captured(1), definition.key);
            const QString type = QString::fromLatin1(definition.defaultValue.metaType().name());
            QCOMPARE(match.captured(2), type == u"QString" ? u"string"_s : type);
            QCOMPARE(match.captured(4), definition.userWritable ? u"read, write"_s : u"read"_s);
            // The server's name is a build option, and the product decides about the internal receiver.
            if (definition.key.endsWith(u"SuplServer") || definition.key == u"InternalGpsDisabled")
                continue;
            const QString text = definition.defaultValue.toString();
            QCOMPARE(match.captured(3), text.isEmpty() ? u"empty"_s : text);
        }
        QVERIFY(!rows.hasNext());
    }

    void theWorkedExamplesAreRight()
    {
        // Blocks of hex lines, each with its explanation behind two blanks or more.
        static const QRegularExpression block(u"^```\\n((?:[0-9A-F]{2} [^`]+\\n)+)```$"_s,
                                              QRegularExpression::MultilineOption);
        static const QRegularExpression octets(u"^(?:[0-9A-F]{2} {1,2})+"_s,
                                               QRegularExpression::MultilineOption);
        QList<QByteArray> examples;
        for (const auto &example : block.globalMatch(read(u"dbus.md"_s))) {
            QByteArray hex;
            for (const auto &line : octets.globalMatch(example.captured(1)))
                hex += line.captured(0).toLatin1();
            examples.append(QByteArray::fromHex(hex));
        }
        QCOMPARE(examples.size(), 2);

        const auto fix = FixStream::readFix(examples[0]);
        QVERIFY(fix);
        QCOMPARE(fix->timestamp(), QDateTime(QDate(2011, 9, 21), QTime(12, 34, 56, 789)));
        QCOMPARE(fix->coordinate(), QGeoCoordinate(60.169856, 24.938379, 25.5));
        QCOMPARE(fix->attribute(QGeoPositionInfo::Direction), 271.25);
        QCOMPARE(fix->attribute(QGeoPositionInfo::GroundSpeed), double(1.4F));
        QCOMPARE(fix->attribute(QGeoPositionInfo::HorizontalAccuracy), double(11.358F));

        const auto satellites = FixStream::readSatellites(examples[1]);
        QVERIFY(satellites);
        QCOMPARE(satellites->size(), 2);
        QCOMPARE(satellites->at(0).satelliteIdentifier(), 7);
        QCOMPARE(satellites->at(0).signalStrength(), 42);
        QCOMPARE(satellites->at(0).attribute(QGeoSatelliteInfo::Elevation), 63.0);
        QCOMPARE(satellites->at(0).attribute(QGeoSatelliteInfo::Azimuth), 311.5);
        QCOMPARE(satellites->at(1).satelliteIdentifier(), 32);
        QCOMPARE(satellites->at(1).signalStrength(), -1);
    }

private:
    static QString read(const QString &name)
    {
        QFile file(QStringLiteral(LODESTARD_SOURCE_DIR "/docs/") + name);
        if (!file.open(QIODevice::ReadOnly))
            qFatal("no such document");
        return QString::fromUtf8(file.readAll());
    }

    QString check(const QString &document, const QString &path)
    {
        QFile file(m_directory.filePath(u"document.xml"_s));
        if (!file.open(QIODevice::WriteOnly) || file.write(document.toUtf8()) < 0)
            qFatal("cannot write the document");
        file.close();
        QProcess checker;
        checker.setProcessChannelMode(QProcess::MergedChannels);
        checker.start(QStringLiteral(LODESTARD_PYTHON),
                      {QStringLiteral(LODESTARD_SOURCE_DIR "/tests/support/introspection.py"),
                       file.fileName(), QDBusConnection::sessionBus().baseService(), path});
        // The objects live in this thread: the loop must run while they are asked.
        if (!QTest::qWaitFor([&] { return checker.state() == QProcess::NotRunning; }, 30000))
            return u"the checker did not end"_s;
        return u"exit code %1: %2"_s.arg(checker.exitCode()).arg(QString::fromUtf8(checker.readAll()));
    }

    QTemporaryDir m_directory;
    SilentHandler m_handler;
    std::unique_ptr<ContextProvider::Property> m_property;
    QObject m_clientHost;
    QObject m_settingsHost;
};

QTEST_GUILESS_MAIN(TestInterfaceDocuments)
#include "tst_interfacedocuments.moc"
