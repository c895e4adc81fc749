// The database exports both formats have, defined once: KELO_DATABASE_EXPORTS(Fibex, FibexView)
// defines KFr_Fibex_Open, _OpenEx, _Close, _GetMaxNameLength, _GetFrameName,
// _GetFrameName_BySignalName, _decodeSignal, _encodeSignal, _GetSlotParameter, _GetParameter,
// _Set_Slot_Parameter_Wrapper, _Transmit_Wrapper and _Receive_Wrapper as one call each into the
// shared step (export_steps.h) over the format's view. Used inside extern "C" in each format's
// export file.
#pragma once

#include "KeLoComm.h"
#include "dbapi/export_steps.h"

#define KELO_DATABASE_EXPORTS(Prefix, View)                                                        \
    KELOCOMM_API unsigned char KFr_##Prefix##_Open(const char* path) {                             \
        return kelo::dbapi::openDatabase<View>(path);                                              \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_OpenEx(const char* path, unsigned int flags) {       \
        return kelo::dbapi::openDatabase<View>(path, flags);                                       \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_Close(void) {                                        \
        return kelo::dbapi::closeDatabase<View>();                                                 \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_GetMaxNameLength(unsigned int* length) {             \
        return kelo::dbapi::maxNameLength<View>(length);                                           \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_GetFrameName(const unsigned char* rxHeader,          \
                                                           char* nameOut) {                        \
        return kelo::dbapi::frameNameOfHeader<View>(rxHeader, nameOut);                            \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_GetFrameName_BySignalName(                           \
        const char* signalName, char* frameNameOut, unsigned char* firstUse) {                     \
        return kelo::dbapi::frameNameBySignal<View>(signalName, frameNameOut, firstUse);           \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_decodeSignal(const unsigned char* rxHeader,          \
                                                           const unsigned char* payload,           \
                                                           const char* signalName, float* value) { \
        return kelo::dbapi::decodeSignal<View>(rxHeader, payload, signalName, value);              \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_encodeSignal(const char* signalName, float value,    \
                                                           unsigned char* payload,                 \
                                                           unsigned char payloadLength) {          \
        return kelo::dbapi::encodeSignal<View>(signalName, value, payload, payloadLength);         \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_GetSlotParameter(                                    \
        const char* frameName, unsigned char p2, unsigned char p3, unsigned char* block) {         \
        return kelo::dbapi::slotParameter<View>(frameName, p2, p3, block);                         \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_GetParameter(                                        \
        const char* clusterName, const char* ecuName, unsigned char* clusterBlock,                 \
        unsigned char* nodeBlock, unsigned char* ccBlock) {                                        \
        return kelo::dbapi::parameters<View>(clusterName, ecuName, clusterBlock, nodeBlock,        \
                                             ccBlock);                                             \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_Set_Slot_Parameter_Wrapper(                          \
        unsigned char idx, unsigned char node, const char* frameName, unsigned char p3,            \
        unsigned char p4) {                                                                        \
        return kelo::dbapi::setSlotByName<View>(idx, node, frameName, p3, p4);                     \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_Transmit_Wrapper(                                    \
        unsigned char idx, unsigned char p1, const char* frameName, unsigned char* data,           \
        unsigned char length) {                                                                    \
        return kelo::dbapi::transmitByName<View>(idx, p1, frameName, data, length);                \
    }                                                                                              \
    KELOCOMM_API unsigned char KFr_##Prefix##_Receive_Wrapper(                                     \
        signed char idx, unsigned char* headerOut, unsigned char* payloadOut, char* frameNameOut,  \
        unsigned int param) {                                                                      \
        return kelo::dbapi::receiveByName<View>(idx, headerOut, payloadOut, frameNameOut, param);  \
    }
