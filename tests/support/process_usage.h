// What the test process holds right now: open file descriptors, threads and resident memory,
// read from /proc/self. The soak tests compare a reading after a warm-up with one at the end.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <ostream>
#include <string>
#include <thread>

namespace kelo_testing {

// AddressSanitizer keeps freed memory in quarantine (up to 256 MB) and so makes the resident
// size grow with every allocation; a resident-memory comparison means nothing in that build.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kResidentMemoryComparable = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kResidentMemoryComparable = false;
#else
inline constexpr bool kResidentMemoryComparable = true;
#endif
#else
inline constexpr bool kResidentMemoryComparable = true;
#endif

struct ProcessUsage {
    int fds = 0;
    int threads = 0;
    long residentKb = 0;
};

inline std::ostream& operator<<(std::ostream& out, const ProcessUsage& u) {
    return out << u.fds << " fds, " << u.threads << " threads, " << u.residentKb << " kB resident";
}

// Entries of a /proc directory, "." and ".." left out; -1 when it cannot be read.
inline int procEntries(const char* directory) {
    DIR* d = ::opendir(directory);
    if (d == nullptr) return -1;
    int n = 0;
    while (const dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..") ++n;
    }
    ::closedir(d);
    return n;
}

inline ProcessUsage processUsage() {
    ProcessUsage u;
    // The listing's own descriptor is among the entries: leave it out.
    u.fds = procEntries("/proc/self/fd") - 1;
    u.threads = procEntries("/proc/self/task");
    long sizePages = 0, residentPages = 0;
    std::ifstream statm("/proc/self/statm");
    statm >> sizePages >> residentPages;
    u.residentKb = residentPages * (::sysconf(_SC_PAGESIZE) / 1024);
    return u;
}

// A thread that has been joined may still be listed under /proc/self/task for a moment, and a
// descriptor closed by a thread that is ending may still be listed: wait (up to `limit`) until
// neither count is above `baseline`, then return the reading. Not a timing check: the reading
// at the limit is what the caller compares.
inline ProcessUsage settledUsage(const ProcessUsage& baseline,
                                 std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    ProcessUsage u = processUsage();
    while ((u.fds > baseline.fds || u.threads > baseline.threads) &&
           std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        u = processUsage();
    }
    return u;
}

// A reading to start from: threads an earlier test left ending (a receive thread waiting out its
// time-out) are given time to go, until two readings 250 ms apart agree (at most `limit`).
inline ProcessUsage steadyUsage(std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    ProcessUsage u = processUsage();
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        const ProcessUsage next = processUsage();
        if (next.fds == u.fds && next.threads == u.threads) return next;
        u = next;
    }
    return u;
}

}  // namespace kelo_testing
