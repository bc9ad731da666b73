#include "orvd-gpsd/sendqueue.h"

#include <QTest>

using namespace orvdgpsd;
using namespace std::chrono_literals;

class TestSendQueue : public QObject
{
    Q_OBJECT
private slots:
    void messagesLeaveInTheirOrder()
    {
        SendQueue queue;
        QVERIFY(queue.isEmpty());
        QVERIFY(!queue.next(0ms));
        queue.push("a", 0ms);
        queue.push("b", 0ms);
        QCOMPARE(*queue.next(0ms), "a");
        QCOMPARE(*queue.next(0ms), "a"); // not sent yet
        queue.sent();
        QCOMPARE(*queue.next(0ms), "b");
        queue.sent();
        QVERIFY(queue.isEmpty());
        QCOMPARE(queue.takeDropped(), 0u);
    }

    void whatIsTooOldIsDropped()
    {
        SendQueue queue;
        queue.push("old", 0ms);
        queue.push("young", 1ms);
        QCOMPARE(*queue.next(SendQueue::Oldest), "old");
        QCOMPARE(*queue.next(SendQueue::Oldest + 1ms), "young");
        QCOMPARE(queue.takeDropped(), 1u);
        QVERIFY(!queue.next(SendQueue::Oldest + 2ms));
        QCOMPARE(queue.takeDropped(), 1u);
        QCOMPARE(queue.takeDropped(), 0u);
    }

    void theOldestGivesWayWhenThereAreTooMany()
    {
        SendQueue queue;
        for (std::size_t i = 0; i < SendQueue::Most + 3; ++i)
            queue.push(QByteArray::number(qulonglong(i)), 0ms);
        QCOMPARE(*queue.next(0ms), "3");
        QCOMPARE(queue.takeDropped(), 3u);
    }
};

QTEST_APPLESS_MAIN(TestSendQueue)
#include "tst_sendqueue.moc"
