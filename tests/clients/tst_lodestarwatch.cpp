#include "jsonline.h"
#include "screen.h"
#include "watchoptions.h"
#include "watchstate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDateTime Noon(QDate(2026, 6, 1), QTime(12, 0));

QGeoPositionInfo fixAt(double latitude, double longitude)
{
    return QGeoPositionInfo(QGeoCoordinate(latitude, longitude, 20.0), Noon);
}

QGeoSatelliteInfo satellite(int prn, int signal, double elevation, double azimuth)
{
    QGeoSatelliteInfo info;
    info.setSatelliteIdentifier(prn);
    info.setSignalStrength(signal);
    info.setAttribute(QGeoSatelliteInfo::Elevation, elevation);
    info.setAttribute(QGeoSatelliteInfo::Azimuth, azimuth);
    return info;
}

QJsonObject parsed(const QByteArray &line)
{
    return QJsonDocument::fromJson(line).object();
}

} // namespace

class TestLodestarWatch : public QObject
{
    Q_OBJECT
private slots:
    void options_data();
    void options();
    void refusals_data();
    void refusals();
    void helpAndVersionAnswerOnStandardOutput();
    void headings_data();
    void headings();
    void aValidFixIsCountedAndALostOneKeepsThePlace();
    void standingStillTravelsNowhere();
    void methodMasksHaveNames();
    void jsonOfAFullFix();
    void jsonOfAnInvalidFixSaysSo();
    void jsonNamesSatellitesOnRequest();
    void jsonOfTheNetworkClientSaysWhoseItIs();
    void theScreenShowsFixAndSatellites();
    void theNetworkClientHasALineOfItsOwn();
    void theScreenBeforeAnyFixShowsDashes();
    void aTinyTerminalCutsWithoutHarm();
    void withoutUnicodeOnlyAsciiIsDrawn();
    void aStrongSignalHasALongerBar();
    void plainLines();
};

void TestLodestarWatch::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<quint32>("methods");
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("count");
    QTest::newRow("nothing asks for satellites once a second, forever")
        << QStringList{} << 0xffU << 1000 << 0 << 0;
    QTest::newRow("network methods") << QStringList{u"--methods"_s, u"network"_s} << 0xffffff00U << 1000 << 0
                                     << 0;
    QTest::newRow("all methods, short options")
        << QStringList{u"-m"_s, u"all"_s, u"-i"_s, u"5000"_s} << 0xffffffffU << 5000 << 0 << 0;
    QTest::newRow("limits") << QStringList{u"--seconds=10"_s, u"--count=3"_s} << 0xffU << 1000 << 10 << 3;
    QTest::newRow("a network client beside it")
        << QStringList{u"--network=5000"_s} << 0xffU << 1000 << 0 << 0;
}

void TestLodestarWatch::options()
{
    QFETCH(const QStringList, arguments);
    const auto result = parseCommandLine(QStringList{u"lodestar-watch"_s} + arguments);
    QVERIFY(result.options.has_value());
    QTEST(result.options->methods, "methods");
    QTEST(result.options->intervalMilliseconds, "interval");
    QTEST(result.options->seconds, "seconds");
    QTEST(result.options->count, "count");
    QCOMPARE(result.options->networkMilliseconds, arguments.contains(u"--network=5000"_s) ? 5000 : 0);
}

void TestLodestarWatch::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("an unknown option") << QStringList{u"--nonsense"_s};
    QTest::newRow("a stray argument") << QStringList{u"fix"_s};
    QTest::newRow("methods that do not exist") << QStringList{u"--methods=dowsing"_s};
    QTest::newRow("an interval that is no number") << QStringList{u"--interval=soon"_s};
    QTest::newRow("negative seconds") << QStringList{u"--seconds=-1"_s};
    QTest::newRow("a network interval that is no number") << QStringList{u"--network=often"_s};
    QTest::newRow("two outputs at once") << QStringList{u"--json"_s, u"--plain"_s};
}

void TestLodestarWatch::refusals()
{
    QFETCH(const QStringList, arguments);
    const auto result = parseCommandLine(QStringList{u"lodestar-watch"_s} + arguments);
    QVERIFY(!result.options.has_value());
    QCOMPARE(result.status, 2);
    QVERIFY(result.text.startsWith(u"lodestar-watch: "_s));
}

void TestLodestarWatch::helpAndVersionAnswerOnStandardOutput()
{
    const auto help = parseCommandLine({u"lodestar-watch"_s, u"--help"_s});
    QCOMPARE(help.status, 0);
    QVERIFY(help.text.contains(u"--json"_s));
    const auto version = parseCommandLine({u"lodestar-watch"_s, u"--version"_s});
    QCOMPARE(version.status, 0);
    QVERIFY(version.text.startsWith(u"lodestar-watch "_s));
}

void TestLodestarWatch::headings_data()
{
    QTest::addColumn<double>("raw");
    QTest::addColumn<double>("normalised");
    QTest::addColumn<QString>("point");
    QTest::newRow("ten degrees left of north comes as -10") << -10.0 << 350.0 << u"N"_s;
    QTest::newRow("west comes as -90") << -90.0 << 270.0 << u"W"_s;
    QTest::newRow("south from the left") << -180.0 << 180.0 << u"S"_s;
    QTest::newRow("a full turn") << 360.0 << 0.0 << u"N"_s;
    QTest::newRow("east by north-east") << 67.5 << 67.5 << u"ENE"_s;
}

void TestLodestarWatch::headings()
{
    QFETCH(const double, raw);
    QTEST(normalisedHeading(raw), "normalised");
    QTEST(compassPoint(raw), "point");
}

void TestLodestarWatch::aValidFixIsCountedAndALostOneKeepsThePlace()
{
    WatchState state;
    state.takeFix(fixAt(60.0, 25.0), Noon);
    state.takeFix(QGeoPositionInfo(), Noon.addSecs(1));
    QCOMPARE(state.fixes, 1);
    QVERIFY(state.fixLost);
    QCOMPARE(state.fix->coordinate().latitude(), 60.0);
    state.takeFix(fixAt(60.001, 25.0), Noon.addSecs(2));
    QCOMPARE(state.fixes, 2);
    QVERIFY(!state.fixLost);
    QVERIFY(qAbs(state.travelledMetres - 111.2) < 0.3); // a thousandth of a degree of latitude
}

void TestLodestarWatch::standingStillTravelsNowhere()
{
    WatchState state;
    for (int i = 0; i < 100; ++i)
        state.takeFix(fixAt(60.0 + (i % 2) * 1e-6, 25.0), Noon.addSecs(i));
    QCOMPARE(state.travelledMetres, 0.0);
}

void TestLodestarWatch::methodMasksHaveNames()
{
    QCOMPARE(methodNames(0), u"none"_s);
    QCOMPARE(methodNames(0xff), u"satellite"_s);
    QCOMPARE(methodNames(0xffffff00), u"network"_s);
    QCOMPARE(methodNames(0xffffffff), u"satellite, network"_s);
}

void TestLodestarWatch::jsonOfAFullFix()
{
    auto fix = fixAt(60.5, -25.25);
    fix.setAttribute(QGeoPositionInfo::GroundSpeed, 1.5);
    fix.setAttribute(QGeoPositionInfo::Direction, -90.0);
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 4.0);
    WatchState state;
    state.takeSatellitesInView({satellite(5, 40, 45.0, 90.0), satellite(7, 30, 10.0, 180.0)});
    state.takeSatellitesInUse({satellite(5, 40, 45.0, 90.0)});
    const QByteArray line = jsonLine(fix, state, false);
    QVERIFY(!line.contains('\n'));
    const QJsonObject object = parsed(line);
    QCOMPARE(object[u"valid"].toBool(), true);
    QCOMPARE(object[u"latitude"].toDouble(), 60.5);
    QCOMPARE(object[u"longitude"].toDouble(), -25.25);
    QCOMPARE(object[u"altitude"].toDouble(), 20.0);
    QCOMPARE(object[u"speed"].toDouble(), 1.5);
    QCOMPARE(object[u"heading"].toDouble(), 270.0);
    QCOMPARE(object[u"horizontalAccuracy"].toDouble(), 4.0);
    QCOMPARE(object[u"satellitesInView"].toInt(), 2);
    QCOMPARE(object[u"satellitesUsed"].toInt(), 1);
    QVERIFY(!object.contains(u"climb"));
    QVERIFY(!object.contains(u"satellites"));
    QVERIFY(object[u"time"].toString().startsWith(u"2026-06-01T12:00:00"_s));
}

void TestLodestarWatch::jsonOfAnInvalidFixSaysSo()
{
    const QJsonObject object = parsed(jsonLine(QGeoPositionInfo(), WatchState(), false));
    QCOMPARE(object[u"valid"].toBool(true), false);
    QVERIFY(!object.contains(u"latitude"));
    QVERIFY(!object.contains(u"time"));
}

void TestLodestarWatch::jsonNamesSatellitesOnRequest()
{
    WatchState state;
    QGeoSatelliteInfo silent;
    silent.setSatelliteIdentifier(9);
    state.takeSatellitesInView({satellite(5, 40, 45.0, 90.0), silent});
    state.takeSatellitesInUse({satellite(5, 40, 45.0, 90.0)});
    const QJsonArray satellites = parsed(jsonLine(fixAt(1, 2), state, true))[u"satellites"].toArray();
    QCOMPARE(satellites.size(), 2);
    QCOMPARE(satellites.at(0)[u"prn"].toInt(), 5);
    QCOMPARE(satellites.at(0)[u"used"].toBool(), true);
    QCOMPARE(satellites.at(0)[u"signal"].toInt(), 40);
    QCOMPARE(satellites.at(1)[u"used"].toBool(true), false);
    QVERIFY(!satellites.at(1).toObject().contains(u"signal"));
}

void TestLodestarWatch::jsonOfTheNetworkClientSaysWhoseItIs()
{
    const QJsonObject object = parsed(networkJsonLine(fixAt(60.5, -25.25)));
    QCOMPARE(object[u"client"].toString(), u"network"_s);
    QCOMPARE(object[u"latitude"].toDouble(), 60.5);
    QVERIFY(!object.contains(u"satellitesInView"));
    QVERIFY(!parsed(jsonLine(fixAt(60.5, -25.25), WatchState(), false)).contains(u"client"));
}

void TestLodestarWatch::theScreenShowsFixAndSatellites()
{
    WatchState state;
    state.daemon = u"client 6000 of lodestard"_s;
    state.methods = u"satellite"_s;
    state.takeFix(fixAt(-33.5, 151.25), Noon);
    state.takeSatellitesInView({satellite(17, 42, 60.0, 120.0), satellite(3, 20, 5.0, 300.0)});
    state.takeSatellitesInUse({satellite(17, 42, 60.0, 120.0)});
    const QStringList lines =
        drawScreen(state, nullptr, {.columns = 90, .rows = 30, .colour = false}, Noon.addSecs(2));
    QCOMPARE(lines.size(), 30);
    const QString screen = lines.join(u'\n');
    QVERIFY(lines.at(0).contains(u"client 6000 of lodestard"_s));
    QVERIFY(lines.at(0).endsWith(u"3D fix"_s));
    QVERIFY(screen.contains(u"33.5000000\u00B0 S"_s));
    QVERIFY(screen.contains(u"151.2500000\u00B0 E"_s));
    QVERIFY(screen.contains(u"20.0 m"_s));
    QVERIFY(screen.contains(u"1, last 2.0 s ago"_s));
    QVERIFY(screen.contains(u"2 in view, 1 used"_s));
    QVERIFY(screen.contains(u" 17   60  120    42"_s));
    QVERIFY(screen.contains(u"On offer: satellite"_s));
    QVERIFY(!screen.contains(u'\x1b'));
}

void TestLodestarWatch::theNetworkClientHasALineOfItsOwn()
{
    WatchState state, network;
    state.takeFix(fixAt(47.0, 8.5), Noon);
    state.takeSatellitesInView({satellite(17, 42, 60.0, 120.0)});
    const auto screen = [&] {
        return drawScreen(state, &network, {.columns = 80, .rows = 24, .colour = false}, Noon.addSecs(2));
    };
    QCOMPARE(screen().at(7), u" Network    no answer yet"_s);
    network.takeFix(QGeoPositionInfo(), Noon);
    QCOMPARE(screen().at(7), u" Network    no position, 2.0 s ago"_s);
    auto fix = fixAt(47.001, -108.25);
    fix.setAttribute(QGeoPositionInfo::HorizontalAccuracy, 416.4);
    network.takeFix(fix, Noon.addMSecs(500));
    const QStringList lines = screen();
    QCOMPARE(lines.at(7),
             u" Network     47.0010000\u00B0 N 108.2500000\u00B0 W  416 m across  fix 1, 1.5 s ago"_s);
    QVERIFY(lines.at(6).contains(u"1, last 2.0 s ago"_s)); // the other client's own
    // It takes no room from the sky.
    const QStringList alone =
        drawScreen(state, nullptr, {.columns = 80, .rows = 24, .colour = false}, Noon.addSecs(2));
    QVERIFY(alone.at(8).contains(u"N"_s));
    QCOMPARE(lines.mid(8), alone.mid(8));
}

void TestLodestarWatch::theScreenBeforeAnyFixShowsDashes()
{
    const QStringList lines = drawScreen(WatchState(), nullptr, {.colour = false}, Noon);
    QVERIFY(lines.at(0).endsWith(u"searching"_s));
    QVERIFY(lines.at(2).contains(u"Latitude   --"_s));
}

void TestLodestarWatch::aTinyTerminalCutsWithoutHarm()
{
    WatchState state;
    state.takeFix(fixAt(1, 2), Noon);
    state.takeSatellitesInView({satellite(17, 42, 60.0, 120.0)});
    for (const int size : {0, 1, 5, 12}) {
        const QStringList lines =
            drawScreen(state, nullptr, {.columns = size, .rows = size, .colour = false}, Noon);
        QCOMPARE(lines.size(), qMax(size, 1));
        for (const auto &line : lines)
            QVERIFY(line.size() <= qMax(size, 1));
    }
}

void TestLodestarWatch::withoutUnicodeOnlyAsciiIsDrawn()
{
    WatchState state;
    state.takeFix(fixAt(1, 2), Noon);
    state.takeSatellitesInView({satellite(17, 42, 60.0, 120.0)});
    const auto lines =
        drawScreen(state, nullptr, {.columns = 90, .rows = 30, .colour = false, .unicode = false}, Noon);
    for (const QChar character : lines.join(u'\n'))
        QVERIFY(character.unicode() < 0x80);
}

void TestLodestarWatch::aStrongSignalHasALongerBar()
{
    WatchState state;
    state.takeSatellitesInView({satellite(1, 45, 60.0, 120.0), satellite(2, 20, 60.0, 240.0)});
    const QStringList lines =
        drawScreen(state, nullptr, {.columns = 90, .rows = 30, .colour = false, .unicode = false}, Noon);
    QVERIFY(lines.at(9).count(u'#') > 2 * lines.at(10).count(u'#'));
    QVERIFY(lines.at(10).count(u'#') > 0);
}

void TestLodestarWatch::plainLines()
{
    QCOMPARE(plainLine(QGeoPositionInfo(), 3, 0), u"no position, 3 in view, 0 used"_s);
    const QString line = plainLine(fixAt(60.5, 25.0), 9, 7);
    QVERIFY(line.startsWith(u"12:00:00  60.5000000 25.0000000  altitude 20.0 m"_s));
    QVERIFY(line.endsWith(u"9 in view, 7 used"_s));
    QCOMPARE(networkPlainLine(QGeoPositionInfo()), u"network: no position"_s);
    QVERIFY(networkPlainLine(fixAt(60.5, 25.0)).startsWith(u"network: 12:00:00  60.5000000 25.0000000 "_s));
    QVERIFY(!networkPlainLine(fixAt(60.5, 25.0)).contains(u"in view"_s));
}

QTEST_APPLESS_MAIN(TestLodestarWatch)
#include "tst_lodestarwatch.moc"
