#pragma once
// The bytes of one fuzz input, read front to back. Reading past the end gives zeros, so that every prefix of an input is an
// input too and the fuzzer may cut anywhere.

#include <algorithm>
#include <cstdint>
#include <span>

struct FuzzInput {
    std::span<const uint8_t> left;
};

[[nodiscard]] inline bool fuzzMore(const FuzzInput *input) { return !input->left.empty(); }

inline uint8_t fuzzU8(FuzzInput *input) {
    if (input->left.empty())
        return 0;
    const uint8_t value = input->left.front();
    input->left = input->left.subspan(1);
    return value;
}

inline uint16_t fuzzU16(FuzzInput *input) {
    const uint32_t high = fuzzU8(input);
    return static_cast<uint16_t>((high << 8) | fuzzU8(input));
}

inline uint32_t fuzzU32(FuzzInput *input) {
    const uint32_t high = fuzzU16(input);
    return (high << 16) | fuzzU16(input);
}

// At most `count` bytes: fewer at the end of the input.
inline std::span<const uint8_t> fuzzTake(FuzzInput *input, uint32_t count) {
    const std::span<const uint8_t> taken = input->left.first(std::min<size_t>(count, input->left.size()));
    input->left = input->left.subspan(taken.size());
    return taken;
}
