#pragma once

#include <optional>

// An attribute of a fix or of a satellite, if it is set.
template <typename Info>
std::optional<double> attribute(const Info &info, typename Info::Attribute which)
{
    return info.hasAttribute(which) ? std::optional(info.attribute(which)) : std::nullopt;
}
