#pragma once

#include "platform/veskpositioning.h"
#include "support/fakegeoclue.h"
#include "support/stillclock.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QList>
#include <QTest>

#include <functional>
#include <memory>
#include <utility>

using namespace std::chrono_literals;

// Network positioning, GeoClue, and the one who asks.
class VeskStage : public VeskObserver
{
public:
    // Nothing but the right event ends a request.
    static constexpr VeskTimings Patient{.settle = 1h};
    static constexpr unsigned LongTimeout = 3600;
    static constexpr int Deadline = 20000; // ms, for what is to happen
    static constexpr auto Allowed = VeskPacketDataUsage::Allowed;
    static constexpr auto NotAllowed = VeskPacketDataUsage::NotAllowed;

    explicit VeskStage(const VeskTimings &timings = Patient)
        : positioning(std::make_unique<VeskPositioning>(this, timings, clock))
    {
    }

    void veskRequestFinished(int error, int requestType) override
    {
        answers.append({error, requestType});
        if (const auto now = std::exchange(reaction, nullptr))
            now();
    }

    int request(unsigned mask = vesk::Wlan | vesk::Cellular, VeskPacketDataUsage usage = Allowed,
                unsigned timeoutSeconds = LongTimeout)
    {
        return positioning->currentPositionAsync(position, mask, usage, timeoutSeconds);
    }

    // A location of that age and accuracy, by the stage's clock.
    FakeGeoClue::Location found(double accuracy, int secondsAgo = 0) const
    {
        return {.accuracy = accuracy, .seconds = quint64(clock.time.toSecsSinceEpoch() - secondsAgo)};
    }

    // Waits until GeoClue searches for us.
    bool searching()
    {
        return QTest::qWaitFor([this] { return geoclue.activeCount() == 1; }, Deadline);
    }
    // Tells of a location and waits until the request has read it.
    void locate(const FakeGeoClue::Location &location)
    {
        geoclue.locate(location);
        const auto isRead = [this] {
            return !geoclue.takeCalls().filter(QStringLiteral("GetAll")).isEmpty();
        };
        QVERIFY(QTest::qWaitFor(isRead, Deadline));
        sync();
    }
    // Waits until a request has ended like this, as the only one.
    bool ended(int error)
    {
        return QTest::qWaitFor([this] { return !answers.isEmpty(); }, Deadline) &&
               takeAnswers() == QList<std::pair<int, int>>{{error, vesk::CurrentPosition}};
    }
    QList<std::pair<int, int>> takeAnswers() { return std::exchange(answers, {}); }

    // Waits until everything that was sent to GeoClue has been dealt with, and its answers here.
    void sync()
    {
        auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.GeoClue2"), QStringLiteral("/org/freedesktop/GeoClue2/Manager"),
            QStringLiteral("org.freedesktop.GeoClue2.Manager"), QStringLiteral("Sync"));
        const QDBusPendingCallWatcher watcher(QDBusConnection::systemBus().asyncCall(call));
        QVERIFY(QTest::qWaitFor([&watcher] { return watcher.isFinished(); }));
    }
    // Nothing is left of the requests: no client in GeoClue, no second answer.
    bool isOver()
    {
        sync();
        return geoclue.clientCount() == 0 && answers.isEmpty();
    }

    StillClock clock;
    FakeGeoClue geoclue;
    VeskPosition position;
    QList<std::pair<int, int>> answers; // error, request type
    std::function<void()> reaction;     // to the next answer, inside the callback
    std::unique_ptr<VeskPositioning> positioning;
};
