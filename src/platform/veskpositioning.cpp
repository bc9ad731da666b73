#include "platform/veskpositioning.h"

#include "platform/geoclueclients.h"
#include "platform/geocluerequest.h"
#include "platform/veskrules.h"

#include <QDBusConnection>

// The session with GeoClue; it is the parent of its requests.
class VeskPositioning::Private : public QObject
{
public:
    Private(VeskObserver *observer, const VeskTimings &timings, const Clock &clock)
        : m_observer(observer)
        , m_timings(timings)
        , m_clock(clock)
    {
    }

    int start(VeskPosition &out, unsigned technologyMask, VeskPacketDataUsage usage, unsigned timeoutSeconds)
    {
        if (const int refused = vesk::refusal(m_observer, technologyMask, usage, timeoutSeconds))
            return refused;
        if (m_request)
            return vesk::Busy;
        m_out = &out;
        m_request = new GeoClueRequest(m_bus, m_clients,
                                       {technologyMask, usage, vesk::workingTime(timeoutSeconds, m_timings),
                                        m_timings.settle,
                                        std::chrono::milliseconds(m_clock.now().toMSecsSinceEpoch())},
                                       this);
        connect(m_request, &GeoClueRequest::finished, this, &Private::onFinished);
        m_request->start();
        return vesk::Success;
    }

private:
    // Inside the callback this object may be asked again, or deleted.
    void onFinished(int error, const VeskPosition &position)
    {
        m_request->deleteLater();
        m_request = nullptr;
        if (error == vesk::Success)
            *m_out = position;
        m_observer->veskRequestFinished(error, vesk::CurrentPosition);
    }

    VeskObserver *const m_observer;
    const VeskTimings m_timings;
    const Clock &m_clock;
    QDBusConnection m_bus = QDBusConnection::systemBus();
    GeoClueClients m_clients{m_bus};
    GeoClueRequest *m_request = nullptr;
    VeskPosition *m_out = nullptr;
};

VeskPositioning::VeskPositioning(VeskObserver *observer)
    : VeskPositioning(observer, VeskTimings())
{
}

VeskPositioning::VeskPositioning(VeskObserver *observer, const VeskTimings &timings, const Clock &clock)
    : d(std::make_unique<Private>(observer, timings, clock))
{
}

VeskPositioning::~VeskPositioning() = default;

int VeskPositioning::currentPositionAsync(VeskPosition &out, unsigned technologyMask,
                                          VeskPacketDataUsage usage, unsigned timeoutSeconds)
{
    return d->start(out, technologyMask, usage, timeoutSeconds);
}

int VeskPositioning::currentMeasurementsAsync(VeskMeasurements &, unsigned, unsigned)
{
    return vesk::NotSupported;
}

int VeskPositioning::convertToPositionAsync(VeskPosition &, const VeskMeasurements &, VeskPacketDataUsage,
                                            unsigned)
{
    return vesk::NotSupported;
}
