#pragma once

#include <QtGlobal>

// Positioning-method masks: the low byte holds the satellite methods, the rest the network ones.
namespace Methods {

inline constexpr quint32 Satellite = 0x000000ff;
inline constexpr quint32 NonSatellite = 0xffffff00;
inline constexpr quint32 All = 0xffffffff;

constexpr bool hasSatellite(quint32 mask)
{
    return (mask & Satellite) != 0;
}

constexpr bool hasNonSatellite(quint32 mask)
{
    return (mask & NonSatellite) != 0;
}

} // namespace Methods

enum class ReceiverState { Idle = 0, Searching = 1, Fix = 2 };

// What one report of a satellite receiver means: its state and the state's name in the log.
struct ReceiverReport {
    ReceiverState state;
    const char *name;
};
// gnssState: 1 searching, 2 tracking; any other number counts as idle.
ReceiverReport engineReport(int gnssState);
// fixStatus, of the external receiver: 1 no fix yet, 2 and 3 a fix; any other number counts as idle.
ReceiverReport gypsyReport(int fixStatus);

// Everything the choice of methods depends on, copied out at the moment of asking.
struct MethodInputs {
    bool positioningOff = false;
    bool satelliteDisabled = false;
    bool cellularDisabled = false;
    bool wifiDisabled = false;
    bool connectivityDisabled = false;
    bool veskInUse = false;
    bool internalGps = false;
    bool orvClientsBlocked = false;
    bool satellitesWithheld = false;     // by power save
    bool satelliteClientStarted = false; // some client that is not stopped asks for satellites
    ReceiverState receiverState = ReceiverState::Idle;

    bool operator==(const MethodInputs &) const = default;
};

// The methods a client can be served with now.
struct MethodChoice {
    quint32 methods = 0;
    bool positioningOff = false;        // the user has switched everything off
    bool needsExternalReceiver = false; // satellites hold only while an external receiver's address is known

    bool operator==(const MethodChoice &) const = default;
};
MethodChoice selectMethods(const MethodInputs &inputs, quint32 requested);
// The mask without the satellite methods unless the receiver's address is known.
quint32 withExternalReceiver(quint32 mask, bool addressKnown);

// Through the network library either radio will do; through SUPL it takes the cellular method and
// a data connection.
bool isNetworkDisabled(const MethodInputs &inputs);

// What clients are told they may ask for, and what the status keys show.
struct Availability {
    quint32 methods = 0;
    bool satellite = false;
    bool network = false;
    bool networkDisabled = false;
    bool vesk = false;

    bool operator==(const Availability &) const = default;
};
Availability methodAvailability(const MethodInputs &inputs);
