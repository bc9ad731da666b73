#include "core/settingeffects.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

using F = SettingFlags;

constexpr StartSetting StartTable[] = {
    {"Positioning"_L1, {&F::positioningOff, true}},
    {"SatellitePositioning"_L1, {&F::satelliteDisabled, true}},
    {"SatellitePositioningInternal"_L1, {&F::internalGps, false}},
    {"CellularPositioning"_L1, {&F::cellularDisabled, true}},
    {"WiFiPositioning"_L1, {&F::wifiDisabled, true}},
    {"NetworkConnectivity"_L1, {&F::connectivityDisabled, true}},
    {"InternalGpsDisabled"_L1, {&F::internalGpsDisabled, false}},
    {"SuplForced"_L1, {&F::suplForced, false}},
    {"SuplFallback"_L1, {&F::suplFallback, false}},
};

constexpr SettingRow suplServerRow(QLatin1StringView key, QLatin1StringView label)
{
    return {key, label, ValueKind::Text, {}, 0, SettingEffect::SuplServer};
}

constexpr SettingRow RowTable[] = {
    {"Positioning"_L1,
     "Positioning ["_L1,
     ValueKind::Flag,
     {&F::positioningOff, true},
     0,
     SettingEffect::None,
     true},
    {"SatellitePositioning"_L1,
     "Sat method enable ["_L1,
     ValueKind::Flag,
     {&F::satelliteDisabled, true},
     0,
     SettingEffect::None,
     true},
    {"SatellitePositioningInternal"_L1,
     "Sat method internal ["_L1,
     ValueKind::Flag,
     {&F::internalGps, false},
     0,
     SettingEffect::SwitchReceiver,
     true},
    {"SatellitePositioningExternalName"_L1, "Sat method external name ["_L1, ValueKind::Text},
    {"SatellitePositioningExternalAddress"_L1,
     "Sat method external address ["_L1,
     ValueKind::Text,
     {},
     0,
     SettingEffect::SwitchReceiver},
    {"NetworkConnectivity"_L1,
     "Network connectivity ["_L1,
     ValueKind::Flag,
     {&F::connectivityDisabled, true},
     NetworkSetting::Connectivity,
     SettingEffect::Connectivity},
    {"CellularPositioning"_L1,
     "Net method ["_L1,
     ValueKind::Flag,
     {&F::cellularDisabled, true},
     NetworkSetting::Cellular},
    {"WiFiPositioning"_L1,
     "WiFi method ["_L1,
     ValueKind::Flag,
     {&F::wifiDisabled, true},
     NetworkSetting::WiFi},
    {"LocationDisclaimerAccepted"_L1,
     "Disclaimer accepted ["_L1,
     ValueKind::Flag,
     {&F::disclaimerAccepted, false}},
    suplServerRow("PrimarySuplServer"_L1, "PrimarySuplServer changed ["_L1),
    suplServerRow("SecondarySuplServer"_L1, "SecondarySuplServer changed ["_L1),
    suplServerRow("PrimarySuplAllowHome"_L1, "PrimarySuplAllowHome changed ["_L1),
    suplServerRow("PrimarySuplAllowRoaming"_L1, "PrimarySuplAllowRoaming changed ["_L1),
    suplServerRow("PrimarySuplOnlyGprs"_L1, "PrimarySuplOnlyGprs changed ["_L1),
    suplServerRow("SecondarySuplAllowHome"_L1, "SecondarySuplAllowHome changed ["_L1),
    suplServerRow("SecondarySuplAllowRoaming"_L1, "SecondarySuplAllowRoaming changed ["_L1),
    {"SuplForced"_L1,
     "SUPL Forced ["_L1,
     ValueKind::Flag,
     {&F::suplForced, false},
     0,
     SettingEffect::SuplForced},
    {"ContinuousLocationAwareness"_L1, "ContinuousLocationAwareness ["_L1},
    {"ContinuousLocationAwarenessVisible"_L1, "ContinuousLocationAwarenessVisible ["_L1},
    {"ContinuousLocationCleanup"_L1, "ContinuousLocationCleanup ["_L1},
    {"ContinuousLocationCleanupVisible"_L1, "ContinuousLocationCleanupVisible ["_L1},
};

constexpr SettingRow UnknownRow{{}, "Unknown key:"_L1, ValueKind::None};

QString logLine(const SettingRow &row, const QString &key, const QVariant &value)
{
    switch (row.kind) {
    case ValueKind::Flag:
        return row.label + (value.toBool() ? " true ]"_L1 : " false ]"_L1);
    case ValueKind::Text:
        return row.label + u' ' + value.toString() + " ]"_L1;
    case ValueKind::None:
        break;
    }
    return row.label + u' ' + key;
}

void applyEffect(SettingOutcome &outcome, const SettingFlags &old, const SettingRow &row,
                 bool orvClientsBlocked)
{
    SettingFlags &flags = outcome.flags;
    switch (row.effect) {
    case SettingEffect::None:
        break;
    case SettingEffect::SwitchReceiver:
        // A new address matters only to an external receiver that is in use.
        outcome.stopSatelliteSessions =
            row.binding.flag ? flags.internalGps != old.internalGps : !flags.internalGps;
        break;
    case SettingEffect::Connectivity:
        outcome.tellEngineMode = true;
        break;
    case SettingEffect::SuplServer:
        outcome.sendSuplServers = !flags.internalGpsDisabled && !orvClientsBlocked;
        break;
    case SettingEffect::SuplForced:
        flags.veskInUse = !flags.suplForced;
        if (flags.veskInUse)
            outcome.peerSettings = {{NetworkSetting::Connectivity, flags.connectivityDisabled ? 0 : 1},
                                    {NetworkSetting::Cellular, flags.cellularDisabled ? 0 : 1},
                                    {NetworkSetting::WiFi, flags.wifiDisabled ? 0 : 1}};
        break;
    }
}

} // namespace

MethodInputs methodInputs(const SettingFlags &flags)
{
    return {.positioningOff = flags.positioningOff,
            .satelliteDisabled = flags.satelliteDisabled,
            .cellularDisabled = flags.cellularDisabled,
            .wifiDisabled = flags.wifiDisabled,
            .connectivityDisabled = flags.connectivityDisabled,
            .veskInUse = flags.veskInUse,
            .internalGps = flags.internalGps};
}

std::span<const StartSetting> startSettings()
{
    return StartTable;
}

std::span<const SettingRow> settingRows()
{
    return RowTable;
}

void assignFlag(SettingFlags &flags, const FlagBinding &binding, bool value)
{
    if (binding.flag)
        flags.*binding.flag = value != binding.inverted;
}

const SettingRow *findSettingRow(QStringView key)
{
    const auto row = std::find_if(std::begin(RowTable), std::end(RowTable),
                                  [key](const SettingRow &candidate) { return candidate.key == key; });
    return row == std::end(RowTable) ? nullptr : row;
}

SettingOutcome settingChange(const SettingFlags &flags, bool orvClientsBlocked, const QString &key,
                             const QVariant &value)
{
    const SettingRow *found = findSettingRow(key);
    const SettingRow &row = found ? *found : UnknownRow;

    SettingOutcome outcome;
    outcome.flags = flags;
    outcome.line = logLine(row, key, value);
    outcome.updatesContext = row.updatesContext;
    assignFlag(outcome.flags, row.binding, value.toBool());
    if (row.networkSetting != 0 && flags.veskInUse)
        outcome.peerSettings = {{row.networkSetting, value.toBool() ? 1 : 0}};
    applyEffect(outcome, flags, row, orvClientsBlocked);
    return outcome;
}

quint8 engineMode(const SettingFlags &flags)
{
    return flags.connectivityDisabled ? 1 : 2;
}

int suplUsage(bool allowHome, bool allowRoaming, bool onlyGprs)
{
    return (allowHome ? 1 : 0) | (allowRoaming ? 2 : 0) | (onlyGprs ? 4 : 0);
}
