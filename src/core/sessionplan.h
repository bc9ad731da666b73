#pragma once

#include <QtGlobal>

// What runs for a client now.
struct ServiceState {
    bool stopped = true;
    bool actGNSS = false;
    bool actSUPL = false;
    bool modified = false;
    bool satelliteInfo = false;
};

// The next three say what to end, change and start for one client: gnss is its satellite session, supl
// its enrolment for network positions.
struct StopPlan {
    bool gnss = false;
    bool supl = false;
    bool networkCleared = false; // no network session counts as running any more

    bool operator==(const StopPlan &) const = default;
};

struct ModifyPlan {
    bool gnss = false;
    bool supl = false;

    bool operator==(const ModifyPlan &) const = default;
};

struct StartPlan {
    bool nothingAvailable = false; // the client is started, and no method can serve it
    bool tellClient = false;       // with one empty position
    bool gnss = false;
    bool supl = false;

    bool operator==(const StartPlan &) const = default;
};

// A stopped client loses its sessions whatever the mask says.
StopPlan planStop(const ServiceState &client, quint32 methodsToStop);
ModifyPlan planModify(const ServiceState &client);
// methods: the mask that the client can be served with now.
StartPlan planStart(const ServiceState &client, quint32 methods);

// What a client loses with the engine, which forgets every session that it ran.
struct LossPlan {
    bool gnss = false; // nobody needs to be told
    bool supl = false;

    bool operator==(const LossPlan &) const = default;
};

// libraryLocates: network positions come from the network library, not from the engine.
LossPlan planEngineLost(const ServiceState &client, bool libraryLocates);

// Network positioning of all clients together.
enum class NetworkState { None = 0, Running = 1, Fix = 2 };

// Who carries out a client's satellite request.
enum class SatelliteRequest { Start, ChangeInterval, Stop };
enum class SatelliteRoute { Nobody, Engine, ExternalReceiver };
SatelliteRoute routeOf(SatelliteRequest request, bool internalGps, bool internalGpsDisabled);
