// The device emulator: a real UDP peer that stands in for the bus-interface device in tests, the
// demo and the benchmarks. It binds <address>:5055, parses host frames with the library's frame
// engine, answers every command with the reply layout the host's dispatcher reads, simulates one
// FlexRay node and one CAN channel, and misbehaves on request (its fault plan).
//
// All methods are thread-safe. Wire formats and upload layouts: docs/protocol.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelo {
namespace emu {

// One host frame as the emulator received it.
struct ReceivedFrame {
    std::uint16_t sequence = 0;
    std::uint8_t command = 0;
    std::vector<std::uint8_t> payload;
};

// One FlexRay upload entry (code 115) before it is packed.
struct FlexRayEntry {
    std::uint32_t words[3] = {0, 0, 0};  // entry bytes 0-11 (time stamps, passed through)
    std::uint8_t byte13 = 0;             // entry bytes 13-16
    std::uint8_t bytes14to16[3] = {0, 0, 0};
    std::uint16_t slot = 0;             // entry bytes 18-19
    std::uint8_t cycle = 0;             // entry byte 20
    std::uint16_t bytes22to23 = 0;      // entry bytes 22-23
    std::uint16_t statusWord = 0;       // entry bytes 24-25 (bit 7 channel A, bit 15 channel B)
    std::vector<std::uint8_t> payload;  // even length; entry byte 21 = payload.size() / 2
};

// One CAN upload entry (code 146) before it is packed.
struct CanEntry {
    std::uint32_t word4 = 0;         // entry bytes 4-7, passed through
    std::uint64_t timestampUs = 0;   // entry bytes 8-15
    std::uint32_t flags = 0;         // entry bytes 24-27 (frame type bits 30-31, bits 23, 21, 20)
    std::uint32_t identifier = 0;    // entry bytes 28-31
    std::vector<std::uint8_t> data;  // entry byte 32 = data.size()
};

// A FlexRay transmit buffer as configured by command 102 and filled by 111 / 145.
struct SlotBuffer {
    bool configured = false;
    std::uint8_t controller = 0;
    std::uint16_t slot = 0;
    std::uint8_t words = 0;
    std::uint8_t baseCycle = 0;
    std::uint8_t repetition = 1;
    bool channelA = true;
    bool channelB = true;
    bool transmit = false;           // slot block byte 4: 1 transmit, 0 receive
    std::vector<std::uint8_t> data;  // what the host last transmitted into this buffer
};

// The receive FIFO of one controller as the last accepted command 105 set it, read from the
// 46-byte record: 2 pass, 4-11 the four 16-bit words, 12-43 four 8-byte filter groups
// {enable, -, frame id, mask, channel, -}, 44 the number of enabled groups.
struct FifoFilterGroup {
    std::uint8_t enable = 0;
    std::uint16_t frameId = 0;
    std::uint16_t mask = 0;
    std::uint8_t channel = 0;
};
struct FifoConfig {
    bool configured = false;
    std::uint8_t pass = 0;  // 0 on the operation's first send, 1 on its second
    std::uint16_t rejectFrameId = 0;
    std::uint16_t rejectMask = 0;
    std::uint16_t depth = 0;
    std::uint16_t criteria = 0;
    std::array<FifoFilterGroup, 4> groups{};
    std::uint8_t groupCount = 0;
};

class DeviceEmulator {
  public:
    static constexpr std::uint16_t kPort = 5055;

    explicit DeviceEmulator(std::string address = "127.0.0.1", std::uint16_t port = kPort);
    ~DeviceEmulator();  // stops
    DeviceEmulator(const DeviceEmulator&) = delete;
    DeviceEmulator& operator=(const DeviceEmulator&) = delete;

    // Binds and starts serving. False when the address cannot be bound.
    bool start();
    void stop();
    const std::string& address() const;

    // ---- identity and device state ----
    // Device information record answered to command 198 (bytes 0-3 are the software version;
    // byte 71, the status, is set by the emulator). Default: version 0x01000203, text "KeLo EMU".
    void setDeviceInfo(const std::array<std::uint8_t, 72>& info);
    void setSoftwareVersion(std::uint32_t version);
    // Node state reply (116): POC state in bits 8-10 of the word at bytes 2-3, sub-state at 10.
    void setNodeState(std::uint8_t pocState, std::uint8_t subState);
    void setPsrWords(const std::array<std::uint16_t, 4>& words);  // reply bytes 2-9
    void setNmVector(const std::vector<std::uint8_t>& vector);    // reply 121, at most 12 bytes
    std::uint32_t registerWord(std::uint8_t kind, std::uint8_t controller) const;
    void setRegisterWord(std::uint8_t kind, std::uint8_t controller, std::uint32_t word);
    bool nodeStarted() const;
    bool uploadsOn() const;
    bool canStarted() const;
    std::vector<SlotBuffer> slotBuffers() const;  // index = buffer index
    FifoConfig fifo(std::uint8_t controller) const;
    // FlexRay cycle period of the simulated node (default 5 ms; a loaded restbus sets its
    // cluster's cycle time unless this was called).
    void setCyclePeriodMs(unsigned ms);
    unsigned cyclePeriodMs() const;
    // A clean device for every client: when on, a host frame from another address or port than
    // the last host's first resets what the previous client configured (transmit buffers,
    // FIFOs, registers, node and CAN channel stopped, uploads off, generated CAN frames counting
    // from 0). The fault plan, the traffic settings and the received-frame log stay. Default off.
    void setResetOnNewClient(bool on);

    // ---- restbus: the other ECUs of a cluster, played from a database ----
    // Reads a FIBEX or AUTOSAR file (read-all rules) and, while the node runs with uploads on,
    // uploads every frame of `cluster` (empty: the first) that `ecus` send (empty: every sender)
    // in its slots and cycles, with moving signal values; slots the host's own transmit buffers
    // send are left out. False, with the reason in *error, when the file or a name cannot be
    // used; the restbus loaded before stays then. Details: docs/emulator.md.
    bool loadRestbus(const std::string& databasePath, const std::string& cluster,
                     const std::vector<std::string>& ecus, std::string* error);
    void clearRestbus();

    // ---- what the host sent ----
    std::vector<ReceivedFrame> received() const;
    std::vector<ReceivedFrame> received(std::uint8_t command) const;
    std::size_t count(std::uint8_t command) const;
    void clearReceived();
    // Waits until at least `n` frames of `command` have arrived in all. False on time-out.
    bool waitFor(std::uint8_t command, std::size_t n, unsigned timeoutMs) const;

    // ---- fault plan (times < 0: until cleared) ----
    void refuse(std::uint8_t command, std::uint8_t status, int times = -1);
    void drop(std::uint8_t command, int times = -1);
    void delay(std::uint8_t command, unsigned ms, int times = -1);
    void corruptHeaderCrc(std::uint8_t command, int times = 1);
    void corruptPayloadCrc(std::uint8_t command, int times = 1);
    void corruptReplyHeaderCrc(int times);      // the next `times` replies, whatever their command
    void splitDatagrams(std::size_t maxBytes);  // 0: off. Every reply/upload datagram is cut up.
    void duplicateDatagrams(bool on);
    void clearFaults();

    // ---- uploads and raw traffic to the host (the last address a host frame came from) ----
    bool hostKnown() const;
    void sendRaw(const std::vector<std::uint8_t>& datagram);
    void sendFrame(std::uint8_t command, const std::vector<std::uint8_t>& payload,
                   std::uint16_t sequence = 0);
    void uploadFlexRay(const std::vector<FlexRayEntry>& entries);  // one frame, code 115
    void uploadCan(const std::vector<CanEntry>& entries);          // one frame, code 146
    void uploadBusState(std::uint16_t state);                      // code 212, type-4 entry
    // Generated CAN traffic while the channel is started: per frame one upload every periodMs,
    // data byte i = (frame number + i) mod 256, identifiers above 0x7FF with frame type 1
    // (extended). setCanTraffic replaces every generated frame by this one (period 0: none).
    void setCanTraffic(unsigned periodMs, std::uint32_t identifier, std::uint8_t length);
    void addCanTraffic(unsigned periodMs, std::uint32_t identifier, std::uint8_t length);
    // FlexRay flood: `total` records at `recordsPerSecond`, `words` payload words each, packed
    // as many entries per frame as fit. Runs on its own thread; waitFlood blocks until done.
    void startFlood(std::uint64_t total, std::uint64_t recordsPerSecond, std::uint8_t words);
    bool waitFlood(unsigned timeoutMs);
    std::uint64_t floodSent() const;
    // A flood without end that sends only while uploads are on (113 until 114, 193 or a new
    // client), until stop() or the next startFlood; its pace starts over at each 113.
    void startUploadFlood(std::uint64_t recordsPerSecond, std::uint8_t words);

    // ---- traffic log ----
    // Level 1: one line per host frame received and per reply sent; level 2: also one per
    // upload frame. 0 or an empty sink: off. The sink is called from the emulator's threads, one
    // line at a time (without a line end).
    void setTrafficLog(int level, std::function<void(const std::string&)> sink);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace emu
}  // namespace kelo
