// Fuzzes the device object's receive path: the frame parser and the reply/upload dispatcher of
// a KeLoCommLib, fed one datagram at a time as its receive thread feeds them, without a socket.
// Queued upload records are then copied out with Fr_Receive / CAN_Receive.
//
// Input: byte 0 is the mode, the rest the traffic.
//   bit 0 clear  raw datagrams: each a 16-bit big-endian length and that many bytes (cut to the
//                receive thread's 1500-byte buffer and to what is left of the input);
//   bit 0 set    frames built here with correct CRCs, so that mutations reach the dispatcher:
//                each a command byte, a 16-bit big-endian sequence, a 16-bit big-endian payload
//                length and the payload (cut to what is left), packed into datagrams the way
//                the device packs them;
//   bit 1 set    uploads off (FlexRay upload frames are then dropped);
//   bit 2 set    a strict link (replies nobody waits for and CAN records while CAN is closed
//                are dropped).
//
// Every input gets a fresh device object: the parser keeps its state across datagrams, and a
// frame left half-read by one input must not change what the next one does.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "device/KeLoCommLib.h"
#include "device/frame_engine.h"
#include "device/protocol_table.h"

namespace {

constexpr std::size_t kReceiveBuffer = 1500;  // the receive thread's datagram buffer

void feedDatagrams(KeLoCommLib& lib, const std::uint8_t* p, std::size_t n) {
    while (n >= 2) {
        std::size_t length = static_cast<std::size_t>(p[0] << 8 | p[1]);
        p += 2;
        n -= 2;
        length = std::min({length, n, kReceiveBuffer});
        lib.receiveBytes(p, length);
        p += length;
        n -= length;
    }
}

// Frames go into datagrams as the device sends them (each frame starts a datagram, a full
// datagram goes out at once, a payload CRC is never split across two): a frame engine in the
// device role packs them, and its datagrams go straight to the receive path.
struct ReceivePath : kelo::DatagramSink {
    explicit ReceivePath(KeLoCommLib& lib) : lib(lib) {}
    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        lib.receiveBytes(data, length);
    }
    KeLoCommLib& lib;
};

void feedFrames(KeLoCommLib& lib, const std::uint8_t* p, std::size_t n) {
    ReceivePath path(lib);
    kelo::Lock lock;
    kelo::FrameEngine packer(0, &path, lock);
    while (n >= 5) {
        const std::uint8_t command = p[0];
        const auto sequence = static_cast<std::uint16_t>(p[1] << 8 | p[2]);
        std::size_t length = static_cast<std::size_t>(p[3] << 8 | p[4]);
        p += 5;
        n -= 5;
        length = std::min(length, n);
        packer.sendReply(sequence, command, p, static_cast<std::uint16_t>(length));
        p += length;
        n -= length;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::uint8_t mode = data[0];

    KeLoCommLib lib;
    lib.setStrict((mode & 4) != 0);
    lib.attachReceivePath((mode & 2) == 0);
    if (mode & 1)
        feedFrames(lib, data + 1, size - 1);
    else
        feedDatagrams(lib, data + 1, size - 1);

    // Copy every queued record out as an application would, then empty both queues.
    std::uint8_t frRecord[kelo::kFrRecordSize];
    while (lib.Fr_framesAvailable() > 0 && lib.Fr_Receive(frRecord, 0) == 0) {
    }
    std::uint8_t canRecord[kelo::kCanRecordSize];
    while (lib.CAN_framesAvailable() > 0 && lib.CAN_Receive(canRecord, 0) == 0) {
    }
    lib.Fr_ClearRcvBuffer(0);
    lib.CAN_ClearRcvBuffer();
    unsigned int version = 0;
    lib.get_software_version(&version);
    return 0;
}
