// Baud rates outside the termios speed constants (14400, 56000, ...), where
// the kernel takes any rate; elsewhere only the constants exist.
#pragma once

#include <cstdint>
#include <optional>

namespace kavo::platform::posix {

// Sets both speeds of the open terminal `fd` to `rate`. false with errno
// set when the system cannot take an arbitrary rate.
bool SetCustomBaudRate(int fd, uint32_t rate);

// The output speed the kernel holds for `fd` in bits per second, whether it
// was set from a constant or as a number; nullopt where it cannot tell.
std::optional<uint32_t> ReadBaudRate(int fd);

}  // namespace kavo::platform::posix
