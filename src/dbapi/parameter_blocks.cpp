#include "dbapi/parameter_blocks.h"

#include <cstring>

#include "dbapi/database_handles.h"

namespace kelo {
namespace dbapi {

namespace {

// Block fields are little-endian, as every multi-byte field the device takes. A value wider
// than its field keeps its low bytes.
inline void put8(std::uint8_t* b, int at, std::uint32_t v) {
    b[at] = static_cast<std::uint8_t>(v);
}
inline void put16(std::uint8_t* b, int at, std::uint32_t v) {
    b[at] = static_cast<std::uint8_t>(v);
    b[at + 1] = static_cast<std::uint8_t>(v >> 8);
}
inline void put32(std::uint8_t* b, int at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace

void fillClusterBlock(const ClusterParameters& c, std::uint8_t* b) {
    put16(b, 0, c.macroPerCycle);
    put16(b, 2, c.staticSlot);
    put16(b, 4, c.numberOfStaticSlots);
    put16(b, 6, c.numberOfMinislots);
    put16(b, 8, c.nit);
    put16(b, 10, c.offsetCorrectionStart);
    put16(b, 12, c.wakeUpSymbolRxWindow);
    put16(b, 14, c.wakeUpSymbolTxIdle);
    put8(b, 16, c.minislot);
    put8(b, 17, c.actionPointOffset);
    put8(b, 18, c.minislotActionPointOffset);
    put8(b, 19, c.dynamicSlotIdlePhase);
    put8(b, 20, c.symbolWindow);
    put8(b, 21, c.payloadLengthStatic);
    put8(b, 22, c.coldStartAttempts);
    put8(b, 23, c.listenNoise);
    put8(b, 24, c.maxWithoutClockCorrectionPassive);
    put8(b, 25, c.maxWithoutClockCorrectionFatal);
    put8(b, 26, c.syncNodeMax);
    put8(b, 27, c.networkManagementVectorLength);
    put8(b, 28, c.tssTransmitter);
    put8(b, 29, c.casRxLowMax);
    put8(b, 30, c.wakeUpSymbolRxIdle);
    put8(b, 31, c.wakeUpSymbolRxLow);
    put8(b, 32, c.wakeUpSymbolTxLow);
    put8(b, 33, c.macrotick);
    put8(b, 34, c.maxInitializationError);
    put8(b, 35, c.cycleCountMax);
    MacroPerCycleDivisor.store(static_cast<std::uint16_t>(c.macroPerCycle));
}

void fillCcBlockFromCluster(const ClusterParameters& c, std::uint8_t* cc) {
    cc[0] = 0;
    cc[3] = 0;
    switch (c.speed) {
        case 2500000:
            cc[4] = 2;
            break;
        case 5000000:
            cc[4] = 1;
            break;
        case 8000000:
            cc[4] = 3;
            break;
        default:
            cc[4] = 0;
            break;  // 10 Mbit/s and anything else
    }
}

void fillNodeBlock(const ControllerParameters& n, std::uint8_t* b) {
    std::memset(b, 0, 48);
    put32(b, 0, n.listenTimeout);
    put8(b, 4, n.allowPassiveToActive);
    put8(b, 5, n.allowHaltDueToClock ? 1 : 0);
    put8(b, 6, n.clusterDriftDamping);
    put8(b, 7, n.decodingCorrection);
    put8(b, 8, n.delayCompensationA);
    put8(b, 9, n.delayCompensationB);
    put16(b, 10, n.acceptedStartupRange);
    put16(b, 12, n.maxDrift);
    put16(b, 14, n.latestTx);
    const bool keySlot = n.keySlotId >= 1;
    put16(b, 16, keySlot ? n.keySlotId : 0);
    put8(b, 18, keySlot ? 1 : 0);  // key slot used for startup
    put8(b, 19, keySlot ? 1 : 0);  // key slot used for sync
    put16(b, 20, n.offsetCorrectionOut);
    put8(b, 22, n.externOffsetCorrection);
    put8(b, 23, n.externRateCorrection);
    put32(b, 24, n.microPerCycle);
    put32(b, 28, n.microPerMacroNom);
    const std::uint16_t divisor = MacroPerCycleDivisor.load();
    put8(b, 32, divisor == 0 ? kDefaultMicroPerMacro : n.microPerCycle / divisor);
    put16(b, 34, n.rateCorrectionOut);
    put16(b, 36, n.maxDynamicPayloadLength);
    put8(b, 38, n.macroInitialOffsetA);
    put8(b, 39, n.wakeUpPattern - 1);
    put8(b, 40, n.macroInitialOffsetB);
    put16(b, 42, n.singleSlotEnabled);
    put16(b, 44, 0);
    put8(b, 46, n.microInitialOffsetA);
    put8(b, 47, n.microInitialOffsetB);
}

void fillCcBlockChannels(const ControllerParameters& n, std::uint8_t* cc) {
    switch (n.channelMask) {
        case 1:
            cc[1] = 1;
            cc[2] = 0;
            break;
        case 2:
            cc[1] = 0;
            cc[2] = 1;
            break;
        default:
            cc[1] = 1;
            cc[2] = 1;
            break;
    }
}

void fillSlotBlock(const SlotParameters& s, std::uint8_t p2, std::uint8_t p3, std::uint8_t* b) {
    b[0] = 255;
    put16(b, 2, s.slotId);
    b[4] = p3;
    b[5] = static_cast<std::uint8_t>(s.byteLength >> 1);
    b[6] = p2;
    b[7] = s.channelMask != 2 ? 1 : 0;
    b[8] = s.channelMask != 1 ? 1 : 0;
    b[9] = s.baseCycle;
    b[10] = s.cycleRepetition;
    b[11] = s.cyclic ? 1 : 0;
}

}  // namespace dbapi
}  // namespace kelo
