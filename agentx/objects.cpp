#include "agentx/objects.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shell/connection.h"

namespace {

constexpr uint32_t PATIENCE_MS = 2000;

Connection connection;
bool silent; // the last request had no answer

int32_t noAnswer(const std::string &why) {
    if (!silent) {
        fprintf(stderr, "snoopd6-agentx: %s\n", why.c_str());
    }
    silent = true;
    return OBJECTS_UNREACHABLE;
}

} // namespace

void objectsInit() {
    const char *folder = getenv("SNOOPD6_RUN");
    connection.socketPath = connectionSocketPath(folder != nullptr && folder[0] != '\0' ? folder : SNOOPD6_RUN_DEFAULT);
}

int32_t objectsAsk(LinuxMibMsg *message) {
    Reply reply;
    std::string error;
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(message);
    if (!connectionExchange(&connection, LINUX_MSG_MIB, {bytes, sizeof *message}, PATIENCE_MS, &reply, &error)) {
        return noAnswer(error);
    }
    if (reply.payload.size() != sizeof *message) {
        return noAnswer("the daemon speaks no SNMP, or is of another version");
    }
    memcpy(message, reply.payload.data(), sizeof *message);
    if (message->oidLength > LINUX_MIB_OID_MAX || message->length >= sizeof message->octets) {
        return noAnswer("the daemon's answer makes no sense");
    }
    if (silent) {
        fprintf(stderr, "snoopd6-agentx: the daemon answers\n");
    }
    silent = false;
    return reply.result;
}
