// One sub-block that holds a text: client name and client id.
#include "engine/wirechecks.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::require(wirechecks::texts(fuzz::bytes(data, size)));
    return 0;
}
