// The emulator's fault plan: per command code it can refuse, drop, delay or corrupt the reply a
// number of times (or until cleared), and for every frame it can split the datagrams or send
// them twice. Thread-safe; with no fault set, a frame costs one atomic load.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

#include "wire.h"

namespace kelo {
namespace emu {

// Every fault decision for the reply to one host command.
struct ReplyFaults {
    bool refused = false;
    std::uint8_t refuseStatus = 0;
    unsigned delayMs = 0;
    FrameFaults frame;
};

// What happens to one frame as it leaves.
struct SendFaults {
    bool drop = false;
    bool corruptHeader = false;
    bool corruptPayload = false;
    std::size_t split = 0;  // 0: datagrams whole
    bool twice = false;
};

class FaultPlan {
  public:
    // times < 0: until cleared.
    void refuse(std::uint8_t code, std::uint8_t status, int times);
    void drop(std::uint8_t code, int times);
    void delay(std::uint8_t code, unsigned ms, int times);
    void corruptHeaderCrc(std::uint8_t code, int times);
    void corruptPayloadCrc(std::uint8_t code, int times);
    // The header CRC of the next `times` replies, whatever their command.
    void corruptReplyHeaderCrc(int times);
    void splitDatagrams(std::size_t maxBytes);
    void duplicateDatagrams(bool on);
    void clear();

    // Uses up the faults of the reply to a command that has one.
    ReplyFaults forReply(std::uint8_t code);
    // Uses up the drop and CRC faults of a frame unless they were decided with its reply.
    SendFaults forSend(std::uint8_t code, const FrameFaults& decided);

  private:
    struct Fault {
        int refuseTimes = 0;
        std::uint8_t refuseStatus = 0;
        int dropTimes = 0;
        int delayTimes = 0;
        unsigned delayMs = 0;
        int corruptHeaderTimes = 0;
        int corruptPayloadTimes = 0;
    };
    FrameFaults takeFrameFaults(std::uint8_t code);  // lock_ held
    Fault& armed(std::uint8_t code);                 // lock_ held

    std::mutex lock_;
    std::atomic<bool> any_{false};
    std::map<std::uint8_t, Fault> faults_;
    int corruptAnyReplyTimes_ = 0;
    std::size_t splitBytes_ = 0;
    bool duplicate_ = false;
};

}  // namespace emu
}  // namespace kelo
