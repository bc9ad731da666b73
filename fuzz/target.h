#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

// What libFuzzer calls, and what the replay of the corpus calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace fuzz {
inline std::span<const std::byte> bytes(const std::uint8_t *data, std::size_t size)
{
    return std::as_bytes(std::span(data, size));
}

// A sentence that should have been true and is not ends the program, as a crash does.
inline void require(const char *untrue)
{
    if (untrue) {
        std::fprintf(stderr, "not true: %s\n", untrue);
        std::abort();
    }
}
} // namespace fuzz
