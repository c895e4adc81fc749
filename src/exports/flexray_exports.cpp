// FlexRay device exports: index check, one device operation, and the record repacking that the
// device's command layouts need.
#include <cstring>

#include "KeLoComm.h"
#include "device/byte_order.h"
#include "device/device_status.h"
#include "device/protocol_table.h"
#include "exports/device_table.h"

using namespace kelo;

extern "C" {

KELOCOMM_API unsigned char KFr_Set_Cluster_Parameter_Wrapper(signed char idx, unsigned char node,
                                                             unsigned char* block) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!block) return kDeviceBadArgument;
        unsigned char record[40] = {node};
        std::memcpy(record + 1, block, 36);
        // Reconfiguring a cluster starts from a stopped node and an empty receive buffer.
        lib.Fr_Stop(node);
        sleepMs(200);
        KFr_ClearRcvBuffer_Wrapper(idx, node);
        return lib.Fr_Set_Cluster_Parameter(record);
    });
}

KELOCOMM_API unsigned char KFr_Set_Node_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          unsigned char* block) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!block) return kDeviceBadArgument;
        char record[52] = {static_cast<char>(node)};
        std::memcpy(record + 1, block, 48);
        return lib.Fr_Set_Node_Parameter(record);
    });
}

KELOCOMM_API unsigned char KFr_Set_CC_Parameter_Wrapper(signed char idx, unsigned char node,
                                                        unsigned char* block) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!block) return kDeviceBadArgument;
        char record[6] = {static_cast<char>(node)};
        std::memcpy(record + 1, block, 5);
        return lib.Fr_Set_CC_Parameter(record);
    });
}

KELOCOMM_API unsigned char KFr_Set_Slot_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          unsigned char* block) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!block) return kDeviceBadArgument;
        unsigned char record[14] = {node};
        std::memcpy(record + 1, block, 12);
        const unsigned char status = lib.Fr_Set_Slot_Parameter(record);
        if (status == kDeviceOk) block[0] = record[1];  // the buffer index the device assigned
        return status;
    });
}

// The device's FIFO record (46 bytes, the caller's fields in their order with natural 2-byte
// alignment): 0 node, 2 pass (set by the operation), 4-11 the four 16-bit words, 12-43 four
// 8-byte groups {enable, 0, frame id, mask, channel, 0}, 44 the number of enabled filter groups;
// bytes 1, 3 and 45 are padding and stay 0.
KELOCOMM_API unsigned char KFr_Set_Fifo_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          KFrFifoRecord* fifo) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!fifo) return kDeviceBadArgument;
        unsigned char record[kFifoRecordSize] = {node};
        putLe16(record + 4, fifo->rejectFrameId);
        putLe16(record + 6, fifo->rejectMask);
        putLe16(record + 8, fifo->depth);
        putLe16(record + 10, fifo->criteria);
        const struct {
            unsigned char enable;
            unsigned short frameId, mask;
            unsigned char channel;
        } groups[4] = {
            {fifo->group0Enable, fifo->group0FrameId, fifo->group0Mask, fifo->group0Channel},
            {fifo->group1Enable, fifo->group1FrameId, fifo->group1Mask, fifo->group1Channel},
            {fifo->group2Enable, fifo->group2FrameId, fifo->group2Mask, fifo->group2Channel},
            {fifo->group3Enable, fifo->group3FrameId, fifo->group3Mask, fifo->group3Channel},
        };
        unsigned char enabled = 0;
        for (int g = 0; g < 4; ++g) {
            unsigned char* out = record + 12 + 8 * g;
            out[0] = groups[g].enable;
            putLe16(out + 2, groups[g].frameId);
            putLe16(out + 4, groups[g].mask);
            out[6] = groups[g].channel;
            if (groups[g].enable) ++enabled;
        }
        record[kFifoGroupCountAt] = enabled;
        return lib.Fr_Set_Fifo_Parameter(record);
    });
}

// The node argument is deliberately not used: the record's first byte is always 0.
KELOCOMM_API unsigned char KFr_SetFrPhyNodeKeySlot_Wrapper(signed char idx, unsigned char,
                                                           KFrKeySlotRecord* keySlots) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        if (!keySlots) return kDeviceBadArgument;
        unsigned char record[9] = {0};
        for (int e = 0; e < 2; ++e) {
            putLe16(record + 1 + 4 * e, keySlots->entry[e].slot);
            record[3 + 4 * e] = keySlots->entry[e].channels;
            record[4 + 4 * e] = keySlots->entry[e].flags;
        }
        return lib.Fr_SetFrPhyNodeKeySlot(reinterpret_cast<const char*>(record));
    });
}

KELOCOMM_API unsigned char KFr_Configure_Node_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_Configure_Node(node); });
}
KELOCOMM_API unsigned char KFr_SendWakeUp_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_SendWakeUp(node); });
}
KELOCOMM_API unsigned char KFr_Start_Node_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_Start_Node(node); });
}
KELOCOMM_API unsigned char KFr_Stop_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_Stop(node); });
}
KELOCOMM_API unsigned char KFr_StartFrRxUpload_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_StartFrRxUpload(node); });
}
KELOCOMM_API unsigned char KFr_StopFrRxUpload_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_StopFrRxUpload(node); });
}
KELOCOMM_API unsigned char KFr_ClearRcvBuffer_Wrapper(signed char idx, unsigned char node) {
    return forward(idx, [&](CommunicationLib& lib) { return lib.Fr_ClearRcvBuffer(node); });
}

KELOCOMM_API unsigned char KFr_GetFrNodeState_Wrapper(signed char idx, unsigned char node,
                                                      void* state, void* subState) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_GetFrNodeState(node, static_cast<unsigned char*>(state),
                                     static_cast<unsigned char*>(subState));
    });
}

KELOCOMM_API unsigned char KFr_GetFrPSRState_Wrapper(signed char idx, unsigned char node,
                                                     void* psr) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_GetFrPSRState(node, static_cast<unsigned char*>(psr));
    });
}

KELOCOMM_API unsigned char KFr_GetFrNWVector_Wrapper(signed char idx, unsigned char node,
                                                     void* vector, void* length) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_GetFrNWVector(node, static_cast<unsigned char*>(vector),
                                    static_cast<unsigned char*>(length));
    });
}

// Returns the count itself; a bad index returns kDeviceBadIndex, which reads like a count of 6.
KELOCOMM_API int KFr_framesAvailable_Wrapper(signed char idx) {
    return guarded<int>(0, [&]() -> int {
        CommunicationLib* lib = deviceAt(idx);
        return lib ? static_cast<int>(lib->Fr_framesAvailable()) : kDeviceBadIndex;
    });
}

// Copies the 28-byte header, then 2 x (word count at offset 20) payload bytes from offset 26.
// The local record is large enough for the largest count (255 words), so the copy never reads
// past it; bytes beyond the 254 a record holds are zero.
KELOCOMM_API unsigned char KFr_Receive_Wrapper(signed char idx, unsigned char* headerOut,
                                               unsigned char* payloadOut, unsigned int timeoutMs) {
    return forward(idx, [&](CommunicationLib& lib) -> unsigned char {
        unsigned char record[26 + 2 * 255] = {};
        const unsigned char status = lib.Fr_Receive(record, timeoutMs);
        if (status != kDeviceOk) return status;
        if (headerOut) std::memcpy(headerOut, record, 28);
        if (payloadOut) std::memcpy(payloadOut, record + 26, 2u * record[20]);
        return kDeviceOk;
    });
}

KELOCOMM_API unsigned char KFr_Transmit_Wrapper(signed char idx, unsigned char node,
                                                unsigned char buffer, unsigned char* data,
                                                unsigned char words) {
    return forward(
        idx, [&](CommunicationLib& lib) { return lib.Fr_Transmit(node, buffer, data, words); });
}

KELOCOMM_API unsigned char KFr_ReplaySend_Wrapper(signed char idx, unsigned char node,
                                                  unsigned char channel, unsigned char* data,
                                                  unsigned short length) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_ReplaySend(node, channel, reinterpret_cast<const char*>(data), length);
    });
}

KELOCOMM_API unsigned char KFr_FillData_beforeTransmit_MultiFrame_Wrapper(signed char idx,
                                                                          unsigned char entry,
                                                                          unsigned char buffer,
                                                                          unsigned char* data,
                                                                          unsigned char length) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_FillData_beforeTransmit_MultiFrame(entry, buffer, data, length);
    });
}

KELOCOMM_API unsigned char KFr_Set_WorkMode_Wrapper(signed char idx, unsigned char node,
                                                    unsigned char mode, unsigned char flag) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_Set_WorkMode(1, node, static_cast<char>(mode), flag);
    });
}

KELOCOMM_API unsigned char KFr_WriteValue_Wrapper(signed char idx, unsigned char node,
                                                  unsigned int which, unsigned int value) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_WriteValue(1, node, which, static_cast<int>(value));
    });
}

KELOCOMM_API unsigned char KFr_ReadValue_Wrapper(signed char idx, unsigned char node,
                                                 unsigned int which, unsigned int* value) {
    return forward(idx,
                   [&](CommunicationLib& lib) { return lib.Fr_ReadValue(1, node, which, value); });
}

KELOCOMM_API unsigned char KFr_SetNodeRxTimeout_Wrapper(signed char idx, unsigned char node,
                                                        unsigned int timeout) {
    return forward(
        idx, [&](CommunicationLib& lib) { return lib.Fr_SetNodeRxTimeout(1, node, timeout); });
}

}  // extern "C"

KELOCOMM_API unsigned char KFr_Transmit_MultiFrame_Wrapper(signed char idx, unsigned char node,
                                                           unsigned char count,
                                                           unsigned char* result,
                                                           unsigned char wait) {
    return forward(idx, [&](CommunicationLib& lib) {
        return lib.Fr_Transmit_MultiFrame(node, count, result, wait);
    });
}
