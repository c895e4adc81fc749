// CAN and device-management exports.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "KeLoComm.h"
#include "device/device_status.h"
#include "exports/device_table.h"

using namespace kelo;

namespace {
// The data lengths a CAN (FD) frame can have, sorted for the binary search.
constexpr std::uint32_t kCanDataLengths[16] = {0, 1,  2,  3,  4,  5,  6,  7,
                                               8, 12, 16, 20, 24, 32, 48, 64};
}  // namespace

extern "C" {

KELOCOMM_API unsigned char KCAN_Configure_Wrapper(signed char idx, void* config) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.CAN_Configure(static_cast<unsigned char*>(config));
    });
}

KELOCOMM_API unsigned char KCAN_SetNodeRxTimeout_Wrapper(signed char idx, unsigned int timeout) {
    return forward(idx, [&](CommunicationLib& lib) {
        unsigned char record[4];
        std::memcpy(record, &timeout, 4);
        return lib.CAN_SetNodeRxTimeout(record);
    });
}

KELOCOMM_API unsigned char KCAN_Start_Wrapper(signed char idx) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.CAN_Start(2); });
}

KELOCOMM_API unsigned char KCAN_Stop_Wrapper(signed char idx) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.CAN_Stop(2); });
}

KELOCOMM_API unsigned char KCAN_Transmit_Wrapper(signed char idx, unsigned char* frame,
                                                 unsigned char* data) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!frame) return kDeviceBadArgument;
        if (!std::binary_search(std::begin(kCanDataLengths), std::end(kCanDataLengths),
                                std::uint32_t{frame[8]}))
            return kDeviceBadArgument;
        unsigned char record[12];
        std::memcpy(record, frame, sizeof record);
        return lib.CAN_Transmit(record, data);
    });
}

// Copies the 24-byte header, then 2 x (length byte at offset 23) bytes from offset 24: the
// doubling follows the FlexRay export, where the length counts words. The local record is large
// enough for any length byte, so the copy never reads past it; bytes past the data are zero.
KELOCOMM_API unsigned char KCAN_Receive_Wrapper(signed char idx, unsigned char* headerOut,
                                                unsigned char* payloadOut, unsigned int timeoutMs) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        unsigned char record[24 + 2 * 255] = {};
        const unsigned char status = lib.CAN_Receive(record, timeoutMs);
        if (status != kDeviceOk) return status;
        if (headerOut) std::memcpy(headerOut, record, 24);
        if (payloadOut) std::memcpy(payloadOut, record + 24, 2u * record[23]);
        return kDeviceOk;
    });
}

KELOCOMM_API unsigned char KCAN_framesAvailable_Wrapper(signed char idx, unsigned int* count) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        const unsigned int n = lib.CAN_framesAvailable();
        if (count) *count = n;
        return kDeviceOk;
    });
}

KELOCOMM_API unsigned char KCAN_ClearRcvBuffer_Wrapper(signed char idx) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.CAN_ClearRcvBuffer(); });
}

KELOCOMM_API unsigned char KeLo_SetTimeOffset_Wrapper(signed char idx, long long seconds) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.SetTimeOffset(seconds); });
}

// The library's own version word is written first, on every path.
KELOCOMM_API unsigned char KeLo_get_software_version_Wrapper(signed char idx,
                                                             unsigned int* libraryVersion,
                                                             unsigned int* deviceVersion) {
    if (libraryVersion) *libraryVersion = 0x02000006u;
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (deviceVersion) *deviceVersion = 0;
        return lib.get_software_version(deviceVersion);
    });
}

KELOCOMM_API unsigned char Kelo_ResetCPU_Wrapper(signed char idx) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.ResetCPU(); });
}

KELOCOMM_API unsigned char KFrSetDevIp_Wrapper(signed char idx, const char* address) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.FrSetDevIp(address); });
}

KELOCOMM_API const char* KeLo_DeviceStatusText(unsigned char status) {
    return deviceStatusText(status);
}

}  // extern "C"
