#include "platform/devicepaths.h"

#include <optional>

using namespace Qt::StringLiterals;

namespace {

// USER as it stands in the environment; set but empty is not the same as unset.
std::optional<QString> userName()
{
    if (!qEnvironmentVariableIsSet("USER"))
        return std::nullopt;
    return qEnvironmentVariable("USER");
}

} // namespace

QString DevicePaths::engineSocket() const
{
    return root + u"/var/run/orvd/orvd.socket"_s;
}

QString DevicePaths::testEngineSocket() const
{
    return root + u"/tmp/orvd"_s;
}

QString DevicePaths::marker(const char *name) const
{
    return root + u"/home/user/"_s + QString::fromLatin1(name);
}

QString DevicePaths::userSettings() const
{
    const auto user = userName();
    if (!user)
        return {};
    const QString home = *user == "root"_L1 ? u"user"_s : *user;
    return root + u"/home/"_s + home + u"/.lodestard/private/location_settings"_s;
}

QString DevicePaths::operatorSettings() const
{
    return root + u"/etc/xdg/varn/location-settings.conf"_s;
}

QString DevicePaths::documentsDirectory() const
{
    const auto user = userName();
    const QString home = user && *user != "root"_L1 ? *user : u"user"_s;
    return root + u"/home/"_s + home + u"/MyDocs/"_s;
}

QString DevicePaths::logDirectory() const
{
    return documentsDirectory() + u"location_logs"_s;
}

QString DevicePaths::systemInformation() const
{
    return root + u"/etc/lodestard/sysinfo"_s;
}
