#pragma once
// The shell's connection to the daemon: one SOCK_SEQPACKET socket, one request at a time, each answered by one message.
//
// The connection is opened by the first exchange and kept. When the daemon has ended meanwhile, the request cannot be handed
// over and the connection is opened once more; a request that was handed over is never repeated, because it may have been
// carried out. After any failure the connection is closed, so that a late answer can never be taken for that of a later
// request. No step of an exchange waits longer than its time-out.
//
// The peer is not trusted: an answer counts only when it is exactly as long as its header says, is of this version, and names
// the type and the identifier of the request.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

inline constexpr uint32_t CONNECTION_TIMEOUT_MS = 5000;

struct Connection {
    std::string socketPath; // of the daemon
    int fd = -1;            // -1 while closed
    uint32_t requestId = 0; // of the last request
};

struct Reply {
    int32_t result = 0; // from the header
    std::vector<uint8_t> payload;
};

// The daemon's socket in a run folder.
std::string connectionSocketPath(const std::string &runFolder);

// Sends one message and waits for its answer. False when there is none; *error then says in one sentence what to do.
[[nodiscard]] bool connectionExchange(Connection *connection, uint16_t type, std::span<const uint8_t> payload,
                                      uint32_t timeoutMs, Reply *reply, std::string *error);

void connectionClose(Connection *connection);
