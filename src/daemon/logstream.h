#pragma once

#include <cstdio>
#include <memory>

struct CloseStream {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
};
// An open file that closes with its owner; null when there is none.
using LogStream = std::unique_ptr<std::FILE, CloseStream>;
