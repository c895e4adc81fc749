/* A C99 caller of the flat interface: the public header compiles as C and its functions link
 * from C. Each function returns 0 on success, otherwise the number of the step that failed. */
#include <stddef.h>
#include <string.h>

#include "KeLoComm.h"

int kelo_c_smoke(const char* address, unsigned int* deviceVersion);
int kelo_c_can_smoke(const char* address, unsigned char channel);
int kelo_c_record_layout(size_t* values, int capacity);

/* Steps on an open FlexRay device; the caller closes it. */
static int flexRaySteps(signed char idx, unsigned int* deviceVersion) {
    unsigned int libraryVersion = 0;
    unsigned char state = 0xEE, subState = 0xEE;
    unsigned char header[28], payload[510];
    unsigned char slot[12];
    KFrFifoRecord fifo;
    KFrKeySlotRecord keySlots;

    if (KeLo_get_software_version_Wrapper(idx, &libraryVersion, deviceVersion) != 0) return 10;
    if (libraryVersion != 0x02000006u) return 11;
    if (KFr_Configure_Node_Wrapper(idx, 0) != 0) return 12;
    if (KFr_GetFrNodeState_Wrapper(idx, 0, &state, &subState) != 0) return 13;
    if (state != 1) return 14; /* ready after the configure */

    memset(slot, 0, sizeof slot);
    slot[0] = 255; /* the device chooses the buffer */
    slot[2] = 5;   /* slot id 5 */
    slot[5] = 2;   /* two payload words */
    if (KFr_Set_Slot_Parameter_Wrapper(idx, 0, slot) != 0) return 15;
    if (slot[0] == 255) return 16;

    memset(&fifo, 0, sizeof fifo);
    fifo.depth = 16;
    fifo.group1Enable = 1;
    fifo.group1FrameId = 5;
    if (KFr_Set_Fifo_Parameter_Wrapper(idx, 0, &fifo) != 0) return 17;

    memset(&keySlots, 0, sizeof keySlots);
    keySlots.entry[0].slot = 1;
    keySlots.entry[1].slot = 2;
    if (KFr_SetFrPhyNodeKeySlot_Wrapper(idx, 0, &keySlots) != 0) return 18;

    if (KFr_framesAvailable_Wrapper(idx) != 0) return 19;
    if (KFr_Receive_Wrapper(idx, header, payload, 20) != 2) return 20;
    return 0;
}

int kelo_c_smoke(const char* address, unsigned int* deviceVersion) {
    int step;
    unsigned char closed;
    signed char idx = KFr_Open_Wrapper(address);
    if (idx <= 0) return 1;
    step = flexRaySteps(idx, deviceVersion);
    closed = KFr_Close_Wrapper(idx);
    if (step != 0) return step;
    if (closed != 0) return 2;
    if (KFr_Configure_Node_Wrapper(idx, 0) != 6) return 3; /* the index is gone */
    return 0;
}

/* Steps on an open CAN device; the caller closes it. The emulator echoes a transmitted frame
 * while the channel runs. */
static int canSteps(signed char idx, unsigned char channel) {
    unsigned char frame[12] = {0};
    unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char header[24], payload[510];
    unsigned int count = 99;
    int i;

    if (KCAN_Start_Wrapper(idx) != 0) return 10;
    frame[0] = 0x21; /* identifier 0x321 */
    frame[1] = 0x03;
    frame[8] = 8;
    if (KCAN_Transmit_Wrapper(idx, frame, data) != 0) return 11;
    if (KCAN_Receive_Wrapper(idx, header, payload, 5000) != 0) return 12;
    if (header[0] != channel || header[16] != 0x21 || header[17] != 0x03 || header[23] != 8)
        return 13;
    for (i = 0; i < 8; ++i)
        if (payload[i] != data[i] || payload[8 + i] != 0) return 14;
    if (KCAN_framesAvailable_Wrapper(idx, &count) != 0 || count != 0) return 15;
    frame[8] = 9;
    if (KCAN_Transmit_Wrapper(idx, frame, data) != 5) return 16;
    if (KCAN_Stop_Wrapper(idx) != 0) return 17;
    return 0;
}

int kelo_c_can_smoke(const char* address, unsigned char channel) {
    int step;
    unsigned char closed;
    signed char idx = KCAN_Open_Wrapper(address, channel);
    if (idx <= 0) return 1;
    step = canSteps(idx, channel);
    closed = KCAN_Close_Wrapper(idx);
    if (step != 0) return step;
    if (closed != 0) return 2;
    if (KCAN_Stop_Wrapper(idx) != 6) return 3;
    return 0;
}

/* The caller records as C lays them out: sizes and field offsets, in declaration order. */
int kelo_c_record_layout(size_t* values, int capacity) {
    const size_t layout[] = {
        sizeof(KFrFifoRecord),
        offsetof(KFrFifoRecord, rejectFrameId),
        offsetof(KFrFifoRecord, rejectMask),
        offsetof(KFrFifoRecord, depth),
        offsetof(KFrFifoRecord, criteria),
        offsetof(KFrFifoRecord, group0Enable),
        offsetof(KFrFifoRecord, group0FrameId),
        offsetof(KFrFifoRecord, group0Mask),
        offsetof(KFrFifoRecord, group0Channel),
        offsetof(KFrFifoRecord, group1Enable),
        offsetof(KFrFifoRecord, group1FrameId),
        offsetof(KFrFifoRecord, group1Mask),
        offsetof(KFrFifoRecord, group1Channel),
        offsetof(KFrFifoRecord, group2Enable),
        offsetof(KFrFifoRecord, group2FrameId),
        offsetof(KFrFifoRecord, group2Mask),
        offsetof(KFrFifoRecord, group2Channel),
        offsetof(KFrFifoRecord, group3Enable),
        offsetof(KFrFifoRecord, group3FrameId),
        offsetof(KFrFifoRecord, group3Mask),
        offsetof(KFrFifoRecord, group3Channel),
        sizeof(KFrKeySlotRecord),
        offsetof(KFrKeySlotRecord, entry[1].slot),
        offsetof(KFrKeySlotRecord, entry[1].channels),
        offsetof(KFrKeySlotRecord, entry[1].flags),
    };
    const int n = (int)(sizeof layout / sizeof layout[0]);
    int i;
    if (capacity < n) return -1;
    for (i = 0; i < n; ++i)
        values[i] = layout[i];
    return n;
}
