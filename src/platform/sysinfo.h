#pragma once

#include "platform/devicepaths.h"

#include <QByteArray>

#include <optional>

// The system-information library: device facts and product configuration by key. Key
// "/device/rd-mode" is the file /etc/lodestard/sysinfo/device/rd-mode, its content less one
// trailing line feed. Identity keys without a file are answered by the machine itself: product
// name and hardware version from DMI or the device tree, software release from os-release.
struct SysinfoContext {
    DevicePaths paths;
};

// Nothing when the library cannot be opened.
std::optional<SysinfoContext> sysinfo_init(const DevicePaths &paths = {});
// The key's bytes; nothing when the key cannot be read. An empty file is an empty value.
std::optional<QByteArray> sysinfo_get_value(const SysinfoContext &context, const char *key);
void sysinfo_finish(SysinfoContext &context);
