// The receive side of a device object's uploads: the FlexRay and CAN record queues, each under
// its own lock with a lock-free count beside it, and the decoding of the upload frames (codes
// 115, 146 and 212) into them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "device/protocol_table.h"
#include "device/record_queue.h"
#include "platform/platform.h"

namespace kelo {

class ReceiveQueues {
  public:
    // Upload decoding (receive thread). Each frame is queued under one lock; true when it carried
    // entries, including when every record was dropped at the cap, so that the caller sets the
    // receive event once per such frame. `bounded`: the CAN queue stops at kCanQueueCap too.
    bool takeFlexRay(const std::uint8_t* p, std::size_t n);
    bool takeCan(const std::uint8_t* p, std::size_t n, bool bounded);

    // Callers: FlexRay records carry the channel flags in byte 18 once popped.
    bool popFlexRay(std::uint8_t* record);
    bool popCan(std::uint8_t* record);
    std::size_t flexRayCount() const { return frCount_.load(); }
    std::size_t canCount() const { return canCount_.load(); }
    void clearFlexRay();
    void clearCan();
    // Room for kFrQueueCap records, once per object (the first successful FlexRay open).
    void reserveFlexRay();

  private:
    RecordQueue<kFrRecordSize> frQueue_;
    bool frQueueReserved_ = false;
    RecordQueue<kCanRecordSize> canQueue_;
    std::atomic<std::size_t> frCount_{0};
    std::atomic<std::size_t> canCount_{0};
    Lock frQueueLock_;
    Lock canQueueLock_;
};

// The bus state entries (type 4) of a status upload: state 1 sets `busActive`, 2 clears it.
void takeBusStates(const std::uint8_t* p, std::size_t n, std::atomic<std::uint8_t>& busActive);

}  // namespace kelo
