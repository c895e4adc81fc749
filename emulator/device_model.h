// The simulated device: its identity, one FlexRay node with its message buffers and FIFOs, one
// CAN channel and the register file, and the execution of host commands against them. Reply
// sizes and status positions come from the protocol table; the model fills the result fields.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "emulator.h"
#include "wire.h"

namespace kelo {
namespace emu {

// Buffer indices 0..254; 255 asks the device to assign one.
inline constexpr std::size_t kBufferCount = 255;

// Reply status values the device model produces (the status byte of a reply).
inline constexpr std::uint8_t kStatusOk = 0;
inline constexpr std::uint8_t kStatusRejected = 1;  // no free buffer index, unknown entry kind
inline constexpr std::uint8_t kStatusMalformed =
    2;  // request shorter than the fields it must carry

struct DeviceModel {
    explicit DeviceModel(Clock::time_point epoch);

    // Frames the execution of one command adds around its reply.
    struct Effects {
        std::vector<Outgoing> before;  // sent ahead of the reply (bus state uploads)
        std::vector<Outgoing> after;   // sent after it (the CAN echo of 145)
        bool wake = false;             // the traffic schedule changed
    };

    // Builds the reply to one command: carries the command out unless `refused` or the request
    // is shorter than the table's request size, and fills every field. Takes `lock`.
    Bytes answer(std::uint8_t code, const Request& r, bool refused, std::uint8_t refuseStatus,
                 Effects& effects);

    std::uint64_t microsSinceStart() const;
    std::uint64_t nanosSinceStart() const;
    void setPoc(std::uint8_t poc);  // lock held

    const Clock::time_point epoch;

    // Everything below is guarded by `lock`.
    mutable std::mutex lock;
    std::array<std::uint8_t, 72> info{};
    std::array<std::uint16_t, 4> psr{{0, 0, 0, 0}};
    std::uint8_t subState = 0;
    std::vector<std::uint8_t> nmVector;
    std::map<std::uint16_t, std::uint32_t> registers;  // kind << 8 | controller
    std::vector<SlotBuffer> buffers;
    std::map<std::uint8_t, FifoConfig> fifos;  // by controller
    bool started = false;
    std::uint32_t startGeneration = 0;
    bool uploads = false;
    bool canOn = false;
    std::uint8_t canChannel = 0;
    unsigned cycleMs = 5;
    bool cycleMsSet = false;  // setCyclePeriodMs was called: a restbus keeps the period
    // Generated CAN frames while the channel is started; the schedule fields belong to the
    // simulation thread (under `lock` too).
    struct CanTraffic {
        unsigned periodMs = 0;
        std::uint32_t identifier = 0;
        std::uint8_t length = 0;
        std::uint32_t generated = 0;  // frames sent so far: the counter in the data bytes
        bool ticking = false;
        Clock::time_point next{};
    };
    std::vector<CanTraffic> canTraffic;

    // Forgets what a host configured: buffers, FIFOs, registers, node and CAN channel stopped,
    // uploads off, generated CAN frames counting from 0 again. Lock held.
    void resetClient();

  private:
    std::uint8_t execute(std::uint8_t code, const Request& r, Bytes& out, bool apply,
                         Effects& effects);
    std::uint8_t multiTransmit(const Request& r, Bytes& out, Effects& effects);
};

}  // namespace emu
}  // namespace kelo
