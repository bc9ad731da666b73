#pragma once

#include <QByteArray>

struct DevicePaths;

// Which program plays the engine: the GNSS engine daemon, or a script for development.
enum class EngineSource { Real, Test };

// What a developer asked for. A marker file beats the environment, and the real engine's marker
// beats the test engine's.
struct EngineSourceWishes {
    QByteArray environmentValue{}; // of POSITIONING_SOURCE, empty when not set
    bool fakeMarker = false;
    bool realMarker = false;
};

EngineSource chooseEngineSource(const EngineSourceWishes &wishes);
EngineSourceWishes readEngineSourceWishes(const DevicePaths &paths);

// Starts the test engine and does not wait for it: whether it runs shows when its socket answers.
void launchTestEngine(const DevicePaths &paths);
