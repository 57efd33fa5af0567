#pragma once
// What a fuzz target demands of the code under test. A demand that fails ends the process like a sanitizer finding does, so
// that the fuzzer keeps the input.

#include <cstdio>
#include <cstdlib>

inline void fuzzCheck(bool holds, const char *demand) {
    if (holds)
        return;
    std::fprintf(stderr, "demand broken: %s\n", demand);
    std::abort();
}
