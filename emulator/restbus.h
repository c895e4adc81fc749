// The restbus: the frames that the other ECUs of a FlexRay cluster send, taken from a FIBEX or
// AUTOSAR database and played back cycle by cycle with moving signal values. The class knows
// nothing of sockets: the emulator asks it for the entries of each cycle and uploads them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "dbapi/signal_codec.h"
#include "emulator.h"

namespace kelo {
namespace emu {

class Restbus {
  public:
    // How a signal's value moves from one transmission of its frame to the next.
    enum class Motion : std::uint8_t {
        Ramp,       // a triangle over [rawMin, rawMax], per-signal phase
        Counter,    // rawMin, rawMin + 1, ... rawMax, rawMin, ...
        UpdateBit,  // always 1
    };

    struct Signal {
        std::string name;
        dbapi::SignalCoding coding;  // for an update bit only bitPosition is used
        Motion motion = Motion::Ramp;
        std::int64_t rawMin = 0;
        std::int64_t rawMax = 0;
        double physMin = 0.0;  // rawMin and rawMax through the coding's scale
        double physMax = 0.0;
        std::uint32_t phase = 0;
    };

    struct Frame {
        std::string name;
        std::uint16_t length = 0;  // bytes
        std::vector<Signal> signals;
        std::uint64_t sent = 0;  // transmissions so far
    };

    // One timing of one frame: sent in cycles where cycle % repetition == baseCycle % repetition.
    struct Slot {
        std::uint16_t slot = 0;
        std::uint8_t baseCycle = 0;
        std::uint8_t repetition = 1;
        std::uint8_t channels = 0;  // bit 0 channel A, bit 1 channel B
        std::size_t frame = 0;      // index into frames()
    };

    // Reads the file (FIBEX or AUTOSAR, by its root element) with the read-all rules and builds
    // the schedule of `cluster` (empty: the first) as sent by `ecus` (empty: every ECU that sends
    // a frame; every frame when the cluster names no sender). False, with a message in *error,
    // when the file cannot be read or a name is unknown.
    bool load(const std::string& path, const std::string& cluster,
              const std::vector<std::string>& ecus, std::string* error);

    // The cluster's cycle time in microseconds; 0 when the file gives none.
    unsigned cycleMicros() const { return cycleMicros_; }
    const std::vector<Slot>& schedule() const { return schedule_; }  // slot order
    const std::vector<Frame>& frames() const { return frames_; }

    // True when the slot is due in `cycle` (0..63).
    static bool due(const Slot& s, std::uint8_t cycle) {
        return cycle % s.repetition == s.baseCycle % s.repetition;
    }
    // The payload of a frame at its n-th transmission (even length, zero-padded).
    std::vector<std::uint8_t> payload(std::size_t frame, std::uint64_t n) const;
    // The raw and physical value a signal has at its frame's n-th transmission.
    static std::int64_t rawAt(const Signal& s, std::uint64_t n);
    static float physicalAt(const Signal& s, std::uint64_t n);

    // The entries of one cycle in slot order, each frame's payload advanced by one transmission.
    // `hostChannels(slot)` names the channel bits (bit 0 A, bit 1 B) the host's own node sends
    // in that slot in this cycle; those channels are left out, and a slot left without a
    // channel is not sent.
    std::vector<FlexRayEntry> cycleEntries(
        std::uint8_t cycle, const std::function<std::uint8_t(std::uint16_t)>& hostChannels);

  private:
    bool loadFibex(const std::string& path, const std::string& cluster,
                   const std::vector<std::string>& ecus, std::string* error);
    bool loadAutosar(const std::string& path, const std::string& cluster,
                     const std::vector<std::string>& ecus, std::string* error);
    // The frame's index in frames_, adding it on first use.
    std::size_t frameIndex(const std::string& name);
    void addTiming(std::size_t frame, std::uint16_t slot, std::uint8_t base,
                   std::uint8_t repetition, std::uint8_t channels);
    void finish();

    unsigned cycleMicros_ = 0;
    std::vector<Slot> schedule_;
    std::vector<Frame> frames_;
};

}  // namespace emu
}  // namespace kelo
