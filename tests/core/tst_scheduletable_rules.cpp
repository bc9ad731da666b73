#include "core/scheduletable.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

using Milliseconds = ScheduleTable::Milliseconds;

namespace {

// The rules of the table once more, as plainly as they can be told, to compare with.
class NaiveTable
{
public:
    struct Row {
        int id;
        qint64 interval, phase;
    };

    std::vector<Row> rows;
    std::vector<int> due;
    bool taken = true;

    void append(int id, qint64 interval, qint64 now)
    {
        rows.push_back({id, interval, now - 1000 * interval});
    }
    std::vector<int> remove(int id)
    {
        std::vector<int> gone;
        for (int i = 0; i < int(rows.size()); i++) {
            if (rows[size_t(i)].id == id) {
                gone.push_back(i);
                std::vector<Row> rest;
                for (int j = 0; j < int(rows.size()); j++)
                    if (j != i)
                        rest.push_back(rows[size_t(j)]);
                rows = rest;
            }
        }
        const auto first = std::find(due.begin(), due.end(), id);
        if (first != due.end())
            due.erase(first);
        return gone;
    }
    bool step(qint64 now)
    {
        if (taken)
            due.clear();
        taken = false;
        bool fresh = false;
        for (Row &row : rows) {
            if (now - row.phase > 1000 * row.interval - 100) {
                if (due.empty())
                    fresh = true;
                if (std::find(due.begin(), due.end(), row.id) == due.end())
                    due.push_back(row.id);
                row.phase = now;
            }
        }
        return fresh;
    }
    void align(size_t index, qint64 now)
    {
        qint64 best = 1;
        size_t reference = 0;
        for (size_t i = 0; i < rows.size(); i++) {
            const qint64 common = divisor(rows[i].interval, rows[index].interval);
            if (i != index && common > best) {
                best = common;
                reference = i;
            }
        }
        const double offset = std::fmod(double(now - rows[reference].phase), 1000.0 * double(best));
        rows[index].phase = now - qint64(offset);
    }
    qint64 wait(qint64 now) const
    {
        qint64 shortest = 86400000;
        for (const Row &row : rows) {
            if (1000 * row.interval - (now - row.phase) < shortest)
                shortest = 1000 * row.interval - (now - row.phase);
        }
        return shortest;
    }

private:
    static qint64 divisor(qint64 a, qint64 b)
    {
        a = std::abs(a);
        b = std::abs(b);
        if (a == 0)
            return b;
        while (b != 0) {
            const qint64 rest = a % b;
            a = b;
            b = rest;
        }
        return a;
    }
};

bool equal(const ScheduleTable &table, const NaiveTable &naive)
{
    return std::equal(table.rows().begin(), table.rows().end(), naive.rows.begin(), naive.rows.end(),
                      [](const ClientEntry &a, const NaiveTable::Row &b) {
                          return a.id == b.id && a.interval == b.interval && a.phaseStart.count() == b.phase;
                      });
}

} // namespace

// The table and its rules, side by side through many random operations.
class TestScheduleTableRules : public QObject
{
    Q_OBJECT

private slots:
    void itDoesWhatTheRulesSay_data();
    void itDoesWhatTheRulesSay();
};

void TestScheduleTableRules::itDoesWhatTheRulesSay_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 20260301; seed < 20260331; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void TestScheduleTableRules::itDoesWhatTheRulesSay()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    ScheduleTable table;
    NaiveTable naive;
    qint64 now = random.bounded(200000000);
    const auto anId = [&random] { return 6000 + random.bounded(8); }; // few: ids stand twice at times
    const auto anInterval = [&random] {
        return random.bounded(20) == 0 ? INT_MAX - random.bounded(3) : 1 + random.bounded(30);
    };
    for (int i = 0; i < 3000; ++i) {
        switch (random.bounded(8)) {
        case 0: {
            const int id = anId(), interval = anInterval();
            table.append(id, interval, Milliseconds(now));
            naive.append(id, interval, now);
            break;
        }
        case 1: {
            if (naive.rows.empty())
                break;
            const int row = random.bounded(int(naive.rows.size()));
            const int interval = anInterval();
            table.setInterval(row, interval);
            naive.rows[size_t(row)].interval = interval;
            table.align(row, Milliseconds(now));
            naive.align(size_t(row), now);
            break;
        }
        case 2: {
            if (naive.rows.size() < 6 && random.bounded(4) != 0)
                break; // let it grow
            const int id = anId();
            const auto gone = naive.remove(id);
            QCOMPARE(table.remove(id), QList<int>(gone.begin(), gone.end()));
            break;
        }
        case 3:
        case 4:
        case 5: {
            table.dropTaken();
            QCOMPARE(table.collectDue(Milliseconds(now)), naive.step(now));
            break;
        }
        case 6:
            naive.taken = true;
            QCOMPARE(table.takeDue(), QList<int>(naive.due.begin(), naive.due.end()));
            break;
        case 7:
            now += random.bounded(50) == 0 ? random.bounded(200000000) : random.bounded(6000);
            break;
        }
        QVERIFY2(equal(table, naive), qPrintable(QStringLiteral("operation %1").arg(i)));
        QCOMPARE(table.nextWait(Milliseconds(now)).count(), naive.wait(now));
    }
}

QTEST_APPLESS_MAIN(TestScheduleTableRules)
#include "tst_scheduletable_rules.moc"
