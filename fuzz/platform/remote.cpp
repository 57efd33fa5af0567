// Remote calls of the lean switch: registered, and never made. A target that wants them made links the Linux decoder instead.

#include <cstdarg>
#include <cstdio>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"

extern "C" {

int32_t smdRMWrapInit(uint32_t) { return 0; }

int32_t __smdRmWrapRegister(uint32_t, uint32_t, SmdWrapFn, const char *, const char *) { return 0; }

int32_t smdCfgRmWrapProcess(void *) { return SMD_RM_UNKNOWN; }

void smdDebugPrintf(uint32_t, const char *fmt, ...) {
    if (leanSwitch.debug == 0)
        return;
    char line[256];
    va_list ap;
    va_start(ap, fmt);
    const int32_t length = std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    fuzzCheck(length > 0 && length < static_cast<int32_t>(sizeof line), "a debug line has 1 to 255 characters");
}

} // extern "C"
