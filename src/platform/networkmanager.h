#pragma once

#include <functional>

class QDBusConnection;
class QObject;

// The one question to NetworkManager.
namespace networkmanager {

// Does what we send go over mobile data, or over a connection that is paid by volume? The answer comes
// from the event loop, unless context is gone by then. Without NetworkManager it is "no"; one that
// does not react is waited for.
void askForPacketData(const QDBusConnection &bus, QObject *context, const std::function<void(bool)> &answer);

} // namespace networkmanager
