#pragma once

#include <QVariantList>

#include <optional>

// What the user answered, out of the arguments of a dialog's reply: the first of them, also when a
// variant or a structure of its own stands around it. Nothing when there is none or when it is of
// another type: whether the user agreed is never guessed.
[[nodiscard]] std::optional<bool> readBoolean(const QVariantList &reply);
[[nodiscard]] std::optional<int> readInteger(const QVariantList &reply);
