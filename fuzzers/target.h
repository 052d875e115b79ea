#ifndef FUZZERS_TARGET_H
#define FUZZERS_TARGET_H

#include <cstddef>
#include <cstdint>

/// What every fuzzer defines: tries one input. Survives all of them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length);

#endif
