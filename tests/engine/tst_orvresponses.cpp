#include "engine/orvbench.h"

#include <QMetaMethod>

using namespace Qt::StringLiterals;
using engineside::ReportWriter;

// Answers to requests, network-initiated requests, and the interface itself.
class TestOrvResponses : public OrvBenchTest
{
    Q_OBJECT
private slots:
    void signalsKeepTheirOrder();
    void statesKeepTheirNumbers();
    void responsesAreLogged_data();
    void responsesAreLogged();
    void messagesWithoutAHandlerAreDropped_data();
    void messagesWithoutAHandlerAreDropped();
    void aSuplFixIsStampedAndHandedOn();
    void aSuplFailureIsAnInvalidFix_data();
    void aSuplFailureIsAnInvalidFix();
    void aSuplResponseWithoutAFixIsInvalid();
    void aSuplFixTouchesNoSession();
    void locationRequestsAreShown_data();
    void locationRequestsAreShown();
    void locationRequestsAreLogged();
};

namespace {

template <typename... Arguments>
QMetaMethod announcement(void (ORVComm::*signal)(Arguments...))
{
    return QMetaMethod::fromSignal(signal);
}

QList<QByteArray> namesOf(const QList<QMetaMethod> &methods)
{
    QList<QByteArray> names;
    for (const QMetaMethod &method : methods)
        names.append(method.name());
    return names;
}

} // namespace

void TestOrvResponses::signalsKeepTheirOrder()
{
    const QMetaObject &meta = ORVComm::staticMetaObject;
    QList<QMetaMethod> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods.append(meta.method(i));
    // The compiler compares the arguments; how they are spelled is Qt's own affair.
    const QList<QMetaMethod> announced{
        announcement<quint16, QGeoPositionInfo &>(&ORVComm::positionUpdateGNSS),
        announcement<QGeoPositionInfo &>(&ORVComm::positionUpdateSUPL),
        announcement<QList<QGeoSatelliteInfo> &>(&ORVComm::satellitesInView),
        announcement<QList<QGeoSatelliteInfo> &>(&ORVComm::satellitesInUse),
        announcement<ORVComm::GNSSState>(&ORVComm::GNSSStateUpdated),
        announcement<quint16>(&ORVComm::updateTimeoutGNSS),
        announcement<quint8, int, bool, QString, QString>(&ORVComm::locationRequest),
        announcement<quint8>(&ORVComm::locationRequestTimeout),
        announcement<>(&ORVComm::connectionLost),
        announcement<double, double, double, double, double, uchar, ushort, ushort, ushort, uchar, uchar,
                     uchar, uchar, ushort>(&ORVComm::updateVESK),
    };
    QCOMPARE(namesOf(methods.first(announced.size())), namesOf(announced));
    QCOMPARE(methods.first(announced.size()), announced);

    QList<QByteArray> others;
    for (const QMetaMethod &method : methods.sliced(announced.size()))
        others.append(method.methodSignature());
    QCOMPARE(others, QList<QByteArray>({"sendLocationRequestReply(bool)", "onConnectionLost()",
                                        "orvInbox(const char*)", "timeoutGNSS()"}));
}

void TestOrvResponses::statesKeepTheirNumbers()
{
    QCOMPARE(int(ORVComm::Idle), 0);
    QCOMPARE(int(ORVComm::Search), 1);
    QCOMPARE(int(ORVComm::GNSSState::Tracking), 2);
}

void TestOrvResponses::responsesAreLogged_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QString>("line");
    QTest::newRow("a session response")
        << sample::hex("EF020008 0102 A5 00")
        << u"debug: ORVComm::handleGNSSResponse() session id: 258, status: 0xa5"_s;
    QTest::newRow("assistance data deleted: 1")
        << sample::hex("EF0B0008 01 000000")
        << u"debug: ORVComm::handleAstncDelResponse assistance deletion OK"_s;
    QTest::newRow("assistance data not deleted: 0")
        << sample::hex("EF0B0008 00 000000")
        << u"debug: ORVCOMM::handleAstncDelResponse assistance deletion FAILED"_s;
    QTest::newRow("assistance data not deleted: 2")
        << sample::hex("EF0B0008 02 000000")
        << u"debug: ORVCOMM::handleAstncDelResponse assistance deletion FAILED"_s;
    QTest::newRow("registered: 0") << sample::hex("EF0D0008 00 000000")
                                   << u"debug: ORVComm::handlePrivacyRegistrationResponse privacy reg OK"_s;
    QTest::newRow("not registered: 1")
        << sample::hex("EF0D0008 01 000000")
        << u"critical: ORVComm::handlePrivacyRegistrationResponse privacy req FAILED"_s;
}

void TestOrvResponses::responsesAreLogged()
{
    QFETCH(QByteArray, message);
    QFETCH(QString, line);
    m_bench->hear(message);
    QStringList lines = m_bench->log();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.last(), line);
    QCOMPARE(m_bench->seen(), QStringList());
}

void TestOrvResponses::messagesWithoutAHandlerAreDropped_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QString>("line");
    const auto row = [](const char *name, const char *id) {
        QTest::newRow(name) << sample::hex(id) + sample::hex("000C 0007 01 01 00000000")
                            << u"debug: ORV Message received. id: 0x%1 length: 12"_s.arg(QLatin1String(id));
    };
    row("a session request, which only the daemon sends", "ef01");
    row("a SUPL request, which only the daemon sends", "ef04");
    row("an id in the range that nobody uses", "ef07");
    row("a deletion request", "ef0a");
    row("a registration", "ef0c");
    row("an answer to a location request", "ef0f");
    row("SUPL servers", "ef11");
    row("an id of another family", "0003");
    row("the highest id", "ffff");
}

void TestOrvResponses::messagesWithoutAHandlerAreDropped()
{
    QFETCH(QByteArray, message);
    QFETCH(QString, line);
    m_bench->startSession(7);
    m_bench->hear(message);
    QCOMPARE(m_bench->log(), QStringList(line));
    QCOMPARE(m_bench->seen(), QStringList());
}

void TestOrvResponses::aSuplFixIsStampedAndHandedOn()
{
    m_bench->hear(sample::fullReport(SuplResponse{}));
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"supl"_s}));
    QVERIFY(m_bench->reports().suplFix.isValid());
    QCOMPARE(m_bench->reports().suplFix.timestamp(), m_bench->clock().time);
    QCOMPARE(m_bench->reports().suplFix.coordinate(), QGeoCoordinate(45.0, 22.5, 120.0));
    QCOMPARE(sample::attribute(m_bench->reports().suplFix, QGeoPositionInfo::GroundSpeed), 10.0);

    ReportWriter report(SuplResponse{});
    report.add(sample::Position);
    m_bench->hear(report.bytes());
    QVERIFY(!m_bench->reports().suplFix.hasAttribute(QGeoPositionInfo::GroundSpeed)); // nothing carries over
}

void TestOrvResponses::aSuplFailureIsAnInvalidFix_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("connection error")
        << 1 << QStringList(u"warning: ORVComm::handleSUPLResponse: SUPL connection error"_s);
    QTest::newRow("time-out") << 2 << QStringList(u"warning: ORVComm::handleSUPLResponse: SUPL timeout"_s);
    QTest::newRow("any other failure") << 3 << QStringList();
    QTest::newRow("the last one") << 255 << QStringList();
}

void TestOrvResponses::aSuplFailureIsAnInvalidFix()
{
    QFETCH(int, status);
    QFETCH(QStringList, lines);
    m_bench->hear(sample::fullReport(SuplResponse{}));
    QVERIFY(m_bench->reports().suplFix.isValid());
    m_bench->seen();
    m_bench->log();

    m_bench->hear(sample::fullReport(SuplResponse{SuplStatus(status)})); // its sub-blocks are not looked at
    QCOMPARE(m_bench->seen(), QStringList(u"supl"_s));
    QVERIFY(!m_bench->reports().suplFix.isValid());
    QVERIFY(!m_bench->reports().suplFix.timestamp().isValid());
    QVERIFY(!m_bench->reports().suplFix.coordinate().isValid());
    QCOMPARE(m_bench->log().mid(1), lines);
}

void TestOrvResponses::aSuplResponseWithoutAFixIsInvalid()
{
    ReportWriter report = sample::withSky(SuplResponse{});
    report.add(sample::Time);
    m_bench->hear(report.bytes());
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"supl"_s}));
    QCOMPARE(m_bench->reports().suplFix, QGeoPositionInfo()); // no timestamp either
}

void TestOrvResponses::aSuplFixTouchesNoSession()
{
    m_bench->startSession(7);
    m_bench->orv().setVESKUpdatesEnabled(true);
    m_bench->hear(sample::fullReport(SuplResponse{}));
    QCOMPARE(m_bench->seen(), QStringList({u"view 2"_s, u"use 1"_s, u"supl"_s}));
    QCOMPARE(m_bench->watchdog()->interval(), 120000);
}

void TestOrvResponses::locationRequestsAreShown_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QStringList>("signalled");
    QTest::addColumn<QStringList>("lines");
    const QStringList quiet;

    QTest::newRow("a default answer alone")
        << sample::hex("EF0E0010 01 09 00 01  EF140008 0000 01 00")
        << QStringList(u"request 9 type 1 default 1 name '' id ''"_s) << quiet;
    QTest::newRow("a default answer of 0 is a refusal")
        << sample::hex("EF0E0010 01 09 00 01  EF140008 0000 00 00")
        << QStringList(u"request 9 type 1 default 0 name '' id ''"_s) << quiet;
    QTest::newRow("any other default answer accepts")
        << sample::hex("EF0E0010 01 09 00 01  EF140008 0000 80 00")
        << QStringList(u"request 9 type 1 default 1 name '' id ''"_s) << quiet;
    QTest::newRow("no sub-blocks: refused by default")
        << sample::hex("EF0E0008 00 FF 00 00") << QStringList(u"request 255 type 0 default 0 name '' id ''"_s)
        << quiet;
    QTest::newRow("an id whose count comes least significant byte first")
        << sample::hex("EF0E0018 01 02 00 01  EF130010 0000 0400 0041 0042 0043 0044")
        << QStringList(u"request 2 type 1 default 0 name '' id 'ABCD'"_s)
        << QStringList(u"debug: Client ID: \"ABCD\""_s);
    QTest::newRow("a name beyond ASCII") << sample::hex("EF0E0014 01 02 00 01  EF12000C 000000 02 00DF 20AC")
                                         << QStringList(u"request 2 type 1 default 0 name 'ß€' id ''"_s)
                                         << QStringList(u"debug: Client name: \"ß€\""_s);
    QTest::newRow("a name that ends at a zero")
        << sample::hex("EF0E0016 01 02 00 01  EF12000E 000000 03 0041 0000 0042")
        << QStringList(u"request 2 type 1 default 0 name 'A' id ''"_s)
        << QStringList(u"debug: Client name: \"A\""_s);
    QTest::newRow("the later of two names counts")
        << sample::hex("EF0E001C 00 02 00 02  EF12000A 000000 01 0041  EF12000A 000000 01 0042")
        << QStringList(u"request 2 type 0 default 0 name 'B' id ''"_s)
        << QStringList({u"debug: Client name: \"A\""_s, u"debug: Client name: \"B\""_s});
    QTest::newRow("unknown sub-blocks are stepped over")
        << sample::hex("EF0E0018 01 02 00 02  EF060008 00000000  EF140008 0000 01 00")
        << QStringList(u"request 2 type 1 default 1 name '' id ''"_s)
        << QStringList(u"debug: Unknown subBlock Id: 61190"_s);
    QTest::newRow("sub-blocks too short for their fields change nothing that was said before")
        << sample::hex("EF0E003D 01 02 00 06  EF12000A 000000 01 0041  EF13000A 0000 0100 0042"
                       "EF140008 0000 01 00  EF120007 000000  EF130007 0000 01  EF140006 0000")
        << QStringList(u"request 2 type 1 default 1 name 'A' id 'B'"_s)
        << QStringList({u"debug: Client name: \"A\""_s, u"debug: Client ID: \"B\""_s});
    QTest::newRow("withdrawn") << sample::hex("EF0E0008 04 09 00 00") << QStringList(u"withdrawn 9"_s)
                               << quiet;
    QTest::newRow("withdrawn, with sub-blocks that are only logged")
        << sample::hex("EF0E0012 04 09 00 01  EF12000A 000000 01 0041") << QStringList(u"withdrawn 9"_s)
        << QStringList(u"debug: Client name: \"A\""_s);
    for (const char *type : {"02", "03", "05", "FF"}) {
        QTest::addRow("type 0x%s is unknown", type)
            << sample::hex("EF0E0008") + sample::hex(type) + sample::hex("09 00 00") << QStringList()
            << QStringList(u"warning: Unknown location request type!"_s);
    }
}

void TestOrvResponses::locationRequestsAreShown()
{
    QFETCH(QByteArray, message);
    QFETCH(QStringList, lines);
    m_bench->hear(message);
    QTEST(m_bench->seen(), "signalled");
    lines.prepend(u"debug: Got location request"_s);
    QCOMPARE(m_bench->log().mid(1), lines);
}

void TestOrvResponses::locationRequestsAreLogged()
{
    m_bench->hear(sample::fullLocationRequest());
    const QStringList lines = m_bench->log();
    QCOMPARE(lines.size(), 4);
    QVERIFY(lines.at(0).startsWith(u"debug: ORV Message received. id: 0xef0e length: "_s));
    QCOMPARE(lines.mid(1),
             QStringList({u"debug: Got location request"_s, u"debug: Client name: \"Müller & Co\""_s,
                          u"debug: Client ID: \"ABCD\""_s}));
}

QTEST_GUILESS_MAIN(TestOrvResponses)
#include "tst_orvresponses.moc"
