#pragma once
// libvos: process services. The daemon's message queue, its periodic timer, its clock and its console.
//
// Everything runs on one thread: the one that sits in vosMsgRecv. Every callback that the platform owes the daemon (timer,
// frame, link change, running configuration) is made from inside vosMsgRecv, one at a time, and never from inside any
// other platform call.

#include <cstddef>
#include <cstdint>

// Opaque to the daemon: which caller a received message came from, so that the reply finds its way back. It is filled in
// by vosMsgRecv and handed unchanged to vosMsgResp. It stays valid when the caller goes away; the reply is then dropped.
struct VosMsgReplyCtx {
    uint64_t caller;    // which connection
    uint32_t requestId; // echoed in the reply
    uint16_t type;      // type of the request, echoed in the reply
    uint16_t reserved;  // 0
};
static_assert(sizeof(VosMsgReplyCtx) == 16);

// Header in front of every message, little-endian on the wire and in the buffer. The daemon reads only `type` and
// `payloadLength`; the rest is between the platform and the caller.
struct VosMsgHeader {
    uint16_t type;          // 1 = remote call; 0x8000 and above never reach the daemon
    uint16_t version;       // 1
    uint32_t requestId;     // chosen by the caller, echoed in the reply
    uint16_t flags;         // 0
    uint16_t payloadLength; // bytes behind the header
    int32_t result;         // replies only: what the remote call answered
    uint64_t reserved;      // 0
};
static_assert(sizeof(VosMsgHeader) == 24);
static_assert(offsetof(VosMsgHeader, type) == 0);
static_assert(offsetof(VosMsgHeader, requestId) == 4);
static_assert(offsetof(VosMsgHeader, payloadLength) == 10);
static_assert(offsetof(VosMsgHeader, result) == 12);

inline constexpr uint16_t VOS_MSG_TYPE_REMOTE_CALL = 1;
inline constexpr uint32_t VOS_MSG_MAX = 64500; // header and payload together, bytes

// Address family of vosInetNtop.
inline constexpr int32_t VOS_AF_INET6 = 10;

extern "C" {

// Opens the process's message queue under `name`. `flag` is 255. Does not block.
// 0 and *queueId on success; non-zero when the queue cannot be opened (the name is in use, or rights are missing).
int32_t vosMsgInit(const char *name, uint32_t flag, uint32_t *queueId);

// Waits for the next message of the queue and copies it, header and payload, into buf (at most `size` bytes). Meanwhile
// every callback of the platform is served. `timeoutMs` -1 waits without limit. Blocks.
// Returns the number of bytes (> 0), or a value <= 0 on error. A message is delivered only when its length is exactly
// that of its header and payload. An error that lasts does not make it return in a tight loop: it waits before it says so.
int32_t vosMsgRecv(uint32_t queueId, void *buf, uint32_t size, int32_t timeoutMs, VosMsgReplyCtx *ctx);

// Sends `length` bytes of buf (header and payload) to the caller that `ctx` names, with `result` in the header. The bytes
// are copied; buf is the caller's again on return. Does not block: a caller that does not read loses its reply.
// 0 when the reply was handed over, non-zero otherwise.
int32_t vosMsgResp(uint32_t queueId, int32_t result, void *buf, uint32_t length, VosMsgReplyCtx *ctx);

// Registers the builder of the module's running configuration. The platform calls cb with a NUL-terminated text to append
// to, the number of bytes still free in it (counted down by the callback), flags (bit 0x10000 = this module's commands are
// wanted) and a context of its own. The callback answers 0, or -1 when the text did not fit. 0 on success.
int32_t vosMsgRegisterBldrun(int32_t (*cb)(char *text, uint32_t *space, uint32_t flags, uint32_t context));

// Starts a periodic timer (`mode` 1): cb is called every periodMs milliseconds with the timer's id and `user`, which stays
// the caller's. A tick that is late is made once, not made up for. 0 and *timerId on success.
int32_t vosTimerRegister(uint32_t mode, uint32_t periodMs, int32_t (*cb)(uint32_t timerId, void *user), uint32_t *timerId,
                         void *user);

// Seconds since the machine started, wrapping at 2^32. Makes no system call.
uint32_t vosUpSeconds(void);

// Writes a line to the process's console. printf's rules. Returns the number of characters, negative on failure.
int32_t vosPrintf(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The process's name, "/sbin/snoopd6" style; static storage.
const char *vosProcessGetName(void);

// Copies the machine's host name, always terminated inside `size` bytes. 0 on success; non-zero leaves an empty text.
int32_t vosHostNameGet(char *buf, uint32_t size);

// Text of an address: family 10 is IPv6 (16 bytes, network order), lower case, shortest form. `limit` is the size of buf in
// bytes, NUL included. Returns buf; null when the family is unknown or the text does not fit. Always terminates inside
// limit, and writes nothing when limit is 0.
const char *vosInetNtop(int32_t family, const void *addr, char *buf, uint32_t limit);

} // extern "C"
