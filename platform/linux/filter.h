#pragma once
// The filter in front of a port's socket: a classic BPF program that the kernel runs on every frame of the port.
//
// It must pass at least all that the trap may hold back, or such a frame would vanish uncounted, and as little else as
// possible, since every frame passed costs a copy. What it sees is the frame without its outermost tag.

#include <cstdint>
#include <span>

// Sets the filter of a socket, in place of the one it had, for these UDP ports (at most LINUX_FILTER_PORTS_MAX; none: the
// socket gets nothing). 0, or a negative errno.
[[nodiscard]] int32_t linuxFilterAttach(int fd, std::span<const uint16_t> ports);

inline constexpr uint32_t LINUX_FILTER_PORTS_MAX = 8;
