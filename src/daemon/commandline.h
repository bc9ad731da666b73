#pragma once

#include "daemon/logflags.h"

#include <cstdio>
#include <optional>
#include <span>

// The flags that the arguments (without the program's name) ask for, read from left to right;
// nothing when one of them is unknown.
std::optional<LogFlags> parseArguments(std::span<const char *const> arguments);

void printUsage(std::FILE *out);
