#include "engine/enginesidecodec.h"
#include "engine/wirechecks.h"

#include <QRandomGenerator>
#include <QTest>

#include <array>

// Bytes that nobody meant, always the same ones. libFuzzer looks further, see fuzz/README.md.
class TestWireProperties : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_random.seed(20100831); }
    void randomPackets();
    void randomSubBlocks();
    void randomTexts();
    void randomRequests();
    void goodReportsWithAByteChanged();
    void goodReportsCutAnywhere();

private:
    QByteArray randomBytes(int longest);
    QByteArray goodReport();

    QRandomGenerator m_random;
};

namespace {
#define VERIFY_HOLDS(check, input)                                                                           \
    do {                                                                                                     \
        const QByteArray bytes_ = (input);                                                                   \
        const char *untrue_ = check(PacketView::of(bytes_).all());                                           \
        if (untrue_)                                                                                         \
            QFAIL(qPrintable(QLatin1String(untrue_) + QLatin1String(": ") +                                  \
                             QLatin1String(bytes_.toHex(' '))));                                             \
    } while (false)

constexpr int Rounds = 5000;
} // namespace

QByteArray TestWireProperties::randomBytes(int longest)
{
    QByteArray bytes(m_random.bounded(longest + 1), Qt::Uninitialized);
    for (char &byte : bytes)
        byte = char(m_random.bounded(256));
    return bytes;
}

// One of the three messages with sub-blocks, with some of every kind.
QByteArray TestWireProperties::goodReport()
{
    using engineside::ReportWriter;
    const auto any = [this] { return m_random.generate(); };
    std::array writers{ReportWriter(GnssNotification{quint16(any()), quint8(any())}),
                       ReportWriter(SuplResponse{}),
                       ReportWriter(LocationRequest{quint8(any()), quint8(any())})};
    auto &writer = writers[any() % writers.size()];
    std::vector<SatelliteRecord> records(any() % 20);
    for (auto &record : records)
        record = {quint8(any()), quint8(any() % 3), quint16(any()), quint16(any()), quint16(any())};
    writer.addSatellites(records);
    writer.add(PositionBlock{qint32(any()), qint32(any()), qint32(any()), qint32(any()), quint8(any()),
                             qint16(any()), quint16(any()), qint16(any())});
    writer.add(VelocityBlock{qint16(any()), quint16(any()), qint16(any()), qint16(any()), quint16(any()),
                             qint16(any()), quint16(any())});
    writer.add(TimeBlock{});
    writer.addClientName(QString(any() % 30, u'n'));
    writer.addClientId(QString(any() % 300, u'i'));
    writer.addDefaultAnswer(true);
    writer.addBlock(quint16(any()), randomBytes(20));
    return writer.bytes();
}

void TestWireProperties::randomPackets()
{
    for (int round = 0; round < Rounds; ++round) {
        auto packet = randomBytes(200);
        if (packet.size() > 1) {
            packet[0] = '\xEF';
            packet[1] = char(m_random.bounded(0x12));
        }
        VERIFY_HOLDS(wirechecks::packet, packet);
    }
}

void TestWireProperties::randomSubBlocks()
{
    for (int round = 0; round < Rounds; ++round) {
        // Headers that are nearly right get further than noise does.
        QByteArray input(1, char(m_random.bounded(256)));
        for (int block = m_random.bounded(6); block > 0; --block) {
            const auto body = randomBytes(40);
            const auto length = body.size() + 4 + (m_random.bounded(8) == 0 ? m_random.bounded(-9, 9) : 0);
            input += '\xEF' + QByteArray(1, char(m_random.bounded(0x17))) + char(length / 256) +
                     char(length % 256) + body;
        }
        VERIFY_HOLDS(wirechecks::subBlocks, input);
    }
}

void TestWireProperties::randomTexts()
{
    for (int round = 0; round < Rounds; ++round)
        VERIFY_HOLDS(wirechecks::texts, randomBytes(100));
}

void TestWireProperties::randomRequests()
{
    for (int round = 0; round < Rounds; ++round) {
        auto packet = randomBytes(60);
        if (packet.size() > 1) {
            packet[0] = '\xEF';
            packet[1] = char(m_random.bounded(0x13));
        }
        VERIFY_HOLDS(wirechecks::request, packet);
    }
}

void TestWireProperties::goodReportsWithAByteChanged()
{
    for (int round = 0; round < Rounds; ++round) {
        auto packet = goodReport();
        VERIFY_HOLDS(wirechecks::packet, packet);
        packet[m_random.bounded(int(packet.size()))] = char(m_random.bounded(256));
        VERIFY_HOLDS(wirechecks::packet, packet);
    }
}

void TestWireProperties::goodReportsCutAnywhere()
{
    for (int round = 0; round < 20; ++round) {
        const auto packet = goodReport();
        for (qsizetype length = 0; length <= packet.size(); ++length)
            VERIFY_HOLDS(wirechecks::packet, packet.first(length));
    }
}

QTEST_GUILESS_MAIN(TestWireProperties)
#include "tst_wireproperties.moc"
