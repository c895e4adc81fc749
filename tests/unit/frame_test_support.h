// Shared helpers for the protocol-engine tests: a bit-by-bit CRC-16/ARC and frame builder that do
// not share code with the engine, a sink that keeps every datagram, and an engine rig whose
// owner pointer leads handlers to a recorder.
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
            crc = (crc & 1u) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001u)
                             : static_cast<std::uint16_t>(crc >> 1);
    }
    return crc;
}
inline std::uint16_t naiveCrc16Arc(const Bytes& data) {
    return naiveCrc16Arc(data.data(), data.size());
}

inline void putBE16(Bytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

// The bytes of one frame as they must appear on the wire. `length` overrides the announced
// length (to build oversize or inconsistent frames); by default it is the payload size.
inline Bytes referenceFrame(std::uint16_t sequence, std::uint8_t command, const Bytes& payload,
                            long length = -1) {
    const auto announced = static_cast<std::uint16_t>(length < 0 ? payload.size() : length);
    Bytes out{0xAA};
    putBE16(out, sequence);
    putBE16(out, announced);
    out.push_back(command);
    putBE16(out, naiveCrc16Arc(out));
    if (!payload.empty()) {
        out.insert(out.end(), payload.begin(), payload.end());
        putBE16(out, naiveCrc16Arc(payload));
    }
    return out;
}

inline Bytes patternPayload(std::size_t size, std::uint8_t salt = 0) {
    Bytes p(size);
    // Avoid 0xAA so that a payload never looks like a frame start unless a test wants one.
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

class VectorSink : public kelo::DatagramSink {
  public:
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        datagrams.emplace_back(data, data + length);
    }
    std::vector<std::size_t> sizes() const {
        std::vector<std::size_t> s;
        for (const auto& d : datagrams)
            s.push_back(d.size());
        return s;
    }
    Bytes joined() const { return concat(datagrams); }
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

// What the handlers saw, in call order. Handlers reach it through the engine's owner pointer.
struct Recorder {
    std::vector<ReceivedFrame> calls;
    void record(const char* handler, const kelo::FrameMessage& m) {
        ReceivedFrame f;
        f.handler = handler;
        f.sequence = m.sequence;
        f.command = m.command;
        f.payloadNull = m.payload == nullptr;
        if (m.payload) f.payload.assign(m.payload, m.payload + m.length);
        f.context[0] = m.context[0];
        f.context[1] = m.context[1];
        calls.push_back(f);
    }
};

inline int recordAll(kelo::FrameEngine& engine, const kelo::FrameMessage& m) {
    static_cast<Recorder*>(engine.owner())->record("general", m);
    return 0;
}

// One engine with its own lock, sink and recorder.
struct EngineRig {
    explicit EngineRig(std::uint32_t role)
        : engine(std::make_unique<kelo::FrameEngine>(role, &recorder, &sink, lock)) {}
    void feed(const Bytes& bytes) { engine->feed(bytes.data(), bytes.size()); }
    void feedBytewise(const Bytes& bytes) {
        for (std::uint8_t b : bytes)
            engine->feed(&b, 1);
    }
    void ticks(int n) {
        for (int i = 0; i < n; ++i)
            engine->tick();
    }

    std::mutex lock;
    VectorSink sink;
    Recorder recorder;
    std::unique_ptr<kelo::FrameEngine> engine;
};

}  // namespace kelo_test
