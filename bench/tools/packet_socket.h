#pragma once
// Packet sockets for the programs that load and measure: opened on an interface of this network namespace or, as
// NAMESPACE/INTERFACE, of a named one, so that one process can hold both ends of a way through a switch. What cannot be opened
// ends the process with a sentence.

#include <cstdint>

enum class PacketSocketUse : uint32_t {
    Send, // receives nothing
    Both, // receives every frame that comes in, whoever it is for
};

[[nodiscard]] int packetSocketOpen(const char *where, PacketSocketUse use);
