// The KFr_Fibex_* exports: each is one call into the shared step (export_steps.h) over the FIBEX
// view, which catches everything at the boundary and answers with a status.
#include "KeLoComm.h"
#include "dbapi/export_steps.h"
#include "dbapi/fibex_view.h"

using namespace kelo::dbapi;
using Fibex = FibexView;

extern "C" {

KELOCOMM_API unsigned char KFr_Fibex_Open(const char* path) {
    return openDatabase<Fibex>(path);
}

KELOCOMM_API unsigned char KFr_Fibex_Close(void) {
    return closeDatabase<Fibex>();
}

KELOCOMM_API unsigned char KFr_Fibex_GetFrameName(const unsigned char* rxHeader, char* nameOut) {
    return frameNameOfHeader<Fibex>(rxHeader, nameOut);
}

KELOCOMM_API unsigned char KFr_Fibex_GetFrameName_BySignalName(const char* signalName,
                                                               char* frameNameOut,
                                                               unsigned char* firstUse) {
    return frameNameBySignal<Fibex>(signalName, frameNameOut, firstUse);
}

KELOCOMM_API unsigned char KFr_Fibex_GetMaxNameLength(unsigned int* length) {
    return maxNameLength<Fibex>(length);
}

KELOCOMM_API unsigned char KFr_Fibex_decodeSignal(const unsigned char* rxHeader,
                                                  const unsigned char* payload,
                                                  const char* signalName, float* value) {
    return decodeSignal<Fibex>(rxHeader, payload, signalName, value);
}

KELOCOMM_API unsigned char KFr_Fibex_encodeSignal(const char* signalName, float value,
                                                  unsigned char* payload,
                                                  unsigned char payloadLength) {
    return encodeSignal<Fibex>(signalName, value, payload, payloadLength);
}

KELOCOMM_API unsigned char KFr_Fibex_GetSlotParameter(const char* frameName, unsigned char p2,
                                                      unsigned char p3, unsigned char* block) {
    return slotParameter<Fibex>(frameName, p2, p3, block);
}

KELOCOMM_API unsigned char KFr_Fibex_GetParameter(const char* clusterName, const char* ecuName,
                                                  unsigned char* clusterBlock,
                                                  unsigned char* nodeBlock,
                                                  unsigned char* ccBlock) {
    return parameters<Fibex>(clusterName, ecuName, clusterBlock, nodeBlock, ccBlock);
}

KELOCOMM_API unsigned char KFr_Fibex_GetPDUinfo(const char* frameKey, int index,
                                                unsigned char* info) {
    return guardedStatus([&]() { return Fibex::pduInfo(frameKey, index, info); });
}

KELOCOMM_API unsigned char KFr_Fibex_Set_Slot_Parameter_Wrapper(unsigned char idx,
                                                                unsigned char node,
                                                                const char* frameName,
                                                                unsigned char p3,
                                                                unsigned char p4) {
    return setSlotByName<Fibex>(idx, node, frameName, p3, p4);
}

KELOCOMM_API unsigned char KFr_Fibex_Transmit_Wrapper(unsigned char idx, unsigned char p1,
                                                      const char* frameName, unsigned char* data,
                                                      unsigned char length) {
    return transmitByName<Fibex>(idx, p1, frameName, data, length);
}

// p1 is not used.
KELOCOMM_API unsigned char KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
    unsigned char idx, unsigned char /*p1*/, const char* frameName, unsigned char p3,
    unsigned char* data, unsigned char p5) {
    return stageByName<Fibex>(idx, frameName, p3, data, p5);
}

KELOCOMM_API unsigned char KFr_Fibex_Receive_Wrapper(signed char idx, unsigned char* headerOut,
                                                     unsigned char* payloadOut, char* frameNameOut,
                                                     unsigned int param) {
    return receiveByName<Fibex>(idx, headerOut, payloadOut, frameNameOut, param);
}

}  // extern "C"

// Exported under its C++ (decorated) name.
KELOCOMM_API unsigned char KFr_Fibex_GetControllerParameter(const char* ecuName, fnpt* node) {
    return controllerParameter<Fibex>(ecuName, node);
}
