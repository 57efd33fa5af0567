#pragma once
// What adding options to a message must lead to, told a second time: with vectors, one message at a time and no thought of
// speed. The contents of an option come from the code under test; where they go, what goes out and what is refused is worked
// out here anew.

#include <cstdint>
#include <vector>

struct InfoFrame {
    std::vector<uint8_t> bytes;
    uint32_t msgOffset;
    uint32_t secondTag; // 4 with a second tag, else 0
    uint16_t vlan;
    uint32_t port; // index, from 0
    uint32_t access;
    uint8_t ponValue;
    uint16_t ponId;
    uint8_t serial[8];
};

// The frame that leaves; empty when it is dropped.
std::vector<uint8_t> infoModel(const InfoFrame &frame);
