#pragma once
// Reading and writing of numbers in network order, within bounds. Everything that touches bytes of a message goes through
// here: a read or a write that would leave its area is refused, whatever the offset.

#include <cstdint>
#include <span>

[[nodiscard]] inline bool wire_holds(std::span<const uint8_t> area, uint32_t offset, uint32_t bytes) {
    return offset <= area.size() && bytes <= area.size() - offset;
}

// The number at `offset`, or 0 where the area does not hold it.
[[nodiscard]] inline uint8_t wire_get8(std::span<const uint8_t> area, uint32_t offset) {
    return wire_holds(area, offset, 1) ? area[offset] : uint8_t{0};
}

[[nodiscard]] inline uint16_t wire_get16(std::span<const uint8_t> area, uint32_t offset) {
    if (!wire_holds(area, offset, 2))
        return 0;
    return static_cast<uint16_t>((area[offset] << 8) | area[offset + 1]);
}

[[nodiscard]] inline uint32_t wire_get32(std::span<const uint8_t> area, uint32_t offset) {
    return (static_cast<uint32_t>(wire_get16(area, offset)) << 16) | wire_get16(area, offset + 2);
}

inline void wire_put16(std::span<uint8_t> area, uint32_t offset, uint16_t value) {
    if (!wire_holds(area, offset, 2))
        return;
    area[offset] = static_cast<uint8_t>(value >> 8);
    area[offset + 1] = static_cast<uint8_t>(value);
}
