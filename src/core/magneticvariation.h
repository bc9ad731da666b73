#pragma once

#include <QGeoPositionInfo>

#include <chrono>
#include <optional>

// A fix's magnetic variation in the whole degrees of the status key: half a degree is added and the
// fraction cut off, so 2.5 gives 3, -2.4 gives -1 and -0.6 gives 0. Nothing when it is not known.
std::optional<int> wholeVariation(const QGeoPositionInfo &fix);

// Fixes come by the thousand with the same variation. What was written is not looked at again for a
// while, then once more: somebody else may have changed it, or it could not be written.
class WrittenVariation
{
public:
    bool isDue(int degrees, std::chrono::milliseconds now); // true: it is going to be written

private:
    std::optional<int> m_degrees;
    std::chrono::milliseconds m_since{};
};
