#pragma once

#include <QDBusObjectPath>
#include <QString>

#include <optional>

class QDBusConnection;

// The two questions to bluez 4 that more than one folder asks. Both block until bluez answers or
// the bus's default time-out (25 s) ends the call, and answer nothing on any error.
namespace bluez {

inline constexpr const char *Service = "org.bluez";

std::optional<QDBusObjectPath> defaultAdapter(const QDBusConnection &bus);
std::optional<QDBusObjectPath> findDevice(const QDBusConnection &bus, const QDBusObjectPath &adapter,
                                          const QString &address);

} // namespace bluez
