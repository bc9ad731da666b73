#include "core/methodselection.h"

namespace {

// What the client asked for, less what the user disabled. A network-only client is served from a
// satellite fix that runs for somebody else anyway.
quint32 wantedMethods(const MethodInputs &inputs, quint32 requested)
{
    if (inputs.receiverState == ReceiverState::Fix && requested == Methods::NonSatellite) {
        const bool rides = !inputs.satelliteDisabled && inputs.satelliteClientStarted;
        return rides ? Methods::Satellite : Methods::NonSatellite;
    }
    return inputs.satelliteDisabled ? requested & ~Methods::Satellite : requested;
}

} // namespace

ReceiverReport engineReport(int gnssState)
{
    switch (gnssState) {
    case 1:
        return {ReceiverState::Searching, "Search"};
    case 2:
        return {ReceiverState::Fix, "Tracking"};
    default:
        return {ReceiverState::Idle, "Idle"};
    }
}

ReceiverReport gypsyReport(int fixStatus)
{
    switch (fixStatus) {
    case 1: // none yet
        return {ReceiverState::Searching, "Search"};
    case 2: // in two dimensions
    case 3:
        return {ReceiverState::Fix, "Fix"};
    default:
        return {ReceiverState::Idle, "Idle"};
    }
}

bool isNetworkDisabled(const MethodInputs &inputs)
{
    return inputs.veskInUse ? inputs.cellularDisabled && inputs.wifiDisabled
                            : inputs.cellularDisabled || inputs.connectivityDisabled;
}

MethodChoice selectMethods(const MethodInputs &inputs, quint32 requested)
{
    if (inputs.positioningOff)
        return {.positioningOff = true};

    quint32 methods = wantedMethods(inputs, requested);
    if (isNetworkDisabled(inputs))
        methods &= ~Methods::NonSatellite;
    if (inputs.receiverState == ReceiverState::Fix && Methods::hasSatellite(methods))
        methods &= Methods::Satellite; // no network session while satellites give fixes
    if (inputs.orvClientsBlocked) {
        if (inputs.internalGps)
            methods &= ~Methods::Satellite;
        if (!inputs.veskInUse)
            methods &= ~Methods::NonSatellite; // SUPL goes through the engine as well
    }
    if (inputs.satellitesWithheld)
        methods &= ~Methods::Satellite;
    return {.methods = methods, .needsExternalReceiver = !inputs.internalGps};
}

quint32 withExternalReceiver(quint32 mask, bool addressKnown)
{
    return addressKnown ? mask : mask & ~Methods::Satellite;
}

Availability methodAvailability(const MethodInputs &inputs)
{
    Availability offered;
    offered.satellite = !inputs.positioningOff && !inputs.satelliteDisabled;
    offered.networkDisabled = isNetworkDisabled(inputs);
    offered.network = !inputs.positioningOff && !offered.networkDisabled;
    offered.vesk = !inputs.positioningOff && inputs.veskInUse;
    offered.methods =
        (offered.satellite ? Methods::Satellite : 0) | (offered.network ? Methods::NonSatellite : 0);
    return offered;
}
