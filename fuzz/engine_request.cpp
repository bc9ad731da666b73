// One message from the daemon, as a program that plays the engine reads it.
#include "engine/wirechecks.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::require(wirechecks::request(fuzz::bytes(data, size)));
    return 0;
}
