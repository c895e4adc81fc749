// The host's end of the link: the UDP socket and the device's address and port. It is the
// protocol engine's sink, so every datagram the engine finishes leaves through it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "device/frame_engine.h"
#include "device/protocol_table.h"
#include "platform/platform.h"

namespace kelo {

struct LinkSocket final : DatagramSink {
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        socket.sendTo(address, port, data, length);  // errors show up as a time-out
    }

    UdpSocket socket;
    std::uint32_t address = 0;
    std::uint16_t port = kDevicePort;
};

}  // namespace kelo
