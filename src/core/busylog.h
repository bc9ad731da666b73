#pragma once

#include <QLoggingCategory>

// For lines on busy roads: one for each client of a plan, one for each fix, one for each row of a
// table. It is the default category by name, so these lines are not even formatted when nobody wants
// debug lines.
inline const QLoggingCategory &busyLog()
{
    return *QLoggingCategory::defaultCategory();
}
