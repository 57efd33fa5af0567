// Allocations that fail on order. The linker's --wrap option sends malloc, calloc and realloc of the linked objects here.

#include <cstddef>

#include "tests/platform/recording.h"

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
}

namespace {

bool counting = false;
uint32_t counted = 0;
uint32_t failing = 0;

bool allocationFails() { return counting && ++counted == failing; }

} // namespace

void *__wrap_malloc(size_t size) { return allocationFails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(size_t count, size_t size) { return allocationFails() ? nullptr : __real_calloc(count, size); }
void *__wrap_realloc(void *block, size_t size) { return allocationFails() ? nullptr : __real_realloc(block, size); }

void recordingAllocationsBegin(uint32_t failNth) {
    counting = true;
    counted = 0;
    failing = failNth;
}

uint32_t recordingAllocationsEnd() {
    counting = false;
    return counted;
}
