#ifdef _WIN32
#include "platform/platform.h"

// Winsock 2 first: <windows.h> would otherwise pull in the old winsock.h.
// clang-format off
#include <winsock2.h>
#include <windows.h>
// clang-format on

namespace kelo {

AutoResetEvent::AutoResetEvent() : handle_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}
AutoResetEvent::~AutoResetEvent() {
    CloseHandle(static_cast<HANDLE>(handle_));
}
void AutoResetEvent::set() {
    SetEvent(static_cast<HANDLE>(handle_));
}
void AutoResetEvent::reset() {
    ResetEvent(static_cast<HANDLE>(handle_));
}
bool AutoResetEvent::wait(unsigned int timeoutMs, unsigned int spinMicros) {
    HANDLE h = static_cast<HANDLE>(handle_);
    if (spinMicros != 0) {
        const ULONGLONG until = GetTickCount64() + (spinMicros + 999) / 1000;
        do {
            if (WaitForSingleObject(h, 0) == WAIT_OBJECT_0) return true;
            YieldProcessor();
        } while (GetTickCount64() < until);
    }
    return WaitForSingleObject(h, timeoutMs) == WAIT_OBJECT_0;
}

bool netStartup() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

std::uint64_t monotonicMs() {
    return GetTickCount64();
}
void sleepMs(unsigned int ms) {
    Sleep(ms);
}

UdpSocket::UdpSocket() : sock_(INVALID_SOCKET) {}
UdpSocket::~UdpSocket() {
    close();
}

bool UdpSocket::open() {
    close();
    sock_ = ::socket(AF_INET, SOCK_DGRAM, 0);
    return sock_ != INVALID_SOCKET;
}

bool UdpSocket::isOpen() const {
    return sock_ != INVALID_SOCKET;
}

void UdpSocket::close() {
    if (sock_ != INVALID_SOCKET) closesocket(static_cast<SOCKET>(sock_));
    sock_ = INVALID_SOCKET;
}

bool UdpSocket::setReceiveBuffer(int bytes) {
    return setsockopt(static_cast<SOCKET>(sock_), SOL_SOCKET, SO_RCVBUF,
                      reinterpret_cast<const char*>(&bytes), sizeof bytes) == 0;
}

bool UdpSocket::setReceiveTimeout(unsigned int ms) {
    DWORD value = ms;
    timeoutMs_ = ms;
    return setsockopt(static_cast<SOCKET>(sock_), SOL_SOCKET, SO_RCVTIMEO,
                      reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

bool UdpSocket::setBlocking(bool blocking) {
    u_long mode = blocking ? 0 : 1;
    return ioctlsocket(static_cast<SOCKET>(sock_), FIONBIO, &mode) == 0;
}

bool UdpSocket::bind(std::uint32_t address, std::uint16_t port) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(address);
    return ::bind(static_cast<SOCKET>(sock_), reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
}

std::uint16_t UdpSocket::localPort() const {
    sockaddr_in sa{};
    int len = sizeof sa;
    if (getsockname(static_cast<SOCKET>(sock_), reinterpret_cast<sockaddr*>(&sa), &len) != 0)
        return 0;
    return ntohs(sa.sin_port);
}

int UdpSocket::sendTo(std::uint32_t address, std::uint16_t port, const void* data,
                      std::size_t length) {
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(port);
    sa.sin_addr.s_addr = htonl(address);
    return ::sendto(static_cast<SOCKET>(sock_), static_cast<const char*>(data),
                    static_cast<int>(length), 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
}

int UdpSocket::receive(void* buffer, std::size_t capacity, std::uint32_t* fromAddress,
                       std::uint16_t* fromPort) {
    sockaddr_in sa{};
    int len = sizeof sa;
    int got = recvfrom(static_cast<SOCKET>(sock_), static_cast<char*>(buffer),
                       static_cast<int>(capacity), 0, reinterpret_cast<sockaddr*>(&sa), &len);
    if (got == SOCKET_ERROR) {
        int err = WSAGetLastError();
        // A time-out and an ICMP port-unreachable report are not errors for a UDP reader.
        return (err == WSAETIMEDOUT || err == WSAECONNRESET || err == WSAEMSGSIZE) ? 0 : -1;
    }
    if (fromAddress) *fromAddress = ntohl(sa.sin_addr.s_addr);
    if (fromPort) *fromPort = ntohs(sa.sin_port);
    return got;
}

// The receive time-out bounds a blocked reader to one period; nothing more is needed here.
void UdpSocket::interrupt() {}

std::uint32_t parseIPv4(const char* text) {
    if (!text) return 0xFFFFFFFFu;
    return ntohl(inet_addr(text));
}

}  // namespace kelo
#endif
