#pragma once

class QDBusConnection;

inline constexpr const char *ClientServiceName = "com.varn.lodestard.client";

// The process id of the daemon that owns the client service already; 0 when there is none, or when
// the bus does not tell. Blocks until the bus answers.
int checkAlreadyRunning(const QDBusConnection &bus);
