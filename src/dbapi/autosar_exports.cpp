// The KFr_AutoSar_* exports: the ones both formats have come from KELO_DATABASE_EXPORTS, the
// AUTOSAR-only ones (the list queries, the controller block under its plain name) follow. Each
// is one call into a shared step (export_steps.h) over the AUTOSAR view, which catches
// everything at the boundary and answers with a status.
#include "KeLoComm.h"
#include "dbapi/autosar_view.h"
#include "dbapi/export_steps.h"
#include "dbapi/shared_exports.h"

using namespace kelo::dbapi;
using Autosar = AutosarView;

extern "C" {

KELO_DATABASE_EXPORTS(AutoSar, AutosarView)

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

KELOCOMM_API unsigned char KFr_AutoSar_GetControllerParameter(const char* ecuName, fnpt* node) {
    return controllerParameter<Autosar>(ecuName, node);
}

}  // extern "C"
