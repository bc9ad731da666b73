#include "client/clientdbusserver.h"
#include "client/clientdbusserverif.h"
#include "settings/locationsecuresettings.h"
#include "settings/locationsecuresettingsif.h"

#include <QDBusConnection>
#include <QFile>
#include <QGeoPositionInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

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
        QVERIFY(bus.registerObject(u"/client"_s, &m_clientHost, QDBusConnection::ExportAdaptors));
        QVERIFY(bus.registerObject(u"/settings"_s, &m_settingsHost, QDBusConnection::ExportAdaptors));
    }

    void theDocumentIsWhatTheObjectOffers_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<QString>("path");
        QTest::newRow("the client service") << u"com.varn.lodestard.client"_s << u"/client"_s;
        QTest::newRow("the settings service") << u"com.varn.location.settings"_s << u"/settings"_s;
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
        const QString whole = read(u"com.varn.lodestard.client"_s);
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
        QString document = read(u"com.varn.lodestard.client"_s);
        QVERIFY(document.contains(was));
        document.replace(was, is);
        const QString output = check(document, u"/client"_s);
        QVERIFY2(output.startsWith(u"exit code 1: ") && output.contains(found), qPrintable(output));
    }

private:
    static QString documentPath(const QString &name)
    {
        return QStringLiteral(LODESTARD_SOURCE_DIR "/docs/dbus/") + name + u".xml"_s;
    }

    static QString read(const QString &name)
    {
        QFile file(documentPath(name));
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
    QObject m_clientHost;
    QObject m_settingsHost;
};

QTEST_GUILESS_MAIN(TestInterfaceDocuments)
#include "tst_interfacedocuments.moc"
