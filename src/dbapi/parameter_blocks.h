// The device's FlexRay parameter blocks filled from neutral parameter records. The FIBEX and the
// AUTOSAR queries fill these records from their databases and leave the byte layout to this
// file; the layout, byte by byte, is in docs/databases.md ("Device parameter blocks").
#pragma once

#include <cstdint>

namespace kelo {
namespace dbapi {

// Cluster-wide FlexRay parameters (FlexRay protocol names).
struct ClusterParameters {
    std::uint32_t speed = 0;  // bit/s
    std::uint32_t macroPerCycle = 0;
    std::uint32_t staticSlot = 0;
    std::uint32_t numberOfStaticSlots = 0;
    std::uint32_t numberOfMinislots = 0;
    std::uint32_t nit = 0;
    std::uint32_t offsetCorrectionStart = 0;
    std::uint32_t wakeUpSymbolRxWindow = 0;
    std::uint32_t wakeUpSymbolTxIdle = 0;
    std::uint32_t minislot = 0;
    std::uint32_t actionPointOffset = 0;
    std::uint32_t minislotActionPointOffset = 0;
    std::uint32_t dynamicSlotIdlePhase = 0;
    std::uint32_t symbolWindow = 0;
    std::uint32_t payloadLengthStatic = 0;
    std::uint32_t coldStartAttempts = 0;
    std::uint32_t listenNoise = 0;
    std::uint32_t maxWithoutClockCorrectionPassive = 0;
    std::uint32_t maxWithoutClockCorrectionFatal = 0;
    std::uint32_t syncNodeMax = 0;
    std::uint32_t networkManagementVectorLength = 0;
    std::uint32_t tssTransmitter = 0;
    std::uint32_t casRxLowMax = 0;
    std::uint32_t wakeUpSymbolRxIdle = 0;
    std::uint32_t wakeUpSymbolRxLow = 0;
    std::uint32_t wakeUpSymbolTxLow = 0;
    std::uint32_t macrotick = 0;
    std::uint32_t maxInitializationError = 0;
    std::uint32_t cycleCountMax = 0;
};

// Node (controller) FlexRay parameters of one ECU's controller.
struct ControllerParameters {
    std::uint32_t listenTimeout = 0;
    std::uint32_t allowPassiveToActive = 0;
    bool allowHaltDueToClock = false;
    std::uint32_t clusterDriftDamping = 0;
    std::uint32_t decodingCorrection = 0;
    std::uint32_t delayCompensationA = 0;
    std::uint32_t delayCompensationB = 0;
    std::uint32_t acceptedStartupRange = 0;
    std::uint32_t maxDrift = 0;
    std::uint32_t latestTx = 0;
    std::uint32_t keySlotId = 0;  // slot of the startup/sync frame; 0: none
    std::uint32_t offsetCorrectionOut = 0;
    std::uint32_t externOffsetCorrection = 0;
    std::uint32_t externRateCorrection = 0;
    std::uint32_t microPerCycle = 0;
    std::uint32_t microPerMacroNom = 0;
    std::uint32_t rateCorrectionOut = 0;
    std::uint32_t maxDynamicPayloadLength = 0;
    std::uint32_t macroInitialOffsetA = 0;
    std::uint32_t wakeUpPattern = 0;
    std::uint32_t macroInitialOffsetB = 0;
    std::uint32_t singleSlotEnabled = 0;
    std::uint32_t microInitialOffsetA = 0;
    std::uint32_t microInitialOffsetB = 0;
    std::uint16_t channelMask = 0;  // bit 0 channel A, bit 1 channel B (0: unknown)
};

// One frame's slot configuration.
struct SlotParameters {
    std::uint16_t slotId = 0;
    std::uint16_t byteLength = 0;
    std::uint16_t channelMask = 0;  // bit 0 channel A, bit 1 channel B
    std::uint8_t baseCycle = 0;
    std::uint8_t cycleRepetition = 0;
    bool cyclic = true;  // no PDU, or the first PDU is sent cyclically
};

inline constexpr std::uint16_t kDefaultMicroPerMacro = 40;

// The 36-byte cluster block; also makes cluster.macroPerCycle the process-wide divisor.
void fillClusterBlock(const ClusterParameters& cluster, std::uint8_t* block);
// Controller block bytes 0, 3 and 4 from the cluster (byte 4: the bit-rate code).
void fillCcBlockFromCluster(const ClusterParameters& cluster, std::uint8_t* cc);
// The 48-byte node block (the fnpt record).
void fillNodeBlock(const ControllerParameters& controller, std::uint8_t* block);
// Controller block bytes 1 and 2 (channels A and B) from the controller's channels.
void fillCcBlockChannels(const ControllerParameters& controller, std::uint8_t* cc);
// The 12-byte slot block; byte 1 is left as the caller had it.
void fillSlotBlock(const SlotParameters& slot, std::uint8_t p2, std::uint8_t p3,
                   std::uint8_t* block);

}  // namespace dbapi
}  // namespace kelo
