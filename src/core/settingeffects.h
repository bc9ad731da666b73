#pragma once

#include "core/methodselection.h"

#include <QList>
#include <QString>
#include <QVariant>

#include <span>

// The user's positioning settings as the daemon acts on them.
struct SettingFlags {
    bool positioningOff = false;
    bool satelliteDisabled = false;
    bool networkDisabled = false; // derived, with the availability of the methods
    bool internalGps = false;
    bool wifiDisabled = false;
    bool cellularDisabled = false;
    bool connectivityDisabled = false;
    bool disclaimerAccepted = false;
    bool internalGpsDisabled = false;
    bool suplForced = false;
    bool suplFallback = false;
    bool veskInUse = false;

    bool operator==(const SettingFlags &) const = default;
};

// The part of the method inputs that the settings decide.
MethodInputs methodInputs(const SettingFlags &flags);

// Codes of the settings that the network-positioning peer is told.
namespace NetworkSetting {
inline constexpr int Cellular = 129;
inline constexpr int WiFi = 130;
inline constexpr int Connectivity = 131;
} // namespace NetworkSetting

// A setting that is one of the flags, upright or turned round.
struct FlagBinding {
    bool SettingFlags::*flag = nullptr;
    bool inverted = false;
};

// The settings read once at start-up, in the order of reading.
struct StartSetting {
    QLatin1StringView key;
    FlagBinding binding;
};
std::span<const StartSetting> startSettings();
void assignFlag(SettingFlags &flags, const FlagBinding &binding, bool value);

// How a changed value shows in the log.
enum class ValueKind { Flag, Text, None };
enum class SettingEffect { None, SwitchReceiver, Connectivity, SuplServer, SuplForced };

// What a change of one key means at run time. Keys that are read at start-up only have no row.
struct SettingRow {
    QLatin1StringView key;
    QLatin1StringView label;
    ValueKind kind = ValueKind::Flag;
    FlagBinding binding = {};
    int networkSetting = 0; // its code for the network-positioning peer, 0 for none
    SettingEffect effect = SettingEffect::None;
    bool updatesContext = false; // what users see of satellite positioning, and its power save
};
std::span<const SettingRow> settingRows();
const SettingRow *findSettingRow(QStringView key); // null for a key without a row

struct PeerSetting {
    int setting;
    int enabled;

    bool operator==(const PeerSetting &) const = default;
};

// What is to be done about one changed setting. `flags` replaces the old ones after the running
// satellite sessions were stopped, when that is asked.
struct SettingOutcome {
    SettingFlags flags;
    QString line;                       // for the log
    bool stopSatelliteSessions = false; // the receiver that runs them is being switched
    bool updatesContext = false;        // the published state, and power save starts afresh
    bool tellEngineMode = false;
    bool sendSuplServers = false;
    QList<PeerSetting> peerSettings; // in the order of telling
};
SettingOutcome settingChange(const SettingFlags &flags, bool orvClientsBlocked, const QString &key,
                             const QVariant &value);

// The engine's GNSS mode: 1 without data connections, 2 with them.
quint8 engineMode(const SettingFlags &flags);
// The usage byte that goes with a SUPL server: bit 0 home, bit 1 roaming, bit 2 GPRS only.
int suplUsage(bool allowHome, bool allowRoaming, bool onlyGprs);
