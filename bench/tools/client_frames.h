#pragma once
// The frames of the loads on the wire: what many clients send, and what their server answers. Frame i belongs to client
// i % clients and carries transaction id i, by which a receiver can tell it. Without a tag; lengths and checksums are right.

#include <cstdint>
#include <vector>

inline constexpr uint32_t CLIENT_FRAME_ROOM = 256;
inline constexpr uint32_t CLIENT_FRAME_DESTINATION = 0;     // where the destination MAC stands in a frame
inline constexpr uint32_t CLIENT_FRAME_SOURCE = 6;          // where the source MAC stands in a frame
inline constexpr uint32_t CLIENT_FRAME_TRANSACTION = 63;    // where the transaction id stands, three bytes
inline constexpr uint32_t CLIENT_FRAME_CLIENTS_MAX = 65536; // clients differ in two bytes of their MAC

enum class ClientFrameKind : uint32_t {
    Solicit,      // from the client, to all servers: 152 bytes
    Reply,        // to the client: one address and one prefix of its own
    Address,      // the same without the prefix
    Information,  // from the client, to one station
    RelayForward, // from the client, to one station: a SOLICIT in a Relay-Forward
};

struct ClientFrame {
    uint8_t bytes[CLIENT_FRAME_ROOM];
    uint32_t length;
};

std::vector<ClientFrame> clientFrames(ClientFrameKind kind, uint32_t count, uint32_t clients);
