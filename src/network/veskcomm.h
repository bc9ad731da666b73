#pragma once

#include "platform/clock.h"
#include "platform/veskpositioning.h"

#include <QGeoPositionInfo>
#include <QObject>

// The adapter to the network positioning library: one request becomes one call, one completion one signal.
class VESKComm : public QObject, public VeskObserver
{
    Q_OBJECT
public:
    explicit VESKComm(const Clock &clock = Clock::system());
    ~VESKComm() override;

    // Requests: 0 when the library accepted, and a signal follows; else its error, and none does.
    // -1: neither technology may be used. gprs: packet data may be used. Time-outs in s.
    int requestPositionVESK(bool wifi, bool cellular, bool gprs, unsigned int timeout);
    int requestMeasurementVESK(bool wifi, bool cellular, unsigned int timeout);
    int requestMeasurementToPositionVESK(const VeskMeasurements &measurements, bool gprs,
                                         unsigned int timeout);

    // From the library, at the end of a request.
    void veskRequestFinished(int error, int requestType) override;

signals: // the order is part of the interface
    // The fix is reused for the next one: a receiver copies what it keeps. It is empty when the
    // request failed (error is the library's), or when what was found is no better than a region.
    void positionUpdateVESK(QGeoPositionInfo &update, int error);
    void measurementUpdateVESK(VeskMeasurements &measurement);
    void measurementToPositionUpdateVESK(QGeoPositionInfo &update, int error);

private:
    void takeResult(int error);

    VeskPosition position;
    VeskMeasurements measurements;
    VeskPosition convertedPosition;
    VeskPositioning positioning;
    QGeoPositionInfo lastInfo;
    const Clock &m_clock;
};
