// One message from the engine, read and converted as the daemon does.
#include "engine/wirechecks.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::require(wirechecks::packet(fuzz::bytes(data, size)));
    return 0;
}
