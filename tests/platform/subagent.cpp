// libccd of the recording platform: registration is recorded, index questions are answered from the variable alone.

#include <set>

#include "platform/libccd.h"
#include "tests/platform/recording.h"

namespace {

std::set<std::string> modules;

// Answers of a refusing handler; any distinct non-zero numbers will do.
enum : int32_t {
    NO_SUCH_INSTANCE = 1,
    NO_NEXT_INSTANCE,
    INVALID_RANGE,
    INVALID_LENGTH,
    WRONG_VALUE,
    TOO_BIG,
    COMMIT_FAILED,
    RESOURCE_UNAVAILABLE,
    NOT_WRITABLE,
};

} // namespace

void recordingResetSubagent() { modules.clear(); }

int32_t ccdInit(uint32_t a, uint32_t b) { return recordingCall("ccdInit a=%u b=%u", a, b) ? -1 : 0; }

int32_t ccdModuleRegister(const char *module, const CcdRegEntry *list) {
    uint32_t objects = 0;
    while (list[objects].group != nullptr || list[objects].object != nullptr)
        objects++;
    if (recordingCall("ccdModuleRegister module=\"%s\" objects=%u", module, objects))
        return -1;
    return modules.insert(module).second ? 0 : -1;
}

int32_t ccdModuleDeRegister(const char *module) {
    if (recordingCall("ccdModuleDeRegister module=\"%s\"", module))
        return -1;
    return modules.erase(module) != 0 ? 0 : -1;
}

int32_t ccdScalarValidate(uint32_t kind, CcdVariable *variable) {
    if (recordingQuietCall("ccdScalarValidate kind=%u", kind))
        return -1;
    return kind == CCD_GETNEXT || (variable->indexLength == 1 && variable->index[0] == 0) ? 0 : -1;
}

int32_t ccdNextScalarIndex(CcdVariable *variable) {
    if (recordingQuietCall("ccdNextScalarIndex") || variable->indexLength != 0)
        return -1;
    variable->indexLength = 1;
    variable->index[0] = 0;
    return 0;
}

int32_t ccdNextSimpleIndex(CcdVariable *variable) {
    if (recordingQuietCall("ccdNextSimpleIndex"))
        return -1;
    const uint32_t current = variable->indexLength == 0 ? 0 : variable->index[0];
    if (current == UINT32_MAX)
        return -1;
    for (uint32_t &arc : variable->index)
        arc = 0;
    variable->indexLength = 1;
    variable->index[0] = current + 1;
    return 0;
}

int32_t ccdErrorNoSuchInstance(void) { return NO_SUCH_INSTANCE; }
int32_t ccdErrorNoNextInstance(void) { return NO_NEXT_INSTANCE; }
int32_t ccdErrorInvalidRange(void) { return INVALID_RANGE; }
int32_t ccdErrorInvalidLength(void) { return INVALID_LENGTH; }
int32_t ccdErrorWrongValue(void) { return WRONG_VALUE; }
int32_t ccdErrorTooBig(void) { return TOO_BIG; }
int32_t ccdErrorCommitFailed(void) { return COMMIT_FAILED; }
int32_t ccdErrorResourceUnavail(void) { return RESOURCE_UNAVAILABLE; }

int32_t ccdErrorRequestMap(uint32_t kind) {
    if (kind == CCD_GETNEXT)
        return NO_NEXT_INSTANCE;
    return kind == CCD_GET ? NO_SUCH_INSTANCE : NOT_WRITABLE;
}
