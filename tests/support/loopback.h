// Loopback addresses for test emulators: each gets its own address of 127.0.0.0/8 and so the
// device's fixed UDP port. Programs running side by side start at their own place in the range
// (from the process id); an address whose port is already bound is skipped.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace kelo_testing {

// The next candidate address, never the same twice in one process: 127.1.0.1 to 127.16.255.254
// (hosts .0 and .255 of each /24 left out).
inline std::string nextLoopbackAddress() {
    constexpr std::uint32_t kHostsPerBlock = 254, kBlocks = 16 * 256;
#ifdef _WIN32
    const std::uint32_t pid = static_cast<std::uint32_t>(_getpid());
#else
    const std::uint32_t pid = static_cast<std::uint32_t>(getpid());
#endif
    static std::atomic<std::uint32_t> next{(pid % kBlocks) * kHostsPerBlock};
    const std::uint32_t n = next.fetch_add(1) % (kBlocks * kHostsPerBlock);
    const std::uint32_t block = n / kHostsPerBlock;
    return "127." + std::to_string(1 + block / 256) + "." + std::to_string(block % 256) + "." +
           std::to_string(1 + n % kHostsPerBlock);
}

// Calls bind(address) with successive addresses until it returns true; returns that address, or
// "" when none of `attempts` did.
template <typename Bind>
std::string bindFreeLoopback(Bind&& bind, int attempts = 100) {
    for (int i = 0; i < attempts; ++i) {
        const std::string address = nextLoopbackAddress();
        if (bind(address)) return address;
    }
    return std::string();
}

}  // namespace kelo_testing
