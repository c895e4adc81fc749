// The KFr_Fibex_* exports: the ones both formats have come from KELO_DATABASE_EXPORTS, the
// FIBEX-only ones follow. Each is one call into a shared step (export_steps.h) over the FIBEX
// view, which catches everything at the boundary and answers with a status.
#include "KeLoComm.h"
#include "dbapi/export_steps.h"
#include "dbapi/fibex_view.h"
#include "dbapi/shared_exports.h"

using namespace kelo::dbapi;
using Fibex = FibexView;

extern "C" {

KELO_DATABASE_EXPORTS(Fibex, FibexView)

KELOCOMM_API unsigned char KFr_Fibex_GetPDUinfo(const char* frameKey, int index,
                                                unsigned char* info) {
    return guardedStatus([&]() { return Fibex::pduInfo(frameKey, index, info); });
}

// p1 is not used.
KELOCOMM_API unsigned char KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(
    unsigned char idx, unsigned char /*p1*/, const char* frameName, unsigned char p3,
    unsigned char* data, unsigned char p5) {
    return stageByName<Fibex>(idx, frameName, p3, data, p5);
}

}  // extern "C"

// Exported under its C++ (decorated) name.
KELOCOMM_API unsigned char KFr_Fibex_GetControllerParameter(const char* ecuName, fnpt* node) {
    return controllerParameter<Fibex>(ecuName, node);
}
