// The walk over sub-blocks: the first byte is their count.
#include "engine/wirechecks.h"
#include "target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::require(wirechecks::subBlocks(fuzz::bytes(data, size)));
    return 0;
}
