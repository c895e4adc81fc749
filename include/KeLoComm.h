/* KeLoComm flat interface: plain C functions over a table of open devices.
 *
 * Open a device with KFr_Open_Wrapper (FlexRay) or KCAN_Open_Wrapper (CAN); the result is a small
 * device index (1..126) on success, or minus the open's status. Every other export takes that
 * index and returns an unsigned status: 0 success, 1 refused by the device, 2 no reply in time,
 * 3 not sent, 4 link not open, 5 bad argument, 6 bad device index; see docs/api.md.
 * Nothing is thrown across this interface. Compiles as C99 and as C++. */
#ifndef KELOCOMM_H
#define KELOCOMM_H

#include "kelocomm_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Receive FIFO configuration as the caller passes it (34 bytes, natural alignment). */
typedef struct KFrFifoRecord {
    unsigned short rejectFrameId; /* offset 0 */
    unsigned short rejectMask;    /* offset 2 */
    unsigned short depth;         /* offset 4 */
    unsigned short criteria;      /* offset 6 */
    unsigned char group0Enable;   /* 8 */
    unsigned short group0FrameId; /* 10 */
    unsigned short group0Mask;    /* 12 */
    unsigned char group0Channel;  /* 14 */
    unsigned char group1Enable;   /* 15 */
    unsigned short group1FrameId; /* 16 */
    unsigned short group1Mask;    /* 18 */
    unsigned char group1Channel;  /* 20 */
    unsigned char group2Enable;   /* 21 */
    unsigned short group2FrameId; /* 22 */
    unsigned short group2Mask;    /* 24 */
    unsigned char group2Channel;  /* 26 */
    unsigned char group3Enable;   /* 27 */
    unsigned short group3FrameId; /* 28 */
    unsigned short group3Mask;    /* 30 */
    unsigned char group3Channel;  /* 32 */
} KFrFifoRecord;

/* Key-slot configuration: two entries (startup/sync frames), 8 bytes. */
typedef struct KFrKeySlotEntry {
    unsigned short slot;
    unsigned char channels;
    unsigned char flags;
} KFrKeySlotEntry;
typedef struct KFrKeySlotRecord {
    KFrKeySlotEntry entry[2];
} KFrKeySlotRecord;

/* ---- open and close ---- */
KELOCOMM_API signed char KFr_Open_Wrapper(const char* deviceAddress);
KELOCOMM_API signed char KCAN_Open_Wrapper(const char* deviceAddress, unsigned char canParam);
KELOCOMM_API unsigned char KFr_Close_Wrapper(signed char idx);
KELOCOMM_API unsigned char KCAN_Close_Wrapper(signed char idx);

/* ---- FlexRay ---- */
KELOCOMM_API unsigned char KFr_Set_Cluster_Parameter_Wrapper(signed char idx, unsigned char node,
                                                             unsigned char* block /* 36 */);
KELOCOMM_API unsigned char KFr_Set_Node_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          unsigned char* block /* 48 */);
KELOCOMM_API unsigned char KFr_Set_CC_Parameter_Wrapper(signed char idx, unsigned char node,
                                                        unsigned char* block /* 5 */);
KELOCOMM_API unsigned char KFr_Set_Slot_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          unsigned char* block /* 12 */);
KELOCOMM_API unsigned char KFr_Set_Fifo_Parameter_Wrapper(signed char idx, unsigned char node,
                                                          KFrFifoRecord* fifo);
KELOCOMM_API unsigned char KFr_SetFrPhyNodeKeySlot_Wrapper(signed char idx, unsigned char node,
                                                           KFrKeySlotRecord* keySlots);
KELOCOMM_API unsigned char KFr_Configure_Node_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_SendWakeUp_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_Start_Node_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_Stop_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_StartFrRxUpload_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_StopFrRxUpload_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_ClearRcvBuffer_Wrapper(signed char idx, unsigned char node);
KELOCOMM_API unsigned char KFr_GetFrNodeState_Wrapper(signed char idx, unsigned char node,
                                                      void* state, void* subState);
KELOCOMM_API unsigned char KFr_GetFrPSRState_Wrapper(signed char idx, unsigned char node,
                                                     void* psr /* 8 */);
KELOCOMM_API unsigned char KFr_GetFrNWVector_Wrapper(signed char idx, unsigned char node,
                                                     void* vector /* 12 */, void* length);
KELOCOMM_API int KFr_framesAvailable_Wrapper(signed char idx);
KELOCOMM_API unsigned char KFr_Receive_Wrapper(signed char idx, unsigned char* headerOut /* 28 */,
                                               unsigned char* payloadOut /* 510 */,
                                               unsigned int timeoutMs);
KELOCOMM_API unsigned char KFr_Transmit_Wrapper(signed char idx, unsigned char node,
                                                unsigned char buffer, unsigned char* data,
                                                unsigned char words);
KELOCOMM_API unsigned char KFr_ReplaySend_Wrapper(signed char idx, unsigned char node,
                                                  unsigned char channel, unsigned char* data,
                                                  unsigned short length);
KELOCOMM_API unsigned char KFr_FillData_beforeTransmit_MultiFrame_Wrapper(signed char idx,
                                                                          unsigned char entry,
                                                                          unsigned char buffer,
                                                                          unsigned char* data,
                                                                          unsigned char length);
KELOCOMM_API unsigned char KFr_Set_WorkMode_Wrapper(signed char idx, unsigned char node,
                                                    unsigned char mode, unsigned char flag);
KELOCOMM_API unsigned char KFr_WriteValue_Wrapper(signed char idx, unsigned char node,
                                                  unsigned int which, unsigned int value);
KELOCOMM_API unsigned char KFr_ReadValue_Wrapper(signed char idx, unsigned char node,
                                                 unsigned int which, unsigned int* value);
KELOCOMM_API unsigned char KFr_SetNodeRxTimeout_Wrapper(signed char idx, unsigned char node,
                                                        unsigned int timeout);

/* ---- CAN ---- */
KELOCOMM_API unsigned char KCAN_Configure_Wrapper(signed char idx, void* config /* 52 */);
KELOCOMM_API unsigned char KCAN_SetNodeRxTimeout_Wrapper(signed char idx, unsigned int timeout);
KELOCOMM_API unsigned char KCAN_Start_Wrapper(signed char idx);
KELOCOMM_API unsigned char KCAN_Stop_Wrapper(signed char idx);
KELOCOMM_API unsigned char KCAN_Transmit_Wrapper(signed char idx, unsigned char* frame /* 12 */,
                                                 unsigned char* data);
KELOCOMM_API unsigned char KCAN_Receive_Wrapper(signed char idx, unsigned char* headerOut /* 24 */,
                                                unsigned char* payloadOut /* 510 */,
                                                unsigned int timeoutMs);
KELOCOMM_API unsigned char KCAN_framesAvailable_Wrapper(signed char idx, unsigned int* count);
KELOCOMM_API unsigned char KCAN_ClearRcvBuffer_Wrapper(signed char idx);

/* ---- device management ---- */
KELOCOMM_API unsigned char KeLo_SetTimeOffset_Wrapper(signed char idx, long long seconds);
KELOCOMM_API unsigned char KeLo_get_software_version_Wrapper(signed char idx,
                                                             unsigned int* libraryVersion,
                                                             unsigned int* deviceVersion);
KELOCOMM_API unsigned char Kelo_ResetCPU_Wrapper(signed char idx);
KELOCOMM_API unsigned char KFrSetDevIp_Wrapper(signed char idx, const char* address);

#ifdef __cplusplus
}

/* Exported under its C++ (decorated) name; C callers use the staging export above and the
 * device object's multi-frame operation through C++. */
KELOCOMM_API unsigned char KFr_Transmit_MultiFrame_Wrapper(signed char idx, unsigned char node,
                                                           unsigned char count,
                                                           unsigned char* result,
                                                           unsigned char wait);
#endif

#endif /* KELOCOMM_H */
