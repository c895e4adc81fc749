// The platform layer (auto-reset event, UDP socket, address parsing) and the record queue.
// Socket tests bind real sockets on loopback, each test on an address of its own in
// 127.0.0.2 .. 127.0.0.19, with ports chosen by the system.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <thread>

#ifndef _WIN32
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include "device/frame_engine.h"
#include "device/record_queue.h"
#include "platform/platform.h"
#include "unit/frame_test_support.h"

using kelo::AutoResetEvent;
using kelo::UdpSocket;
using kelo_test::Bytes;

namespace {

constexpr std::uint32_t loopback(unsigned host) {
    return 0x7F000000u | host;
}

// Opens and binds a socket on 127.0.0.<host> with a system-chosen port.
void openBound(UdpSocket& s, unsigned host, unsigned timeoutMs) {
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.setBlocking(true));
    ASSERT_TRUE(s.setReceiveTimeout(timeoutMs));
    ASSERT_TRUE(s.bind(loopback(host), 0));
    ASSERT_NE(s.localPort(), 0);
}

// Generous guard against a hang; not a timing requirement.
constexpr auto kHangGuard = std::chrono::seconds(30);

#ifndef _WIN32
// Waits (without sleeping) until the thread is blocked in the kernel, so that a wake-up test
// really wakes a blocked call. Returns false if the state cannot be read.
bool waitUntilBlocked(long tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    const auto deadline = std::chrono::steady_clock::now() + kHangGuard;
    while (std::chrono::steady_clock::now() < deadline) {
        std::ifstream in(path);
        if (!in) return false;
        std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto paren = stat.rfind(')');
        if (paren == std::string::npos || paren + 2 >= stat.size()) return false;
        if (stat[paren + 2] == 'S') return true;
        std::this_thread::yield();
    }
    return false;
}
long currentTid() {
    return static_cast<long>(::syscall(SYS_gettid));
}
#endif

}  // namespace

// ---- AutoResetEvent -------------------------------------------------------------------------

TEST(AutoResetEvent, SetBeforeWaitIsConsumedByExactlyOneWait) {
    AutoResetEvent ev;
    ev.set();
    EXPECT_TRUE(ev.wait(0));
    EXPECT_FALSE(ev.wait(0));
    EXPECT_FALSE(ev.wait(20));
}

TEST(AutoResetEvent, RepeatedSetsDoNotCount) {
    AutoResetEvent ev;
    ev.set();
    ev.set();
    ev.set();
    EXPECT_TRUE(ev.wait(10));
    EXPECT_FALSE(ev.wait(10));
}

TEST(AutoResetEvent, TimedWaitWithoutSetReturnsFalse) {
    AutoResetEvent ev;
    EXPECT_FALSE(ev.wait(0));
    EXPECT_FALSE(ev.wait(30));
}

TEST(AutoResetEvent, ResetClearsAPendingSet) {
    AutoResetEvent ev;
    ev.set();
    ev.reset();
    EXPECT_FALSE(ev.wait(10));
    ev.reset();  // resetting a clear event is harmless
    ev.set();
    EXPECT_TRUE(ev.wait(10));
}

TEST(AutoResetEvent, SetFromAnotherThreadReleasesAWaiter) {
    AutoResetEvent ready;
    AutoResetEvent go;
    auto waiter = std::async(std::launch::async, [&] {
        ready.set();
        return go.wait(60000);
    });
    ASSERT_TRUE(ready.wait(60000));
    go.set();
    ASSERT_EQ(waiter.wait_for(kHangGuard), std::future_status::ready);
    EXPECT_TRUE(waiter.get());
    EXPECT_FALSE(go.wait(0)) << "the released wait must have consumed the set";
}

TEST(AutoResetEvent, OneSetReleasesOneOfTwoWaiters) {
    AutoResetEvent ev;
    std::atomic<int> released{0};
    auto waitOnce = [&] {
        if (ev.wait(500)) ++released;
    };
    std::thread a(waitOnce), b(waitOnce);
    ev.set();
    a.join();
    b.join();
    EXPECT_EQ(released.load(), 1);
}

// ---- parseIPv4 ------------------------------------------------------------------------------

TEST(ParseIPv4, DottedTextToHostOrder) {
    EXPECT_EQ(kelo::parseIPv4("127.0.0.5"), 0x7F000005u);
    EXPECT_EQ(kelo::parseIPv4("192.168.1.200"), 0xC0A801C8u);
    EXPECT_EQ(kelo::parseIPv4("0.0.0.0"), 0u);
}

TEST(ParseIPv4, InvalidTextGivesAllOnes) {
    for (const char* text : {"", "not an address", "256.1.1.1", "1.2.3.4.5", "127.0.0.x"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(kelo::parseIPv4(text), 0xFFFFFFFFu);
    }
    EXPECT_EQ(kelo::parseIPv4(nullptr), 0xFFFFFFFFu);
}

// ---- UdpSocket ------------------------------------------------------------------------------

TEST(UdpSocket, ClosedSocketRefusesToSendAndReceive) {
    UdpSocket s;
    EXPECT_FALSE(s.isOpen());
    std::uint8_t buf[4] = {};
    EXPECT_EQ(s.sendTo(loopback(2), 9, buf, sizeof buf), -1);
    EXPECT_EQ(s.receive(buf, sizeof buf), -1);
    EXPECT_EQ(s.localPort(), 0);
}

TEST(UdpSocket, LoopbackSendAndReceive) {
    UdpSocket rx, tx;
    openBound(rx, 2, 5000);
    openBound(tx, 2, 5000);
    ASSERT_TRUE(rx.setReceiveBuffer(4 * 1024 * 1024));

    const Bytes sizes = {1, 8, 200};
    for (std::uint8_t n : sizes) {
        const Bytes msg = kelo_test::patternPayload(n, n);
        ASSERT_EQ(tx.sendTo(loopback(2), rx.localPort(), msg.data(), msg.size()),
                  static_cast<int>(msg.size()));
        std::uint8_t buf[1500];
        std::uint32_t from = 0;
        std::uint16_t fromPort = 0;
        const int got = rx.receive(buf, sizeof buf, &from, &fromPort);
        ASSERT_EQ(got, static_cast<int>(msg.size()));
        EXPECT_EQ(Bytes(buf, buf + got), msg);
        EXPECT_EQ(from, loopback(2));
        EXPECT_EQ(fromPort, tx.localPort());
    }
}

TEST(UdpSocket, FullSizeDatagramArrivesWhole) {
    UdpSocket rx, tx;
    openBound(rx, 3, 5000);
    openBound(tx, 3, 5000);
    const Bytes msg = kelo_test::patternPayload(kelo::FrameEngine::kDatagramSize, 77);
    ASSERT_EQ(tx.sendTo(loopback(3), rx.localPort(), msg.data(), msg.size()),
              static_cast<int>(msg.size()));
    std::uint8_t buf[1500];
    const int got = rx.receive(buf, sizeof buf);
    ASSERT_EQ(got, static_cast<int>(msg.size()));
    EXPECT_EQ(Bytes(buf, buf + got), msg);
}

TEST(UdpSocket, ReceiveTimeOutReturnsZero) {
    UdpSocket rx;
    openBound(rx, 4, 50);
    std::uint8_t buf[16];
    EXPECT_EQ(rx.receive(buf, sizeof buf), 0);
    EXPECT_EQ(rx.receive(buf, sizeof buf), 0);
}

TEST(UdpSocket, InterruptWakesABlockedReceive) {
    UdpSocket rx;
    // The receive time-out is far beyond the hang guard: only interrupt() can end the call in time.
    openBound(rx, 5, 600000);
    std::atomic<long> tid{0};
    auto receiver = std::async(std::launch::async, [&] {
#ifndef _WIN32
        tid = currentTid();
#endif
        std::uint8_t buf[64];
        return rx.receive(buf, sizeof buf);
    });
#ifndef _WIN32
    while (tid.load() == 0)
        std::this_thread::yield();
    // Best effort: when the thread state is readable, interrupt only once it is blocked.
    RecordProperty("receiverSeenBlocked", waitUntilBlocked(tid.load()) ? "yes" : "unknown");
#endif
    rx.interrupt();
    const bool returned = receiver.wait_for(kHangGuard) == std::future_status::ready;
    if (!returned) {
        // Unblock the thread so the test can end, then fail.
        UdpSocket poke;
        poke.open();
        const std::uint8_t b = 0;
        poke.sendTo(loopback(5), rx.localPort(), &b, 1);
    }
    ASSERT_TRUE(returned) << "interrupt() did not wake the blocked receive";
    EXPECT_EQ(receiver.get(), 0);
}

TEST(UdpSocket, ReceiveAfterInterruptReturnsAtOnce) {
    UdpSocket rx;
    openBound(rx, 6, 600000);
    rx.interrupt();
    auto receiver = std::async(std::launch::async, [&] {
        std::uint8_t buf[64];
        return rx.receive(buf, sizeof buf);
    });
    const bool returned = receiver.wait_for(kHangGuard) == std::future_status::ready;
    if (!returned) {
        UdpSocket poke;
        poke.open();
        const std::uint8_t b = 0;
        poke.sendTo(loopback(6), rx.localPort(), &b, 1);
    }
    ASSERT_TRUE(returned);
    EXPECT_EQ(receiver.get(), 0);
}

namespace {
class SocketSink : public kelo::DatagramSink {
  public:
    SocketSink(UdpSocket& s, std::uint32_t address, std::uint16_t port)
        : socket_(s), address_(address), port_(port) {}
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        socket_.sendTo(address_, port_, data, length);
        ++sent;
    }
    int sent = 0;

  private:
    UdpSocket& socket_;
    std::uint32_t address_;
    std::uint16_t port_;
};
}  // namespace

TEST(UdpSocket, FrameEngineOverLoopback) {
    UdpSocket rx, tx;
    openBound(rx, 7, 5000);
    openBound(tx, 7, 5000);
    ASSERT_TRUE(rx.setReceiveBuffer(4 * 1024 * 1024));
    SocketSink sink(tx, loopback(7), rx.localPort());
    std::mutex sendLock;
    kelo_test::Recorder unused;
    kelo::FrameEngine host(1, &unused, &sink, sendLock);

    const Bytes payload = kelo_test::patternPayload(2048, 21);
    ASSERT_TRUE(host.send(0x73, payload.data(), 2048));
    ASSERT_TRUE(host.send(0x74, nullptr, 0));
    ASSERT_EQ(sink.sent, 3);

    kelo_test::EngineRig device(0);
    device.engine->addGeneralHandler(kelo_test::recordAll);
    std::uint8_t buf[1500];
    for (int i = 0; i < sink.sent; ++i) {
        const int got = rx.receive(buf, sizeof buf);
        ASSERT_GT(got, 0) << "datagram " << i;
        ASSERT_LE(got, 1400);
        device.engine->feed(buf, static_cast<std::size_t>(got));
    }
    ASSERT_EQ(device.recorder.calls.size(), 2u);
    EXPECT_EQ(device.recorder.calls[0].sequence, 0x8000);
    EXPECT_EQ(device.recorder.calls[0].payload, payload);
    EXPECT_EQ(device.recorder.calls[1].sequence, 0x8001);
    EXPECT_EQ(device.recorder.calls[1].command, 0x74);
}

// ---- RecordQueue ----------------------------------------------------------------------------

namespace {
template <std::size_t N>
void fill(typename kelo::RecordQueue<N>::Record& r, std::uint32_t tag) {
    for (std::size_t i = 0; i < N; ++i)
        r[i] = static_cast<std::uint8_t>(tag * 31u + i);
}
template <std::size_t N>
bool holds(const std::uint8_t* r, std::uint32_t tag) {
    for (std::size_t i = 0; i < N; ++i)
        if (r[i] != static_cast<std::uint8_t>(tag * 31u + i)) return false;
    return true;
}
}  // namespace

TEST(RecordQueue, StartsEmptyAndPopFailsWhenEmpty) {
    kelo::RecordQueue<88> q;
    EXPECT_TRUE(q.empty());
    EXPECT_EQ(q.size(), 0u);
    std::uint8_t out[88];
    std::memset(out, 0x5C, sizeof out);
    EXPECT_FALSE(q.popFront(out));
    EXPECT_EQ(out[0], 0x5C) << "a failed pop must leave the buffer alone";
}

TEST(RecordQueue, FifoAcrossAWrapAndARegrow) {
    constexpr std::size_t N = 280;
    kelo::RecordQueue<N> q;
    q.reserve(4);
    ASSERT_EQ(q.capacity(), 4u);
    std::uint32_t nextIn = 0, nextOut = 0;
    std::uint8_t out[N];

    for (int i = 0; i < 3; ++i)
        fill<N>(q.emplaceBack(), nextIn++);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(q.popFront(out));
        EXPECT_TRUE(holds<N>(out, nextOut++));
    }
    // Head at 2: the next three wrap round the end of the ring, filling it.
    for (int i = 0; i < 3; ++i)
        fill<N>(q.emplaceBack(), nextIn++);
    EXPECT_EQ(q.size(), 4u);
    EXPECT_EQ(q.capacity(), 4u);
    // Full and wrapped: this one regrows the ring.
    fill<N>(q.emplaceBack(), nextIn++);
    EXPECT_GT(q.capacity(), 4u);
    EXPECT_EQ(q.size(), 5u);
    for (int i = 0; i < 3; ++i)
        fill<N>(q.emplaceBack(), nextIn++);
    while (q.popFront(out))
        EXPECT_TRUE(holds<N>(out, nextOut++)) << "record " << nextOut - 1;
    EXPECT_EQ(nextOut, nextIn);
    EXPECT_TRUE(q.empty());
}

TEST(RecordQueue, ReserveWhileWrappedKeepsOrder) {
    constexpr std::size_t N = 16;
    kelo::RecordQueue<N> q;
    q.reserve(3);
    std::uint8_t out[N];
    std::uint32_t nextIn = 0, nextOut = 0;
    for (int i = 0; i < 3; ++i)
        fill<N>(q.emplaceBack(), nextIn++);
    ASSERT_TRUE(q.popFront(out));
    EXPECT_TRUE(holds<N>(out, nextOut++));
    fill<N>(q.emplaceBack(), nextIn++);  // wraps to slot 0
    q.reserve(10);
    EXPECT_EQ(q.capacity(), 10u);
    q.reserve(5);  // never shrinks
    EXPECT_EQ(q.capacity(), 10u);
    for (int i = 0; i < 6; ++i)
        fill<N>(q.emplaceBack(), nextIn++);
    while (q.popFront(out))
        EXPECT_TRUE(holds<N>(out, nextOut++));
    EXPECT_EQ(nextOut, nextIn);
}

TEST(RecordQueue, ManyCyclesOfMixedPushAndPop) {
    constexpr std::size_t N = 8;
    kelo::RecordQueue<N> q;
    std::uint8_t out[N];
    std::uint32_t nextIn = 0, nextOut = 0;
    for (int round = 0; round < 50; ++round) {
        for (int i = 0; i < round % 7 + 3; ++i)
            fill<N>(q.emplaceBack(), nextIn++);
        for (int i = 0; i < round % 5 + 1 && q.popFront(out); ++i)
            ASSERT_TRUE(holds<N>(out, nextOut++));
    }
    EXPECT_EQ(q.size(), nextIn - nextOut);
    while (q.popFront(out))
        ASSERT_TRUE(holds<N>(out, nextOut++));
    EXPECT_EQ(nextOut, nextIn);
}

TEST(RecordQueue, ClearEmptiesAndTheQueueStaysUsable) {
    constexpr std::size_t N = 88;
    kelo::RecordQueue<N> q;
    for (std::uint32_t i = 0; i < 70; ++i)
        fill<N>(q.emplaceBack(), i);
    const std::size_t capacity = q.capacity();
    q.clear();
    EXPECT_TRUE(q.empty());
    EXPECT_EQ(q.size(), 0u);
    EXPECT_EQ(q.capacity(), capacity);
    std::uint8_t out[N];
    EXPECT_FALSE(q.popFront(out));
    fill<N>(q.emplaceBack(), 500);
    fill<N>(q.emplaceBack(), 501);
    ASSERT_TRUE(q.popFront(out));
    EXPECT_TRUE(holds<N>(out, 500));
    ASSERT_TRUE(q.popFront(out));
    EXPECT_TRUE(holds<N>(out, 501));
    EXPECT_FALSE(q.popFront(out));
}
