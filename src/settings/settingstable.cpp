#include "settings/settingstable.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

SettingDefinition byUser(const QString &key, const QVariant &defaultValue)
{
    return {key, defaultValue, true};
}

SettingDefinition byOperator(const QString &key, const QVariant &defaultValue)
{
    return {key, defaultValue, false};
}

} // namespace

std::span<const SettingDefinition> settingDefinitions()
{
    static const QString suplServer = QStringLiteral(LODESTARD_DEFAULT_SUPL_SERVER);
    static const std::array definitions{
        byUser(u"Positioning"_s, true),
        byUser(u"SatellitePositioning"_s, true),
        byUser(u"SatellitePositioningInternal"_s, true),
        byUser(u"SatellitePositioningExternalName"_s, u""_s),
        byUser(u"SatellitePositioningExternalAddress"_s, u""_s),
        byUser(u"CellularPositioning"_s, true),
        byUser(u"WiFiPositioning"_s, true),
        byUser(u"NetworkConnectivity"_s, true),
        byUser(u"NetworkPositioningMethod"_s, 0),
        byUser(u"PrimarySuplServer"_s, suplServer),
        byOperator(u"PrimarySuplServerUsage"_s, 2),
        byOperator(u"PrimarySuplServerEditable"_s, true),
        byOperator(u"PrimarySuplServerVisible"_s, true),
        byOperator(u"PrimarySuplAllowHome"_s, true),
        byOperator(u"PrimarySuplAllowRoaming"_s, true),
        byUser(u"PrimarySuplOnlyGprs"_s, false),
        byUser(u"SecondarySuplServer"_s, suplServer),
        byOperator(u"SecondarySuplServerUsage"_s, 2),
        byOperator(u"SecondarySuplServerEditable"_s, true),
        byOperator(u"SecondarySuplServerVisible"_s, true),
        byOperator(u"SecondarySuplAllowHome"_s, true),
        byOperator(u"SecondarySuplAllowRoaming"_s, true),
        byUser(u"LocationDisclaimerAccepted"_s, false),
        byUser(u"VeskDisclaimerAccepted"_s, false),
        byUser(u"SuplForced"_s, false),
        byOperator(u"SuplFallback"_s, true),
        byOperator(u"InternalGpsDisabled"_s, false), // the product configuration always replaces it
        byUser(u"ContinuousLocationAwareness"_s, true),
        byOperator(u"ContinuousLocationAwarenessVisible"_s, false),
        byUser(u"ContinuousLocationCleanup"_s, true),
        byOperator(u"ContinuousLocationCleanupVisible"_s, false),
    };
    return definitions;
}

const SettingDefinition *findSetting(QStringView key)
{
    const auto all = settingDefinitions();
    const auto row = std::ranges::find_if(all, [key](const SettingDefinition &d) { return d.key == key; });
    return row == all.end() ? nullptr : &*row;
}
