/* KeLoComm flat interface: plain C functions over a table of open devices.
 *
 * Open a device with KFr_Open_Wrapper (FlexRay) or KCAN_Open_Wrapper (CAN); the result is a small
 * device index (1..126) on success, or minus the open's status. Every other export takes that
 * index and returns an unsigned status: 0 success, 1 refused by the device, 2 no reply in time,
 * 3 not sent, 4 link not open, 5 bad argument, 6 bad device index; see docs/api.md.
 * The KFr_Fibex_* functions work on one process-wide FIBEX database opened with KFr_Fibex_Open,
 * the KFr_AutoSar_* functions on one AUTOSAR system description opened with KFr_AutoSar_Open.
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

/* FlexRay node (controller) parameters: the 48-byte block of KFr_Set_Node_Parameter_Wrapper, as
 * KFr_Fibex_GetControllerParameter fills it. Little-endian fields; see docs/databases.md. */
typedef struct fnpt {
    unsigned int listenTimeout;             /* 0  pdListenTimeout */
    unsigned char allowPassiveToActive;     /* 4  pAllowPassiveToActive */
    unsigned char allowHaltDueToClock;      /* 5  pAllowHaltDueToClock */
    unsigned char clusterDriftDamping;      /* 6  pClusterDriftDamping */
    unsigned char decodingCorrection;       /* 7  pDecodingCorrection */
    unsigned char delayCompensationA;       /* 8  pDelayCompensation[A] */
    unsigned char delayCompensationB;       /* 9  pDelayCompensation[B] */
    unsigned short acceptedStartupRange;    /* 10 pdAcceptedStartupRange */
    unsigned short maxDrift;                /* 12 pdMaxDrift */
    unsigned short latestTx;                /* 14 pLatestTx */
    unsigned short keySlotId;               /* 16 pKeySlotId (0 without a key slot) */
    unsigned char keySlotUsedForStartup;    /* 18 pKeySlotUsedForStartup */
    unsigned char keySlotUsedForSync;       /* 19 pKeySlotUsedForSync */
    unsigned short offsetCorrectionOut;     /* 20 pOffsetCorrectionOut */
    unsigned char externOffsetCorrection;   /* 22 pExternOffsetCorrection */
    unsigned char externRateCorrection;     /* 23 pExternRateCorrection */
    unsigned int microPerCycle;             /* 24 pMicroPerCycle */
    unsigned int microPerMacroNom;          /* 28 pMicroPerMacroNom */
    unsigned char microPerMacro;            /* 32 pMicroPerCycle / gMacroPerCycle, 40 if unknown */
    unsigned char reserved33;               /* 33 0 */
    unsigned short rateCorrectionOut;       /* 34 pRateCorrectionOut */
    unsigned short maxPayloadLengthDynamic; /* 36 pPayloadLengthDynMax */
    unsigned char macroInitialOffsetA;      /* 38 pMacroInitialOffset[A] */
    unsigned char wakeUpPatternMinus1;      /* 39 pWakeupPattern - 1 */
    unsigned char macroInitialOffsetB;      /* 40 pMacroInitialOffset[B] */
    unsigned char reserved41;               /* 41 0 */
    unsigned short singleSlotEnabled;       /* 42 pSingleSlotEnabled */
    unsigned short reserved44;              /* 44 always 0 */
    unsigned char microInitialOffsetA;      /* 46 pMicroInitialOffset[A] */
    unsigned char microInitialOffsetB;      /* 47 pMicroInitialOffset[B] */
} fnpt;

/* ---- open and close ---- */
KELOCOMM_API signed char KFr_Open_Wrapper(const char* deviceAddress);
KELOCOMM_API signed char KCAN_Open_Wrapper(const char* deviceAddress, unsigned char canParam);
KELOCOMM_API unsigned char KFr_Close_Wrapper(signed char idx);
KELOCOMM_API unsigned char KCAN_Close_Wrapper(signed char idx);

/* Opens with options. Flags 0 behave exactly like KFr_Open_Wrapper / KCAN_Open_Wrapper.
 * KELO_DEVICE_STRICT opens a strict link: an address that is not dotted IPv4 fails the open at
 * once (-3) instead of waiting for a device that cannot be reached; a reply completes only the
 * call that sent its command, so a late or duplicated reply cannot answer a later call; the CAN
 * receive queue holds at most 100,000 records and takes none while CAN is not open. An unknown
 * flag bit returns -5 and opens nothing. */
#define KELO_DEVICE_STRICT 0x1u
KELOCOMM_API signed char KFr_OpenEx_Wrapper(const char* deviceAddress, unsigned int flags);
KELOCOMM_API signed char KCAN_OpenEx_Wrapper(const char* deviceAddress, unsigned char canParam,
                                             unsigned int flags);

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

/* A short English sentence for a device status: the result of any device export, or minus the
 * result of a failed open. An unknown number gives "unknown device status N". The text is never
 * freed or changed; safe to call from any thread. */
KELOCOMM_API const char* KeLo_DeviceStatusText(unsigned char status);

/* ---- FIBEX database (one process-wide database; see docs/api.md) ----
 * Database status codes: 0 success, 5 unknown cluster/ECU, index out of range or a null
 * argument, 7 file not loadable, 9 no database loaded (or not a file; ECU without controller),
 * 14 unknown signal, 15 signal does not fit the payload, 16 signal not in the frame / no frame,
 * 17 no frame at that slot and cycle / unknown frame.
 * Name outputs are copied without a bound: give buffers of KFr_Fibex_GetMaxNameLength bytes. */
KELOCOMM_API unsigned char KFr_Fibex_Open(const char* path);
/* Opens with options. Flags 0 behave exactly like KFr_Fibex_Open / KFr_AutoSar_Open.
 * KELO_DB_READ_ALL reads files the way authoring tools write them (see docs/databases.md,
 * "Reading whole files"): every scheduled timing of a frame triggering enters the slot table;
 * AUTOSAR elements are read from every package at every depth, references resolve by their full
 * path, a compu-method without a known CATEGORY gets the one its scales imply; what still cannot
 * be read is skipped instead of refusing the file. An unknown flag bit returns 5 and changes
 * nothing. */
#define KELO_DB_READ_ALL 0x1u
KELOCOMM_API unsigned char KFr_Fibex_OpenEx(const char* path, unsigned int flags);
KELOCOMM_API unsigned char KFr_Fibex_Close(void);
KELOCOMM_API unsigned char KFr_Fibex_GetMaxNameLength(unsigned int* length);
KELOCOMM_API unsigned char KFr_Fibex_GetFrameName(const unsigned char* rxHeader /* 28 */,
                                                  char* nameOut);
KELOCOMM_API unsigned char KFr_Fibex_GetFrameName_BySignalName(const char* signalName,
                                                               char* frameNameOut,
                                                               unsigned char* firstUse);
KELOCOMM_API unsigned char KFr_Fibex_decodeSignal(const unsigned char* rxHeader /* 28 */,
                                                  const unsigned char* payload /* 510 */,
                                                  const char* signalName, float* value);
KELOCOMM_API unsigned char KFr_Fibex_encodeSignal(const char* signalName, float value,
                                                  unsigned char* payload,
                                                  unsigned char payloadLength);
KELOCOMM_API unsigned char KFr_Fibex_GetSlotParameter(const char* frameName, unsigned char p2,
                                                      unsigned char p3,
                                                      unsigned char* block /* 12 */);
KELOCOMM_API unsigned char KFr_Fibex_GetParameter(const char* clusterName, const char* ecuName,
                                                  unsigned char* clusterBlock /* 36 */,
                                                  unsigned char* nodeBlock /* 48 */,
                                                  unsigned char* ccBlock /* 5 */);
KELOCOMM_API unsigned char KFr_Fibex_GetPDUinfo(const char* frameKey, int index,
                                                unsigned char* info /* 4 */);
KELOCOMM_API unsigned char KFr_Fibex_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                unsigned char node,
                                                                const char* frameName,
                                                                unsigned char p3, unsigned char p4);
KELOCOMM_API unsigned char KFr_Fibex_Transmit_Wrapper(unsigned char idx, unsigned char node,
                                                      const char* frameName, unsigned char* data,
                                                      unsigned char length);
KELOCOMM_API unsigned char KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
    unsigned char idx, unsigned char p1, const char* frameName, unsigned char entry,
    unsigned char* data, unsigned char length);
/* Only device index 0 passes this export's index check (see docs/api.md). */
KELOCOMM_API unsigned char KFr_Fibex_Receive_Wrapper(signed char idx,
                                                     unsigned char* headerOut /* 28 */,
                                                     unsigned char* payloadOut /* 510 */,
                                                     char* frameNameOut, unsigned int timeoutMs);

/* ---- AUTOSAR system description (one process-wide database, independent of the FIBEX one) ----
 * Same status codes as the FIBEX functions, plus 21 list buffer too small and 22 unknown cluster,
 * ECU or frame name for the list queries. Lists are ";"-separated names in a zero-filled buffer;
 * a list that fills every byte has no terminating NUL (see docs/api.md). */
KELOCOMM_API unsigned char KFr_AutoSar_Open(const char* path);
KELOCOMM_API unsigned char KFr_AutoSar_OpenEx(const char* path, unsigned int flags);
KELOCOMM_API unsigned char KFr_AutoSar_Close(void);
KELOCOMM_API unsigned char KFr_AutoSar_GetMaxNameLength(unsigned int* length);
KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName(const unsigned char* rxHeader /* 28 */,
                                                    char* nameOut);
KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName_BySignalName(const char* signalName,
                                                                 char* frameNameOut,
                                                                 unsigned char* firstUse);
KELOCOMM_API unsigned char KFr_AutoSar_GetAllClusterName(char* buf, unsigned int bufSize,
                                                         unsigned int* total, unsigned int* count);
KELOCOMM_API unsigned char KFr_AutoSar_GetAllECUName(char* buf, unsigned int bufSize,
                                                     unsigned int* total, unsigned int* count);
KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByClusterName(const char* clusterName,
                                                                     char* buf,
                                                                     unsigned int bufSize,
                                                                     unsigned int* total,
                                                                     unsigned int* count);
KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByECUName(const char* ecuName, char* buf,
                                                                 unsigned int bufSize,
                                                                 unsigned int* total,
                                                                 unsigned int* count);
KELOCOMM_API unsigned char KFr_AutoSar_GetAllSignalName_ByFrameName(const char* frameName,
                                                                    char* buf, unsigned int bufSize,
                                                                    unsigned int* total,
                                                                    unsigned int* count);
KELOCOMM_API unsigned char KFr_AutoSar_decodeSignal(const unsigned char* rxHeader /* 28 */,
                                                    const unsigned char* payload /* 510 */,
                                                    const char* signalName, float* value);
KELOCOMM_API unsigned char KFr_AutoSar_encodeSignal(const char* signalName, float value,
                                                    unsigned char* payload,
                                                    unsigned char payloadLength);
KELOCOMM_API unsigned char KFr_AutoSar_GetSlotParameter(const char* frameName, unsigned char p2,
                                                        unsigned char p3,
                                                        unsigned char* block /* 12 */);
KELOCOMM_API unsigned char KFr_AutoSar_GetParameter(const char* clusterName, const char* ecuName,
                                                    unsigned char* clusterBlock /* 36 */,
                                                    unsigned char* nodeBlock /* 48 */,
                                                    unsigned char* ccBlock /* 5 */);
KELOCOMM_API unsigned char KFr_AutoSar_GetControllerParameter(const char* ecuName, fnpt* node);
KELOCOMM_API unsigned char KFr_AutoSar_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                  unsigned char node,
                                                                  const char* frameName,
                                                                  unsigned char p3,
                                                                  unsigned char p4);
KELOCOMM_API unsigned char KFr_AutoSar_Transmit_Wrapper(unsigned char idx, unsigned char node,
                                                        const char* frameName, unsigned char* data,
                                                        unsigned char length);
/* Only device index 0 passes this export's index check (see docs/api.md). */
KELOCOMM_API unsigned char KFr_AutoSar_Receive_Wrapper(signed char idx,
                                                       unsigned char* headerOut /* 28 */,
                                                       unsigned char* payloadOut /* 510 */,
                                                       char* frameNameOut, unsigned int timeoutMs);

/* A short English sentence for the status of any KFr_Fibex_* or KFr_AutoSar_* export. An unknown
 * number gives "unknown database status N". The text is never freed or changed; safe to call from
 * any thread. */
KELOCOMM_API const char* KeLo_DatabaseStatusText(unsigned char status);

#ifdef __cplusplus
}

/* Exported under its C++ (decorated) name; C callers use the staging export above and the
 * device object's multi-frame operation through C++. */
KELOCOMM_API unsigned char KFr_Transmit_MultiFrame_Wrapper(signed char idx, unsigned char node,
                                                           unsigned char count,
                                                           unsigned char* result,
                                                           unsigned char wait);
/* Exported under its C++ (decorated) name: the ECU's first controller into a node block. */
KELOCOMM_API unsigned char KFr_Fibex_GetControllerParameter(const char* ecuName, fnpt* node);
#endif

#endif /* KELOCOMM_H */
