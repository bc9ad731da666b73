#include "network/veskcomm.h"

#include "network/veskfix.h"

#include <QDebug>

namespace {

constexpr int NoTechnology = -1;

int checked(int error, const char *operation)
{
    if (error != vesk::Success)
        qWarning("VESKComm::%s request failed, err: %d", operation, error);
    return error;
}

} // namespace

VESKComm::VESKComm(const Clock &clock)
    : positioning(this)
    , m_clock(clock)
{
}

VESKComm::~VESKComm() = default;

int VESKComm::requestPositionVESK(bool wifi, bool cellular, bool gprs, unsigned int timeout)
{
    qDebug("VESKComm::%s wifi: %d, cellular: %d, gprs: %d, timeout: %d", __func__, wifi, cellular, gprs,
           int(timeout));
    const unsigned technologies = veskfix::positionTechnologies(wifi, cellular);
    if (technologies == 0)
        return NoTechnology;
    return checked(
        positioning.currentPositionAsync(position, technologies, veskfix::packetDataUsage(gprs), timeout),
        __func__);
}

int VESKComm::requestMeasurementVESK(bool wifi, bool cellular, unsigned int timeout)
{
    return checked(positioning.currentMeasurementsAsync(
                       measurements, veskfix::measurementTechnologies(wifi, cellular), timeout),
                   __func__);
}

int VESKComm::requestMeasurementToPositionVESK(const VeskMeasurements &source, bool gprs,
                                               unsigned int timeout)
{
    return checked(positioning.convertToPositionAsync(convertedPosition, source,
                                                      veskfix::packetDataUsage(gprs), timeout),
                   __func__);
}

void VESKComm::veskRequestFinished(int error, int requestType)
{
    qDebug("VESKComm::%s vsek_err: %d", __func__, error);
    switch (requestType) {
    case vesk::CurrentMeasurements:
        if (error != vesk::Success)
            measurements = {};
        emit measurementUpdateVESK(measurements);
        break;
    case vesk::CurrentPosition:
        takeResult(error);
        if (error == vesk::Success && !veskfix::isTooVague(position))
            lastInfo = veskfix::positionInfo(position, m_clock.now());
        emit positionUpdateVESK(lastInfo, error);
        break;
    case vesk::MeasurementsToPosition:
        takeResult(error);
        if (error == vesk::Success)
            lastInfo = veskfix::positionInfo(convertedPosition, m_clock.now());
        emit measurementToPositionUpdateVESK(lastInfo, error);
        break;
    default:
        break;
    }
}

// A failure leaves no fix behind; a cancelled request is nothing to warn of.
void VESKComm::takeResult(int error)
{
    lastInfo = {};
    if (error != vesk::Success && error != vesk::Cancelled)
        qWarning("VESKComm::veskRequestFinished request failed, err: %d", error);
}
