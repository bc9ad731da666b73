#pragma once

// GeoClue's names, as both sides of the measurement use them.
namespace geoclue {

inline constexpr const char *Service = "org.freedesktop.GeoClue2";
inline constexpr const char *ManagerPath = "/org/freedesktop/GeoClue2/Manager";
inline constexpr const char *ManagerInterface = "org.freedesktop.GeoClue2.Manager";
inline constexpr const char *ClientInterface = "org.freedesktop.GeoClue2.Client";
inline constexpr const char *LocationInterface = "org.freedesktop.GeoClue2.Location";
inline constexpr const char *PropertiesInterface = "org.freedesktop.DBus.Properties";

} // namespace geoclue
