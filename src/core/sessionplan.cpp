#include "core/sessionplan.h"

#include "core/methodselection.h"

StopPlan planStop(const ServiceState &client, quint32 methodsToStop)
{
    const bool satellite = client.stopped || Methods::hasSatellite(methodsToStop);
    const bool network = client.stopped || Methods::hasNonSatellite(methodsToStop);
    return {
        .gnss = satellite && client.actGNSS, .supl = network && client.actSUPL, .networkCleared = network};
}

ModifyPlan planModify(const ServiceState &client)
{
    return {.gnss = client.modified && client.actGNSS, .supl = client.modified && client.actSUPL};
}

StartPlan planStart(const ServiceState &client, quint32 methods)
{
    if (client.stopped)
        return {};
    if (methods == 0)
        return {.nothingAvailable = true, .tellClient = !client.satelliteInfo};
    return {.gnss = Methods::hasSatellite(methods) && !client.actGNSS,
            .supl = Methods::hasNonSatellite(methods) && !client.actSUPL};
}

LossPlan planEngineLost(const ServiceState &client, bool libraryLocates)
{
    return {.gnss = client.actGNSS, .supl = client.actSUPL && !libraryLocates};
}

SatelliteRoute routeOf(SatelliteRequest request, bool internalGps, bool internalGpsDisabled)
{
    if (!internalGps)
        return SatelliteRoute::ExternalReceiver;
    if (!internalGpsDisabled)
        return SatelliteRoute::Engine;
    // Without an internal receiver nothing is started, but a session that the external receiver
    // may still hold is changed and ended there.
    return request == SatelliteRequest::Start ? SatelliteRoute::Nobody : SatelliteRoute::ExternalReceiver;
}
