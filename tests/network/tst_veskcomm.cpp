#include "network/veskcomm.h"
#include "support/logcapture.h"
#include "support/stillclock.h"

#include <QGeoCoordinate>
#include <QMetaMethod>
#include <QTest>

#include <vector>

using namespace Qt::StringLiterals;

// The library as this test plays it: what it was asked, and what it says to that. Each result
// record is kept, to be filled in before the request ends.
namespace {

struct Library {
    QStringList calls;
    int answer = 0;
    VeskObserver *observer = nullptr;
    VeskPosition *position = nullptr;
    VeskPosition *converted = nullptr;
    VeskMeasurements *measurements = nullptr;
    const VeskMeasurements *source = nullptr;

    int called(const QString &call)
    {
        calls << call;
        return answer;
    }
};
Library library;

} // namespace

class VeskPositioning::Private
{
};

VeskPositioning::VeskPositioning(VeskObserver *observer)
{
    library.observer = observer;
}

VeskPositioning::~VeskPositioning() = default;

int VeskPositioning::currentPositionAsync(VeskPosition &out, unsigned technologyMask,
                                          VeskPacketDataUsage usage, unsigned timeoutSeconds)
{
    library.position = &out;
    return library.called(QString::asprintf("position 0x%02X packet data %u for %u", technologyMask,
                                            unsigned(usage), timeoutSeconds));
}

int VeskPositioning::currentMeasurementsAsync(VeskMeasurements &out, unsigned technologyMask,
                                              unsigned timeoutSeconds)
{
    library.measurements = &out;
    return library.called(QString::asprintf("measurements 0x%02X for %u", technologyMask, timeoutSeconds));
}

int VeskPositioning::convertToPositionAsync(VeskPosition &out, const VeskMeasurements &in,
                                            VeskPacketDataUsage usage, unsigned timeoutSeconds)
{
    library.converted = &out;
    library.source = &in;
    return library.called(
        QString::asprintf("conversion packet data %u for %u", unsigned(usage), timeoutSeconds));
}

namespace {

VeskPosition place(double latitude, float accuracy, unsigned technologies)
{
    VeskPosition position;
    position.setLatitude(latitude);
    position.setLongitude(24.94);
    position.setHorizontalAccuracy(accuracy);
    position.setTechnologyMask(technologies);
    return position;
}

// An adapter and everything that it says.
struct Bench {
    struct Update {
        QGeoPositionInfo fix;
        int error;
        const QGeoPositionInfo *emitted;
    };

    Bench()
    {
        library = {};
        adapter = std::make_unique<VESKComm>(clock);
        QObject::connect(adapter.get(), &VESKComm::positionUpdateVESK,
                         [this](QGeoPositionInfo &fix, int error) {
                             positions.push_back({fix, error, &fix});
                         });
        QObject::connect(adapter.get(), &VESKComm::measurementToPositionUpdateVESK,
                         [this](QGeoPositionInfo &fix, int error) {
                             conversions.push_back({fix, error, &fix});
                         });
        QObject::connect(adapter.get(), &VESKComm::measurementUpdateVESK,
                         [this](VeskMeasurements &measurement) { measurements.push_back(&measurement); });
    }
    qsizetype updates() const
    {
        return qsizetype(positions.size() + conversions.size() + measurements.size());
    }

    StillClock clock;
    LogCapture log;
    std::unique_ptr<VESKComm> adapter;
    std::vector<Update> positions;
    std::vector<Update> conversions;
    std::vector<const VeskMeasurements *> measurements;
};

} // namespace

class TestVeskComm : public QObject
{
    Q_OBJECT

private slots:
    void theSignalsStandInTheirOrder();
    void itObservesTheLibrary();
    void positionRequests_data();
    void positionRequests();
    void withoutTechnologyTheLibraryIsNotAsked();
    void measurementRequests_data();
    void measurementRequests();
    void conversionRequests();
    void aRefusalIsReturnedAndLogged();
    void aPositionIsEmittedAsAFix();
    void aVagueGuessIsSuccessWithoutAPlace_data();
    void aVagueGuessIsSuccessWithoutAPlace();
    void aVagueConversionIsAFix();
    void aFailureEmptiesTheFix_data();
    void aFailureEmptiesTheFix();
    void measurementsAreEmittedInAnyCase();
    void otherRequestTypesAreOnlyLogged();
    void aReceiverMayAskAgainAtOnce();
};

void TestVeskComm::theSignalsStandInTheirOrder()
{
    const QMetaObject &meta = VESKComm::staticMetaObject;
    QList<QByteArray> methods;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index)
        methods << meta.method(index).methodSignature();
    QCOMPARE(methods, (QList<QByteArray>{"positionUpdateVESK(QGeoPositionInfo&,int)",
                                         "measurementUpdateVESK(VeskMeasurements&)",
                                         "measurementToPositionUpdateVESK(QGeoPositionInfo&,int)"}));
}

void TestVeskComm::itObservesTheLibrary()
{
    const Bench bench;
    QCOMPARE(library.observer, static_cast<VeskObserver *>(bench.adapter.get()));
    QCOMPARE(bench.adapter->parent(), nullptr);
}

void TestVeskComm::positionRequests_data()
{
    QTest::addColumn<bool>("wifi");
    QTest::addColumn<bool>("cellular");
    QTest::addColumn<bool>("gprs");
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("line");
    QTest::newRow("WLAN only") << true << false << true << u"position 0x01 packet data 1 for 20"_s
                               << u"wifi: 1, cellular: 0, gprs: 1, timeout: 20"_s;
    QTest::newRow("cellular only") << false << true << true << u"position 0x0E packet data 1 for 20"_s
                                   << u"wifi: 0, cellular: 1, gprs: 1, timeout: 20"_s;
    QTest::newRow("both, without packet data")
        << true << true << false << u"position 0x0F packet data 2 for 20"_s
        << u"wifi: 1, cellular: 1, gprs: 0, timeout: 20"_s;
}

void TestVeskComm::positionRequests()
{
    QFETCH(bool, wifi);
    QFETCH(bool, cellular);
    QFETCH(bool, gprs);
    QFETCH(QString, call);
    QFETCH(QString, line);
    const Bench bench;
    QCOMPARE(bench.adapter->requestPositionVESK(wifi, cellular, gprs, 20), 0);
    QCOMPARE(library.calls, QStringList{call});
    QCOMPARE(bench.log.lines(), QStringList{u"debug: VESKComm::requestPositionVESK "_s + line});
    QCOMPARE(bench.updates(), 0);
}

void TestVeskComm::withoutTechnologyTheLibraryIsNotAsked()
{
    const Bench bench;
    QCOMPARE(bench.adapter->requestPositionVESK(false, false, true, 20), -1);
    QCOMPARE(library.calls, QStringList());
    QCOMPARE(bench.log.lines(), QStringList{u"debug: VESKComm::requestPositionVESK wifi: 0, cellular: 0, "
                                            "gprs: 1, timeout: 20"_s});
    QCOMPARE(bench.updates(), 0);
}

void TestVeskComm::measurementRequests_data()
{
    QTest::addColumn<bool>("wifi");
    QTest::addColumn<bool>("cellular");
    QTest::addColumn<QString>("call");
    QTest::newRow("neither is for the library to judge") << false << false << u"measurements 0x00 for 5"_s;
    QTest::newRow("WLAN only") << true << false << u"measurements 0x01 for 5"_s;
    QTest::newRow("cellular only") << false << true << u"measurements 0x3E for 5"_s;
    QTest::newRow("both") << true << true << u"measurements 0x3F for 5"_s;
}

void TestVeskComm::measurementRequests()
{
    QFETCH(bool, wifi);
    QFETCH(bool, cellular);
    QFETCH(QString, call);
    const Bench bench;
    QCOMPARE(bench.adapter->requestMeasurementVESK(wifi, cellular, 5), 0);
    QCOMPARE(library.calls, QStringList{call});
    QCOMPARE(bench.log.lines(), QStringList());
}

void TestVeskComm::conversionRequests()
{
    const Bench bench;
    const VeskMeasurements measured;
    QCOMPARE(bench.adapter->requestMeasurementToPositionVESK(measured, true, 7), 0);
    QCOMPARE(library.source, &measured);
    QCOMPARE(bench.adapter->requestMeasurementToPositionVESK(measured, false, 8), 0);
    QCOMPARE(library.calls,
             (QStringList{u"conversion packet data 1 for 7"_s, u"conversion packet data 2 for 8"_s}));
    QCOMPARE(bench.log.lines(), QStringList());
    // Each kind of request has a record of its own.
    bench.adapter->requestPositionVESK(true, true, true, 20);
    QVERIFY(library.converted != library.position);
}

void TestVeskComm::aRefusalIsReturnedAndLogged()
{
    Bench bench;
    library.answer = vesk::Busy;
    QCOMPARE(bench.adapter->requestPositionVESK(true, true, true, 20), -2101);
    QCOMPARE(bench.log.takeLines().constLast(),
             u"warning: VESKComm::requestPositionVESK request failed, err: -2101"_s);
    library.answer = vesk::NotSupported;
    QCOMPARE(bench.adapter->requestMeasurementVESK(true, true, 20), -2108);
    QCOMPARE(bench.log.takeLines(),
             QStringList{u"warning: VESKComm::requestMeasurementVESK request failed, err: -2108"_s});
    QCOMPARE(bench.adapter->requestMeasurementToPositionVESK({}, true, 20), -2108);
    QCOMPARE(
        bench.log.takeLines(),
        QStringList{u"warning: VESKComm::requestMeasurementToPositionVESK request failed, err: -2108"_s});
    QCOMPARE(bench.updates(), 0);
}

void TestVeskComm::aPositionIsEmittedAsAFix()
{
    Bench bench;
    bench.adapter->requestPositionVESK(true, false, true, 20);
    *library.position = place(60.17, 80.0F, vesk::Wlan);
    bench.log.takeLines();
    library.observer->veskRequestFinished(0, vesk::CurrentPosition);
    QCOMPARE(bench.log.lines(), QStringList{u"debug: VESKComm::veskRequestFinished vsek_err: 0"_s});
    QCOMPARE(bench.updates(), 1);
    const Bench::Update update = bench.positions.front();
    QCOMPARE(update.error, 0);
    QCOMPARE(update.fix.coordinate().latitude(), 60.17);
    QCOMPARE(update.fix.attribute(QGeoPositionInfo::HorizontalAccuracy), 80.0);
    QCOMPARE(update.fix.timestamp(), bench.clock.time); // the record has no time of its own

    // The next one is built in the same fix, of which nothing remains.
    *library.position = place(61.0, std::numeric_limits<float>::quiet_NaN(), vesk::Wlan);
    library.position->setTimestamp(1709294400, 250000);
    library.observer->veskRequestFinished(0, vesk::CurrentPosition);
    const Bench::Update next = bench.positions.back();
    QCOMPARE(next.emitted, update.emitted);
    QCOMPARE(next.fix.coordinate().latitude(), 61.0);
    QVERIFY(!next.fix.hasAttribute(QGeoPositionInfo::HorizontalAccuracy));
    QCOMPARE(next.fix.timestamp().toMSecsSinceEpoch(), 1709294400250);
}

void TestVeskComm::aVagueGuessIsSuccessWithoutAPlace_data()
{
    QTest::addColumn<float>("accuracy");
    QTest::addColumn<bool>("delivered");
    QTest::newRow("30 km is still a fix") << 30000.0F << true;
    QTest::newRow("half a metre more is none") << 30000.5F << false;
    QTest::newRow("nor is an unknown width") << std::numeric_limits<float>::quiet_NaN() << false;
}

void TestVeskComm::aVagueGuessIsSuccessWithoutAPlace()
{
    QFETCH(float, accuracy);
    QFETCH(bool, delivered);
    Bench bench;
    bench.adapter->requestPositionVESK(true, true, true, 20);
    *library.position = place(59.0, 50.0F, vesk::Wlan);
    library.observer->veskRequestFinished(0, vesk::CurrentPosition);
    *library.position = place(60.17, accuracy, vesk::CellCoarse);
    library.observer->veskRequestFinished(0, vesk::CurrentPosition);
    QCOMPARE(bench.positions.size(), 2U);
    QCOMPARE(bench.positions.back().error, 0);
    QCOMPARE(bench.positions.back().fix.isValid(), delivered);
    if (!delivered)
        QCOMPARE(bench.positions.back().fix, QGeoPositionInfo());
}

void TestVeskComm::aVagueConversionIsAFix()
{
    Bench bench;
    bench.adapter->requestMeasurementToPositionVESK({}, true, 20);
    *library.converted = place(60.17, 30000.5F, vesk::CellCoarse);
    library.observer->veskRequestFinished(0, vesk::MeasurementsToPosition);
    QCOMPARE(bench.updates(), 1);
    QCOMPARE(bench.conversions.front().error, 0);
    QCOMPARE(bench.conversions.front().fix.coordinate().latitude(), 60.17);
    QCOMPARE(bench.conversions.front().fix.attribute(QGeoPositionInfo::HorizontalAccuracy), 30000.5);
}

void TestVeskComm::aFailureEmptiesTheFix_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("warned");
    QTest::newRow("unknown location") << vesk::CurrentPosition << -2105 << true;
    QTest::newRow("cancelled, without a warning") << vesk::CurrentPosition << -2100 << false;
    QTest::newRow("a positive code") << vesk::CurrentPosition << 7 << true;
    QTest::newRow("a failed conversion") << vesk::MeasurementsToPosition << -2105 << true;
    QTest::newRow("a cancelled conversion") << vesk::MeasurementsToPosition << -2100 << false;
}

void TestVeskComm::aFailureEmptiesTheFix()
{
    QFETCH(int, type);
    QFETCH(int, error);
    QFETCH(bool, warned);
    Bench bench;
    bench.adapter->requestPositionVESK(true, true, true, 20);
    bench.adapter->requestMeasurementToPositionVESK({}, true, 20);
    *library.position = *library.converted = place(60.17, 80.0F, vesk::Wlan);
    library.observer->veskRequestFinished(0, type); // a good one before it
    bench.log.takeLines();
    library.observer->veskRequestFinished(error, type);
    const auto &updates = type == vesk::CurrentPosition ? bench.positions : bench.conversions;
    QCOMPARE(bench.updates(), 2);
    QCOMPARE(updates.size(), 2U);
    QCOMPARE(updates.back().error, error);
    QCOMPARE(updates.back().fix, QGeoPositionInfo());
    QStringList lines{u"debug: VESKComm::veskRequestFinished vsek_err: %1"_s.arg(error)};
    if (warned)
        lines << u"warning: VESKComm::veskRequestFinished request failed, err: %1"_s.arg(error);
    QCOMPARE(bench.log.lines(), lines);
}

void TestVeskComm::measurementsAreEmittedInAnyCase()
{
    Bench bench;
    bench.adapter->requestMeasurementVESK(true, true, 20);
    for (const int error : {0, -2108}) {
        library.observer->veskRequestFinished(error, vesk::CurrentMeasurements);
        QCOMPARE(bench.measurements.back(), library.measurements);
        QCOMPARE(bench.log.takeLines(),
                 QStringList{u"debug: VESKComm::veskRequestFinished vsek_err: %1"_s.arg(error)});
    }
    QCOMPARE(bench.updates(), 2);
}

void TestVeskComm::otherRequestTypesAreOnlyLogged()
{
    Bench bench;
    for (const int type : {0, 3, 5, -1})
        library.observer->veskRequestFinished(-2105, type);
    QCOMPARE(bench.updates(), 0);
    QCOMPARE(bench.log.lines(), QStringList(4, u"debug: VESKComm::veskRequestFinished vsek_err: -2105"_s));
}

void TestVeskComm::aReceiverMayAskAgainAtOnce()
{
    Bench bench;
    bench.adapter->requestPositionVESK(true, true, true, 20);
    QObject::connect(bench.adapter.get(), &VESKComm::positionUpdateVESK,
                     [&bench] { bench.adapter->requestPositionVESK(true, true, true, 20); });
    library.observer->veskRequestFinished(-2105, vesk::CurrentPosition);
    QCOMPARE(library.calls.size(), 2);
    QCOMPARE(bench.updates(), 1);
}

QTEST_APPLESS_MAIN(TestVeskComm)
#include "tst_veskcomm.moc"
