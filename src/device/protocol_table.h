// The device protocol in one place: command and reply codes, the sizes of the records that cross
// the link, and the reply table (request size, reply size, status position, completion event)
// that the host's reply check and the emulator's reply building both read.
#pragma once

#include <array>
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

// Command and upload names as logs and command lines spell them; nullptr for a code without one.
constexpr const char* commandName(std::uint8_t code) {
    switch (code) {
        case kCmdResetCpu:
            return "ResetCpu";
        case kCmdSetClusterParameter:
            return "SetClusterParameter";
        case kCmdSetNodeParameter:
            return "SetNodeParameter";
        case kCmdSetCcParameter:
            return "SetCcParameter";
        case kCmdSetSlotParameter:
            return "SetSlotParameter";
        case kCmdSetFifoParameter:
            return "SetFifoParameter";
        case kCmdConfigureNode:
            return "ConfigureNode";
        case kCmdStartNode:
            return "StartNode";
        case kCmdStopNode:
            return "StopNode";
        case kCmdTransmit:
            return "Transmit";
        case kCmdReplaySend:
            return "ReplaySend";
        case kCmdStartRxUpload:
            return "StartRxUpload";
        case kCmdStopRxUpload:
            return "StopRxUpload";
        case kUploadFlexRay:
            return "UploadFlexRay";
        case kCmdGetNodeState:
            return "GetNodeState";
        case kCmdSendWakeUp:
            return "SendWakeUp";
        case kCmdGetNmVector:
            return "GetNmVector";
        case kCmdCanSetBusParameter:
            return "CanSetBusParameter";
        case kCmdCanSetFilterParameter:
            return "CanSetFilterParameter";
        case kCmdCanSetOptionParameter:
            return "CanSetOptionParameter";
        case kCmdSetControllerMode:
            return "SetControllerMode";
        case kCmdCanStart:
            return "CanStart";
        case kCmdCanStop:
            return "CanStop";
        case kCmdMultiTransmit:
            return "MultiTransmit";
        case kUploadCan:
            return "UploadCan";
        case kCmdWriteRegister:
            return "WriteRegister";
        case kCmdReadRegister:
            return "ReadRegister";
        case kCmdSetNodeRxTimeout:
            return "SetNodeRxTimeout";
        case kCmdConnect:
            return "Connect";
        case kCmdClose:
            return "Close";
        case kCmdSetDeviceText:
            return "SetDeviceText";
        case kCmdSetDeviceIp:
            return "SetDeviceIp";
        case kCmdSetDeviceOption:
            return "SetDeviceOption";
        case kCmdGetDeviceInfo:
            return "GetDeviceInfo";
        case kCmdSetTimeOffset:
            return "SetTimeOffset";
        case kCmdSetKeySlot:
            return "SetKeySlot";
        case kUploadStatus:
            return "UploadStatus";
        case kCmdKeepAlive:
            return "KeepAlive";
        default:
            return nullptr;
    }
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

// One row per reply code. `request` is the shortest request whose fields the device reads (a
// shorter one is answered as malformed); `reply` the payload size the device answers with (0: no
// answer, an upload code); `accept` the shortest reply the host takes (it carries the status and
// every result field the host reads; 0: no plain reply); `status` the position of the status
// byte in the reply; `event` the index of the host's completion event, -1 for none.
struct ReplyShape {
    std::uint8_t code = 0;
    std::uint8_t request = 0;
    std::uint8_t reply = 0;
    std::uint8_t accept = 0;
    std::uint8_t status = 0;
    std::int8_t event = -1;
};

namespace protocol_detail {
// Rows in event order; the two upload codes come last: their event is set once per upload frame
// that queued records.
struct Row {
    std::uint8_t code, request, reply, accept, status;
};
inline constexpr Row kRows[] = {
    // byte 0 = controller echoed, byte 1 = status
    {kCmdSetClusterParameter, 0, 2, 2, 1},
    {kCmdSetNodeParameter, 0, 2, 2, 1},
    {kCmdSetCcParameter, 0, 2, 2, 1},
    {kCmdSetSlotParameter, 14, 6, 6, 5},  // byte 4 = the buffer index assigned
    {kCmdSetFifoParameter, kFifoRecordSize, 3, 3, 2},
    {kCmdConfigureNode, 1, 2, 2, 1},
    {kCmdStartNode, 1, 2, 2, 1},
    {kCmdStopNode, 1, 2, 2, 1},
    {kCmdTransmit, 4, 3, 3, 2},
    {kCmdReplaySend, 0, 2, 2, 1},
    {kCmdStartRxUpload, 1, 2, 2, 1},
    {kCmdStopRxUpload, 1, 2, 2, 1},
    {kCmdGetNodeState, 1, 13, 13, 12},  // bytes 2-9 the PSR words, byte 10 the sub-state
    {kCmdSendWakeUp, 1, 2, 2, 1},
    {kCmdGetNmVector, 1, 15, 15, 14},  // byte 1 the length, bytes 2-13 the vector
    // byte 0 = status, bytes 1-2 = request bytes 0-1 echoed
    {kCmdCanSetBusParameter, 0, 4, 1, 0},
    {kCmdCanSetFilterParameter, 0, 4, 1, 0},
    {kCmdCanSetOptionParameter, 0, 4, 1, 0},
    {kCmdSetControllerMode, 0, 4, 1, 0},
    {kCmdCanStart, 2, 4, 1, 0},
    {kCmdCanStop, 2, 4, 1, 0},
    {kCmdMultiTransmit, kMultiHeaderSize, 8, 8, 0},  // byte 2 the channel, 4-7 the count sent
    {kCmdWriteRegister, 6, 4, 1, 0},
    {kCmdReadRegister, 2, 7, 7, 0},  // bytes 3-6 the register word
    {kCmdSetNodeRxTimeout, 0, 4, 1, 0},
    {kCmdConnect, 0, 5, 5, 4},  // bytes 0-3 the software version
    {kCmdClose, 0, 4, 1, 0},
    {kCmdSetDeviceText, 0, 4, 1, 0},
    {kCmdSetDeviceIp, 0, 4, 1, 0},
    {kCmdSetDeviceOption, 0, 4, 1, 0},
    {kCmdGetDeviceInfo, 0, kDeviceInfoSize, kDeviceInfoSize, kDeviceInfoSize - 1},
    {kCmdSetTimeOffset, 0, 4, 1, 0},
    {kCmdSetKeySlot, 0, 4, 1, 0},
    {kUploadFlexRay, 0, 0, 0, 0},
    {kUploadCan, 0, 0, 0, 0},
};

constexpr std::array<ReplyShape, 256> makeReplyShapes() {
    std::array<ReplyShape, 256> shapes{};
    int event = 0;
    for (const Row& r : kRows)
        shapes[r.code] = {r.code,   r.request, r.reply,
                          r.accept, r.status,  static_cast<std::int8_t>(event++)};
    return shapes;
}
}  // namespace protocol_detail

// The reply table by code; a code without a row has reply size 0 and event -1.
inline constexpr std::array<ReplyShape, 256> kReplyShapes = protocol_detail::makeReplyShapes();

inline constexpr int kEventCount = sizeof protocol_detail::kRows / sizeof protocol_detail::kRows[0];
static_assert(kEventCount == 35, "one completion event per reply code");

// The reply codes with a completion event, in event order.
constexpr std::array<std::uint8_t, kEventCount> makeEventCodes() {
    std::array<std::uint8_t, kEventCount> codes{};
    for (int i = 0; i < kEventCount; ++i)
        codes[i] = protocol_detail::kRows[i].code;
    return codes;
}
inline constexpr std::array<std::uint8_t, kEventCount> kEventCodes = makeEventCodes();

constexpr int eventIndex(std::uint8_t code) {
    return kReplyShapes[code].event;
}

}  // namespace kelo
