#pragma once

#include <cstddef>
#include <span>

// What holds for any bytes at all. Each check reads its input as the daemon or an engine would and
// returns null, or the sentence that turned out to be untrue. Shared by the tests, which feed random
// bytes, and by the fuzz targets.
namespace wirechecks {
using Bytes = std::span<const std::byte>;

const char *packet(Bytes packet);               // one message from the engine
const char *subBlocks(Bytes countAndSubBlocks); // byte 0 is the count
const char *texts(Bytes block);                 // one sub-block with a text
const char *request(Bytes packet);              // one message from the daemon
} // namespace wirechecks
