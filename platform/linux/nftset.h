#pragma once
// Changes of set elements in the kernel's filter table. A batch is put together and committed as a whole: all of it comes into
// force at one moment, or nothing does. Takes some microseconds whatever the set holds, where a change through the rule
// language takes some hundred.
//
// One batch at a time: it lies in a static buffer.

#include <cstdint>
#include <span>

inline constexpr const char *LINUX_NFT_TABLE = "snoopd6"; // in family bridge

// What an element of a verdict map says: none is that of a set's element, and back goes on behind the jump to the chain.
enum class LinuxNftVerdict : uint8_t { none, accept, back };

// Opens the socket. 0, or a negative errno.
[[nodiscard]] int32_t linuxNftOpen();
void linuxNftClose();

void linuxNftBegin();
// Queue a change. Adding what is there is no error, removing what is absent fails the commit, dropping it does not.
void linuxNftAdd(const char *set, std::span<const uint8_t> key);
// The same for an element of a map, which has a verdict. What is there with another verdict is refused.
void linuxNftMap(const char *map, std::span<const uint8_t> key, LinuxNftVerdict verdict);
void linuxNftRemove(const char *set, std::span<const uint8_t> key);
void linuxNftDrop(const char *set, std::span<const uint8_t> key);
void linuxNftEmpty(const char *set);
// 0, or a negative errno: of the first change that the kernel refused, or -ENOBUFS when the batch was too long for the buffer.
// Without changes the kernel is not asked.
[[nodiscard]] int32_t linuxNftCommit();

// A change that may be longer than one batch: it is committed whenever so many steps are queued.
struct LinuxNftSteps {
    uint32_t queued = 0;
    int32_t error = 0; // the first refusal
};
void linuxNftStep(LinuxNftSteps *steps); // behind the changes of each step; the first batch is open
[[nodiscard]] int32_t linuxNftLastStep(const LinuxNftSteps &steps);

struct LinuxNftElement {
    uint64_t packets; // of its counter, 0 without one
    LinuxNftVerdict verdict;
};

// Asks the kernel for one element. 0 and, unless null, what it has; -ENOENT when it is not there, or another negative errno.
[[nodiscard]] int32_t linuxNftGet(const char *set, std::span<const uint8_t> key, LinuxNftElement *element);
