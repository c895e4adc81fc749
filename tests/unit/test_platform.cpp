// The platform layer (auto-reset event, UDP socket, address parsing) and the record queue. The
// socket test binds a real socket on a loopback address of its own, the port chosen by the system.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "device/record_queue.h"
#include "platform/platform.h"
#include "support/loopback.h"

// Generous guard against a hang; not a timing requirement.
constexpr auto kHangGuard = std::chrono::seconds(30);

TEST(AutoResetEvent, OneSetReleasesExactlyOneWait) {
    kelo::AutoResetEvent ev;
    EXPECT_FALSE(ev.wait(0));
    EXPECT_FALSE(ev.wait(30));
    ev.set();
    ev.set();  // repeated sets do not count
    EXPECT_TRUE(ev.wait(0));
    EXPECT_FALSE(ev.wait(20));
    ev.set();
    ev.reset();  // clears a pending set; resetting a clear event is harmless
    ev.reset();
    EXPECT_FALSE(ev.wait(10));
    // Across threads: a set releases one of two waiters, and the release consumes it.
    std::atomic<int> released{0};
    auto waitOnce = [&] {
        if (ev.wait(500)) ++released;
    };
    std::thread a(waitOnce), b(waitOnce);
    ev.set();
    a.join();
    b.join();
    EXPECT_EQ(released.load(), 1);
    EXPECT_FALSE(ev.wait(0));
}

TEST(ParseIPv4, DottedTextToHostOrderElseAllOnes) {
    EXPECT_EQ(kelo::parseIPv4("127.0.0.5"), 0x7F000005u);
    EXPECT_EQ(kelo::parseIPv4("192.168.1.200"), 0xC0A801C8u);
    EXPECT_EQ(kelo::parseIPv4("0.0.0.0"), 0u);
    for (const char* text : {"", "not an address", "256.1.1.1", "1.2.3.4.5", "127.0.0.x"})
        EXPECT_EQ(kelo::parseIPv4(text), 0xFFFFFFFFu) << text;
    EXPECT_EQ(kelo::parseIPv4(nullptr), 0xFFFFFFFFu);
}

// A receive ends with its time-out (0), and interrupt() ends one in progress and every later one.
// (Datagrams and their senders: every device and emulator test runs over these sockets.)
TEST(UdpSocket, TimeOutAndInterruptEndEveryLaterReceive) {
    const std::uint32_t loopback = kelo::parseIPv4(kelo_testing::nextLoopbackAddress().c_str());
    kelo::UdpSocket s;
    std::uint8_t buf[1500] = {};
    EXPECT_EQ(s.sendTo(loopback, 9, buf, 4), -1);  // not open yet
    EXPECT_EQ(s.receive(buf, 4), -1);
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.setBlocking(true));
    ASSERT_TRUE(s.setReceiveTimeout(50));
    ASSERT_TRUE(s.bind(loopback, 0));
    ASSERT_NE(s.localPort(), 0);
    EXPECT_EQ(s.receive(buf, sizeof buf), 0);  // time-out

    // The receive time-out is far beyond the hang guard: only interrupt() can end the call in time.
    ASSERT_TRUE(s.setReceiveTimeout(600000));
    for (const bool interruptFirst : {false, true}) {
        if (interruptFirst) s.interrupt();
        auto receiver = std::async(std::launch::async, [&] { return s.receive(buf, sizeof buf); });
        if (!interruptFirst) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            s.interrupt();
        }
        const bool returned = receiver.wait_for(kHangGuard) == std::future_status::ready;
        if (!returned) s.sendTo(loopback, s.localPort(), buf, 1);  // unblock it, then fail
        ASSERT_TRUE(returned) << "interrupt() did not end the receive";
        EXPECT_EQ(receiver.get(), 0);
    }
}

TEST(RecordQueue, FifoAcrossWrapsRegrowsAndReserves) {
    constexpr std::size_t N = 280;
    kelo::RecordQueue<N> q;
    std::uint8_t out[N];
    std::memset(out, 0x5C, sizeof out);
    EXPECT_FALSE(q.popFront(out));
    EXPECT_EQ(out[0], 0x5C) << "a failed pop leaves the buffer alone";
    q.reserve(4);
    ASSERT_EQ(q.capacity(), 4u);
    // Record `tag` holds the bytes tag * 31 + i.
    std::uint32_t in = 0, outTag = 0;
    auto push = [&](int n) {
        for (int i = 0; i < n; ++i, ++in) {
            auto& r = q.emplaceBack();
            for (std::size_t b = 0; b < N; ++b)
                r[b] = static_cast<std::uint8_t>(in * 31u + b);
        }
    };
    auto pop = [&](int n) {
        for (int i = 0; i < n; ++i, ++outTag) {
            ASSERT_TRUE(q.popFront(out));
            for (std::size_t b = 0; b < N; ++b)
                ASSERT_EQ(out[b], static_cast<std::uint8_t>(outTag * 31u + b))
                    << "record " << outTag;
        }
    };
    push(3);
    pop(2);
    push(3);  // head at 2: wraps round the end, filling the ring
    EXPECT_EQ(q.capacity(), 4u);
    push(1);  // full and wrapped: regrows
    EXPECT_GT(q.capacity(), 4u);
    pop(3);
    push(2);
    q.reserve(40);  // while wrapped
    EXPECT_EQ(q.capacity(), 40u);
    q.reserve(5);  // never shrinks
    EXPECT_EQ(q.capacity(), 40u);
    EXPECT_EQ(q.size(), in - outTag);
    pop(static_cast<int>(q.size()));
    EXPECT_TRUE(q.empty());
    push(70);
    const std::size_t capacity = q.capacity();
    q.clear();
    EXPECT_TRUE(q.empty());
    EXPECT_EQ(q.capacity(), capacity);
    EXPECT_FALSE(q.popFront(out));
    outTag = in;
    push(2);
    pop(2);
}
