#pragma once

#include <QStringView>

// Whether a text is a bus name (well-known or unique) or an object path, by the grammar of the
// D-Bus specification, "Valid Names" and "Valid Object Paths". Clients send us these, and a
// malformed one must not reach the bus library or a match rule.
[[nodiscard]] bool isBusName(QStringView name);
[[nodiscard]] bool isObjectPath(QStringView path);
