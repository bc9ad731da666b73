#pragma once

#include <QVariant>

#include <optional>

// What the settings store asks of single values.
namespace settingvalue {

// The value as the settings file keeps it, variants inside variants unwrapped. Nothing for what an
// INI file cannot hold: arrays, structures, object paths, signatures, descriptors.
std::optional<QVariant> storable(const QVariant &value);

// Whether D-Bus can carry the value.
bool isSendable(const QVariant &value);

} // namespace settingvalue
