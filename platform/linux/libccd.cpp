#include "platform/libccd.h"

#include <cstring>

#include "platform/linux/loop.h"
#include "platform/linux/mibtable.h"
#include "platform/linux/protocol.h"

// The daemon's half of the sub-agent: the module is kept here, and its handlers run when the other half asks over the queue.
// That one is a process of its own, so that an SNMP agent which is slow or gone delays nothing here.

namespace {

char registered[64]; // name of the module; empty while there is none

int32_t answer(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    LinuxMibMsg message;
    if (length != sizeof message || replyMax < sizeof message) {
        return LINUX_RESULT_BAD;
    }
    memcpy(&message, payload, sizeof message);
    if (message.oidLength > LINUX_MIB_OID_MAX) {
        return LINUX_RESULT_BAD;
    }
    const int32_t result = linuxMibRequest(&message);
    memcpy(reply, &message, sizeof message);
    *replyLength = sizeof message;
    return result;
}

} // namespace

extern "C" {

int32_t ccdInit(uint32_t, uint32_t) {
    linuxMsgHandle(LINUX_MSG_MIB, answer);
    return 0;
}

int32_t ccdModuleRegister(const char *module, const CcdRegEntry *list) {
    if (module == nullptr || list == nullptr || strlen(module) >= sizeof registered || module[0] == '\0') {
        return -1;
    }
    if (linuxMibRegister(list) != 0) {
        return -1;
    }
    memcpy(registered, module, strlen(module) + 1);
    return 0;
}

int32_t ccdModuleDeRegister(const char *module) {
    if (module == nullptr || registered[0] == '\0' || strcmp(module, registered) != 0) {
        return -1;
    }
    registered[0] = '\0';
    linuxMibForget();
    return 0;
}

// A scalar has the one instance 0; a get-next may come from anywhere.
int32_t ccdScalarValidate(uint32_t kind, CcdVariable *variable) {
    return kind == CCD_GETNEXT || (variable->indexLength == 1 && variable->index[0] == 0) ? 0 : -1;
}

int32_t ccdNextScalarIndex(CcdVariable *variable) {
    if (variable->indexLength != 0) {
        return -1;
    }
    variable->indexLength = 1;
    variable->index[0] = 0;
    return 0;
}

int32_t ccdNextSimpleIndex(CcdVariable *variable) {
    const uint32_t current = variable->indexLength == 0 ? 0 : variable->index[0];
    if (current == UINT32_MAX) {
        return -1;
    }
    memset(variable->index, 0, sizeof variable->index);
    variable->indexLength = 1;
    variable->index[0] = current + 1;
    return 0;
}

int32_t ccdErrorNoSuchInstance(void) { return LINUX_MIB_NO_SUCH_INSTANCE; }
int32_t ccdErrorNoNextInstance(void) { return LINUX_MIB_NO_NEXT_INSTANCE; }
int32_t ccdErrorInvalidRange(void) { return LINUX_MIB_INVALID_RANGE; }
int32_t ccdErrorInvalidLength(void) { return LINUX_MIB_INVALID_LENGTH; }
int32_t ccdErrorWrongValue(void) { return LINUX_MIB_WRONG_VALUE; }
int32_t ccdErrorTooBig(void) { return LINUX_MIB_TOO_BIG; }
int32_t ccdErrorCommitFailed(void) { return LINUX_MIB_COMMIT_FAILED; }
int32_t ccdErrorResourceUnavail(void) { return LINUX_MIB_RESOURCE_UNAVAILABLE; }

int32_t ccdErrorRequestMap(uint32_t kind) {
    if (kind == CCD_GETNEXT) {
        return LINUX_MIB_NO_NEXT_INSTANCE;
    }
    return kind == CCD_GET ? LINUX_MIB_NO_SUCH_INSTANCE : LINUX_MIB_NOT_WRITABLE;
}

} // extern "C"
