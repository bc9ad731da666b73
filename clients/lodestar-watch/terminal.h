#pragma once

#include "screen.h"

#include <QStringList>

// The terminal on standard output while the screen is shown: the alternate screen buffer without
// cursor, given back as it was found.
class Terminal
{
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    static bool isInteractive(); // standard output is a terminal that can be drawn on
    static ScreenStyle style();  // its size now, and what it can show
    void show(const QStringList &lines);
};
