#pragma once

#include "engine/messages.h"

// What the daemon sends to the engine, as the bytes of one packet.
namespace wire {
QByteArray gnssRequest(const GnssRequest &request);
QByteArray suplRequest(const SuplRequest &request);
QByteArray deleteAssistance(quint32 mask);
QByteArray registerPrivacy();
QByteArray locationReply(bool accepted);
// A count is one byte: of a name of 256 bytes or more, the first (length modulo 256) bytes are sent.
QByteArray suplServers(const SuplServers &servers);
} // namespace wire
