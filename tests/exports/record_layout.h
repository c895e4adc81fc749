/* The caller records' sizes and field offsets in declaration order, as one initializer list that
 * c_interface.c evaluates as C and c_interface_test.cpp as C++. */
#pragma once

#include <stddef.h>

#include "KeLoComm.h"

#define KELO_FIFO_GROUP_LAYOUT(n)                                                          \
    offsetof(KFrFifoRecord, group##n##Enable), offsetof(KFrFifoRecord, group##n##FrameId), \
        offsetof(KFrFifoRecord, group##n##Mask), offsetof(KFrFifoRecord, group##n##Channel)

#define KELO_RECORD_LAYOUT                                                                        \
    sizeof(KFrFifoRecord), offsetof(KFrFifoRecord, rejectFrameId),                                \
        offsetof(KFrFifoRecord, rejectMask), offsetof(KFrFifoRecord, depth),                      \
        offsetof(KFrFifoRecord, criteria), KELO_FIFO_GROUP_LAYOUT(0), KELO_FIFO_GROUP_LAYOUT(1),  \
        KELO_FIFO_GROUP_LAYOUT(2), KELO_FIFO_GROUP_LAYOUT(3), sizeof(KFrKeySlotRecord),           \
        offsetof(KFrKeySlotRecord, entry[1].slot), offsetof(KFrKeySlotRecord, entry[1].channels), \
        offsetof(KFrKeySlotRecord, entry[1].flags)
