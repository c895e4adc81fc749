#ifndef _WIN32
#include "platform/platform.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace kelo {

AutoResetEvent::AutoResetEvent() = default;
AutoResetEvent::~AutoResetEvent() = default;

void AutoResetEvent::set() {
    {
        // Set under the lock so a waiter between its check and its sleep cannot miss it.
        std::lock_guard<std::mutex> g(mutex_);
        signalled_.store(true, std::memory_order_release);
    }
    cv_.notify_one();
}

void AutoResetEvent::reset() {
    signalled_.store(false, std::memory_order_release);
}

bool AutoResetEvent::trySpin(unsigned int spinMicros) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(spinMicros);
    for (unsigned i = 0;; ++i) {
        if (signalled_.load(std::memory_order_relaxed) &&
            signalled_.exchange(false, std::memory_order_acquire))
            return true;
        if ((i & 63) == 63) {
            if (std::chrono::steady_clock::now() >= until) return false;
            std::this_thread::yield();
        }
    }
}

bool AutoResetEvent::wait(unsigned int timeoutMs, unsigned int spinMicros) {
    if (signalled_.exchange(false, std::memory_order_acquire)) return true;
    if (spinMicros != 0 && trySpin(spinMicros)) return true;
    std::unique_lock<std::mutex> g(mutex_);
    return cv_.wait_for(g, std::chrono::milliseconds(timeoutMs),
                        [this] { return signalled_.exchange(false, std::memory_order_acquire); });
}

bool netStartup() {
    return true;
}

std::uint64_t monotonicMs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1000u +
           static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}

void sleepMs(unsigned int ms) {
    timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

UdpSocket::UdpSocket() = default;
UdpSocket::~UdpSocket() {
    close();
}

bool UdpSocket::open() {
    close();
    fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fd_ < 0) return false;
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        close();
        return false;
    }
    wakeRead_ = pipeFds[0];
    wakeWrite_ = pipeFds[1];
    ::fcntl(wakeRead_, F_SETFL, O_NONBLOCK);
    ::fcntl(wakeWrite_, F_SETFL, O_NONBLOCK);
    ::fcntl(fd_, F_SETFD, FD_CLOEXEC);
    ::fcntl(wakeRead_, F_SETFD, FD_CLOEXEC);
    ::fcntl(wakeWrite_, F_SETFD, FD_CLOEXEC);
    return true;
}

bool UdpSocket::isOpen() const {
    return fd_ >= 0;
}

void UdpSocket::close() {
    for (int* fd : {&fd_, &wakeRead_, &wakeWrite_}) {
        if (*fd >= 0) ::close(*fd);
        *fd = -1;
    }
}

bool UdpSocket::setReceiveBuffer(int bytes) {
    return ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) == 0;
}

bool UdpSocket::setReceiveTimeout(unsigned int ms) {
    if (fd_ < 0) return false;
    timeval tv{static_cast<time_t>(ms / 1000), static_cast<suseconds_t>((ms % 1000) * 1000)};
    if (::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) return false;
    timeoutMs_ = ms;
    return true;
}

bool UdpSocket::setBlocking(bool blocking) {
    if (fd_ < 0) return false;
    int flags = ::fcntl(fd_, F_GETFL, 0);
    if (flags < 0) return false;
    flags = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
    return ::fcntl(fd_, F_SETFL, flags) == 0;
}

// No SO_REUSEADDR: on Linux it lets two UDP sockets share one address and port, so a second
// binder would succeed and silently split the traffic instead of failing.
bool UdpSocket::bind(std::uint32_t address, std::uint16_t port) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(address);
    return ::bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
}

std::uint16_t UdpSocket::localPort() const {
    sockaddr_in sa{};
    socklen_t len = sizeof sa;
    if (fd_ < 0 || ::getsockname(fd_, reinterpret_cast<sockaddr*>(&sa), &len) != 0) return 0;
    return ntohs(sa.sin_port);
}

int UdpSocket::sendTo(std::uint32_t address, std::uint16_t port, const void* data,
                      std::size_t length) {
    if (fd_ < 0) return -1;
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(address);
    return static_cast<int>(
        ::sendto(fd_, data, length, MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&sa), sizeof sa));
}

int UdpSocket::receive(void* buffer, std::size_t capacity, std::uint32_t* fromAddress,
                       std::uint16_t* fromPort) {
    if (fd_ < 0) return -1;
    // poll() on the socket and the wake-up pipe, so that interrupt() ends the wait at once;
    // a plain recv() on an unconnected UDP socket cannot be woken by shutdown() on Linux.
    pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
    int timeout = timeoutMs_ == 0 ? -1 : static_cast<int>(timeoutMs_);
    int n = ::poll(fds, 2, timeout);
    if (n < 0) return errno == EINTR ? 0 : -1;
    if (n == 0 || (fds[1].revents & POLLIN)) return 0;
    sockaddr_in sa{};
    socklen_t len = sizeof sa;
    ssize_t got =
        ::recvfrom(fd_, buffer, capacity, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sa), &len);
    if (got < 0) return (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) ? 0 : -1;
    if (fromAddress) *fromAddress = ntohl(sa.sin_addr.s_addr);
    if (fromPort) *fromPort = ntohs(sa.sin_port);
    return static_cast<int>(got);
}

void UdpSocket::interrupt() {
    if (wakeWrite_ >= 0) {
        char b = 1;
        ssize_t r = ::write(wakeWrite_, &b, 1);
        (void)r;
    }
}

std::uint32_t parseIPv4(const char* text) {
    if (!text) return 0xFFFFFFFFu;
    return ntohl(::inet_addr(text));
}

}  // namespace kelo
#endif
