// Shared helpers for the protocol-engine tests: a bit-by-bit CRC-16/ARC and frame builder that do
// not share code with the engine, a sink that keeps every datagram, and an engine rig whose
// receiver records every frame no handler took.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/frame_engine.h"

namespace kelo_test {

using Bytes = std::vector<std::uint8_t>;

// CRC-16/ARC computed one bit at a time, straight from the polynomial.
inline std::uint16_t naiveCrc16Arc(const std::uint8_t* data, std::size_t length,
                                   std::uint16_t crc = 0) {
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<std::uint16_t>((crc & 1u) ? (crc >> 1) ^ 0xA001u : crc >> 1);
    }
    return crc;
}

// The bytes of one frame as they must appear on the wire. `length` overrides the announced
// length (to build oversize or inconsistent frames); by default it is the payload size.
inline Bytes referenceFrame(std::uint16_t sequence, std::uint8_t command, const Bytes& payload,
                            long length = -1) {
    const auto announced = static_cast<std::uint16_t>(length < 0 ? payload.size() : length);
    Bytes out{0xAA,
              static_cast<std::uint8_t>(sequence >> 8),
              static_cast<std::uint8_t>(sequence),
              static_cast<std::uint8_t>(announced >> 8),
              static_cast<std::uint8_t>(announced),
              command};
    auto putCrc = [&out](const std::uint8_t* p, std::size_t n) {
        const std::uint16_t crc = naiveCrc16Arc(p, n);
        out.push_back(static_cast<std::uint8_t>(crc >> 8));
        out.push_back(static_cast<std::uint8_t>(crc));
    };
    putCrc(out.data(), 6);
    if (!payload.empty()) {
        out.insert(out.end(), payload.begin(), payload.end());
        putCrc(payload.data(), payload.size());
    }
    return out;
}

// Avoids 0xAA so that a payload never looks like a frame start unless a test wants one.
inline Bytes patternPayload(std::size_t size, std::uint8_t salt = 0) {
    Bytes p(size);
    for (std::size_t i = 0; i < size; ++i) {
        auto b = static_cast<std::uint8_t>(i * 7u + salt);
        p[i] = b == 0xAA ? 0x55 : b;
    }
    return p;
}

inline Bytes concat(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const auto& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

struct VectorSink : kelo::DatagramSink {
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        datagrams.emplace_back(data, data + length);
    }
    std::vector<Bytes> datagrams;
};

struct ReceivedFrame {
    std::string handler;
    std::uint16_t sequence = 0;
    std::uint8_t command = 0;
    bool payloadNull = true;
    Bytes payload;
    std::uintptr_t context[2] = {0, 0};
};

// What the handlers and the receiver saw, in call order.
struct Recorder : kelo::FrameReceiver {
    std::vector<ReceivedFrame> calls;
    void record(const std::string& handler, const kelo::FrameMessage& m) {
        ReceivedFrame f{
            handler, m.sequence, m.command, m.payload == nullptr, {}, {m.context[0], m.context[1]}};
        if (m.payload) f.payload.assign(m.payload, m.payload + m.length);
        calls.push_back(f);
    }
    void onFrame(const kelo::FrameMessage& m) override { record("receiver", m); }
};

// One engine with its own lock, sink and recording receiver.
struct EngineRig {
    explicit EngineRig(std::uint32_t role)
        : engine(std::make_unique<kelo::FrameEngine>(role, &sink, lock, &recorder)) {}
    void feed(const Bytes& bytes) { engine->feed(bytes.data(), bytes.size()); }
    void ticks(int n) {
        for (int i = 0; i < n; ++i)
            engine->tick();
    }
    std::size_t frames() const { return recorder.calls.size(); }

    std::mutex lock;
    VectorSink sink;
    Recorder recorder;
    std::unique_ptr<kelo::FrameEngine> engine;
};

}  // namespace kelo_test
