// Command and reply codes of the device protocol, and the sizes of the records that cross it.
// Shared by the device object, the emulator and the tests.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelo {

enum Command : std::uint8_t {
    kCmdResetCpu = 22,
    kCmdSetClusterParameter = 96,
    kCmdSetNodeParameter = 98,
    kCmdSetCcParameter = 100,
    kCmdSetSlotParameter = 102,
    kCmdSetFifoParameter = 105,
    kCmdConfigureNode = 107,
    kCmdStartNode = 108,
    kCmdStopNode = 110,
    kCmdTransmit = 111,
    kCmdReplaySend = 112,
    kCmdStartRxUpload = 113,
    kCmdStopRxUpload = 114,
    kUploadFlexRay = 115,
    kCmdGetNodeState = 116,
    kCmdSendWakeUp = 120,
    kCmdGetNmVector = 121,
    kCmdCanSetBusParameter = 130,
    kCmdCanSetFilterParameter = 132,
    kCmdCanSetOptionParameter = 137,
    kCmdSetControllerMode = 139,
    kCmdCanStart = 142,
    kCmdCanStop = 143,
    kCmdMultiTransmit = 145,
    kUploadCan = 146,
    kCmdWriteRegister = 149,
    kCmdReadRegister = 150,
    kCmdSetNodeRxTimeout = 153,
    kCmdConnect = 192,
    kCmdClose = 193,
    kCmdSetDeviceText = 194,
    kCmdSetDeviceIp = 195,
    kCmdSetDeviceOption = 197,
    kCmdGetDeviceInfo = 198,
    kCmdSetTimeOffset = 210,
    kCmdSetKeySlot = 211,
    kUploadStatus = 212,
    kCmdKeepAlive = 255,
};

// Reply codes with a completion event, in event order; the last two are the upload codes whose
// event is set once per queued record.
inline constexpr std::uint8_t kEventCodes[] = {
    96,  98,  100, 102, 105, 107, 108, 110, 111, 112, 113, 114, 116, 120, 121, 130, 132, 137,
    139, 142, 143, 145, 149, 150, 153, 192, 193, 194, 195, 197, 198, 210, 211, 115, 146};
inline constexpr int kEventCount = sizeof kEventCodes / sizeof kEventCodes[0];
static_assert(kEventCount == 35, "one completion event per reply code");

constexpr int eventIndex(std::uint8_t code) {
    for (int i = 0; i < kEventCount; ++i)
        if (kEventCodes[i] == code) return i;
    return -1;
}

inline constexpr std::size_t kFrRecordSize = 280;
inline constexpr std::size_t kFrRecordPayloadOffset = 26;
inline constexpr std::size_t kFrRecordMaxPayload = kFrRecordSize - kFrRecordPayloadOffset;  // 254
inline constexpr std::size_t kCanRecordSize = 88;
inline constexpr std::size_t kCanRecordDataOffset = 24;
inline constexpr std::size_t kCanMaxData = 64;
inline constexpr std::size_t kDeviceInfoSize = 72;
// The FIFO record of command 105; the number of enabled filter groups sits at byte 44.
inline constexpr std::size_t kFifoRecordSize = 46;
inline constexpr std::size_t kFifoGroupCountAt = 44;
inline constexpr std::size_t kFrQueueCap = 100000;
// A strict link bounds the CAN receive queue the same way.
inline constexpr std::size_t kCanQueueCap = 100000;
inline constexpr std::uint16_t kDevicePort = 5055;

// Upload entry layouts.
inline constexpr std::size_t kFrUploadEntryHead = 28;
inline constexpr std::size_t kCanUploadEntryHead = 40;
inline constexpr std::size_t kMultiHeaderSize = 24;
inline constexpr std::size_t kStatusEntrySize = 32;

}  // namespace kelo
