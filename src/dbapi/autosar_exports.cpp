// The KFr_AutoSar_* exports: each is one call into the shared step (export_steps.h) over the
// AUTOSAR view, which catches everything at the boundary and answers with a status. The list
// queries are AUTOSAR's own; everything else is the FIBEX exports' step on other records.
#include "KeLoComm.h"
#include "dbapi/autosar_view.h"
#include "dbapi/export_steps.h"

using namespace kelo::dbapi;
using Autosar = AutosarView;

extern "C" {

KELOCOMM_API unsigned char KFr_AutoSar_Open(const char* path) {
    return openDatabase<Autosar>(path);
}

KELOCOMM_API unsigned char KFr_AutoSar_Close(void) {
    return closeDatabase<Autosar>();
}

KELOCOMM_API unsigned char KFr_AutoSar_GetMaxNameLength(unsigned int* length) {
    return maxNameLength<Autosar>(length);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName(const unsigned char* rxHeader, char* nameOut) {
    return frameNameOfHeader<Autosar>(rxHeader, nameOut);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetFrameName_BySignalName(const char* signalName,
                                                                 char* frameNameOut,
                                                                 unsigned char* firstUse) {
    return frameNameBySignal<Autosar>(signalName, frameNameOut, firstUse);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllClusterName(char* buf, unsigned int bufSize,
                                                         unsigned int* total, unsigned int* count) {
    return nameList<Autosar>(buf, bufSize, total, count, Autosar::clusterNames);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllECUName(char* buf, unsigned int bufSize,
                                                     unsigned int* total, unsigned int* count) {
    return nameList<Autosar>(buf, bufSize, total, count, Autosar::ecuNames);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByClusterName(const char* clusterName,
                                                                     char* buf,
                                                                     unsigned int bufSize,
                                                                     unsigned int* total,
                                                                     unsigned int* count) {
    return keyedNameList<Autosar>(clusterName, buf, bufSize, total, count, Autosar::clusters,
                                  Autosar::framesOfCluster);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllFrameName_ByECUName(const char* ecuName, char* buf,
                                                                 unsigned int bufSize,
                                                                 unsigned int* total,
                                                                 unsigned int* count) {
    return keyedNameList<Autosar>(ecuName, buf, bufSize, total, count, Autosar::ecus,
                                  Autosar::framesOfEcu);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetAllSignalName_ByFrameName(const char* frameName,
                                                                    char* buf, unsigned int bufSize,
                                                                    unsigned int* total,
                                                                    unsigned int* count) {
    return keyedNameList<Autosar>(frameName, buf, bufSize, total, count, Autosar::frames,
                                  Autosar::signalsOfFrame);
}

KELOCOMM_API unsigned char KFr_AutoSar_decodeSignal(const unsigned char* rxHeader,
                                                    const unsigned char* payload,
                                                    const char* signalName, float* value) {
    return decodeSignal<Autosar>(rxHeader, payload, signalName, value);
}

KELOCOMM_API unsigned char KFr_AutoSar_encodeSignal(const char* signalName, float value,
                                                    unsigned char* payload,
                                                    unsigned char payloadLength) {
    return encodeSignal<Autosar>(signalName, value, payload, payloadLength);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetSlotParameter(const char* frameName, unsigned char p2,
                                                        unsigned char p3, unsigned char* block) {
    return slotParameter<Autosar>(frameName, p2, p3, block);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetParameter(const char* clusterName, const char* ecuName,
                                                    unsigned char* clusterBlock,
                                                    unsigned char* nodeBlock,
                                                    unsigned char* ccBlock) {
    return parameters<Autosar>(clusterName, ecuName, clusterBlock, nodeBlock, ccBlock);
}

KELOCOMM_API unsigned char KFr_AutoSar_GetControllerParameter(const char* ecuName, fnpt* node) {
    return controllerParameter<Autosar>(ecuName, node);
}

KELOCOMM_API unsigned char KFr_AutoSar_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                  unsigned char node,
                                                                  const char* frameName,
                                                                  unsigned char p3,
                                                                  unsigned char p4) {
    return setSlotByName<Autosar>(idx, node, frameName, p3, p4);
}

KELOCOMM_API unsigned char KFr_AutoSar_Transmit_Wrapper(unsigned char idx, unsigned char p1,
                                                        const char* frameName, unsigned char* data,
                                                        unsigned char length) {
    return transmitByName<Autosar>(idx, p1, frameName, data, length);
}

KELOCOMM_API unsigned char KFr_AutoSar_Receive_Wrapper(signed char idx, unsigned char* headerOut,
                                                       unsigned char* payloadOut,
                                                       char* frameNameOut, unsigned int param) {
    return receiveByName<Autosar>(idx, headerOut, payloadOut, frameNameOut, param);
}

}  // extern "C"
