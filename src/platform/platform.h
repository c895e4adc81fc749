// The only OS-specific code of the library: an auto-reset event, a UDP socket and a sleep.
// POSIX is the tested branch; the _WIN32 branch uses Winsock 2 and CreateEventW.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace kelo {

// Critical section. The device object holds six of them; none is taken recursively.
using Lock = std::mutex;
using LockGuard = std::lock_guard<std::mutex>;

// Auto-reset event: set() releases exactly one wait (or the next one if nobody waits);
// a successful wait resets it.
class AutoResetEvent {
  public:
    AutoResetEvent();
    ~AutoResetEvent();
    AutoResetEvent(const AutoResetEvent&) = delete;
    AutoResetEvent& operator=(const AutoResetEvent&) = delete;

    void set();
    void reset();
    // true when signalled, false when timeoutMs elapsed first. With spinMicros the waiter first
    // polls the event for up to that long before it sleeps: a reply that comes back within a few
    // tens of microseconds then costs no thread wake-up.
    bool wait(unsigned int timeoutMs, unsigned int spinMicros = 0);

  private:
#ifdef _WIN32
    void* handle_;
#else
    bool trySpin(unsigned int spinMicros);
    std::mutex mutex_;
    std::condition_variable cv_;
    std::atomic<bool> signalled_{false};
#endif
};

// Process-wide socket start-up (WSAStartup 2.2 on Windows, nothing elsewhere).
bool netStartup();

// Milliseconds of a monotonic clock, for measuring waits.
std::uint64_t monotonicMs();
void sleepMs(unsigned int ms);

// An IPv4 UDP socket. Addresses are host-order 32-bit values; ports host order.
class UdpSocket {
  public:
    UdpSocket();
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    bool open();
    bool isOpen() const;
    void close();

    bool setReceiveBuffer(int bytes);
    bool setReceiveTimeout(unsigned int ms);
    bool setBlocking(bool blocking);
    bool bind(std::uint32_t address, std::uint16_t port);
    // Local port the system assigned (after a bind or the first send), 0 if unknown.
    std::uint16_t localPort() const;

    // Returns the bytes sent or -1.
    int sendTo(std::uint32_t address, std::uint16_t port, const void* data, std::size_t length);
    // Waits up to the receive time-out. Returns the byte count, 0 on time-out or interrupt,
    // -1 on error. fromAddress/fromPort may be null.
    int receive(void* buffer, std::size_t capacity, std::uint32_t* fromAddress = nullptr,
                std::uint16_t* fromPort = nullptr);
    // Wakes a thread blocked in receive() at once; later receives return at once too.
    void interrupt();

  private:
#ifdef _WIN32
    std::uintptr_t sock_;
#else
    int fd_ = -1;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
#endif
    unsigned int timeoutMs_ = 0;
};

// Dotted IPv4 text to a host-order address the way inet_addr reads it; 0xFFFFFFFF when invalid.
std::uint32_t parseIPv4(const char* text);

}  // namespace kelo
