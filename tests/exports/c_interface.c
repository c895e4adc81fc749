/* A C99 caller of the flat interface: the public header compiles as C and its functions link
 * from C. The session returns 0 on success, otherwise the number of the step that failed. */
#include "KeLoComm.h"
#include "record_layout.h"

int kelo_c_flexray_session(const char* address, unsigned int* deviceVersion);
const size_t* kelo_c_record_layout(int* count);

/* Steps on an open FlexRay device; the caller closes it. */
static int flexRaySteps(signed char idx, unsigned int* deviceVersion) {
    unsigned int libraryVersion = 0;
    unsigned char state = 0xEE, subState = 0xEE;
    unsigned char header[28], payload[510];

    if (KeLo_get_software_version_Wrapper(idx, &libraryVersion, deviceVersion) != 0) return 10;
    if (libraryVersion != 0x02000006u) return 11;
    if (KFr_Configure_Node_Wrapper(idx, 0) != 0) return 12;
    if (KFr_GetFrNodeState_Wrapper(idx, 0, &state, &subState) != 0) return 13;
    if (state != 1) return 14; /* ready after the configure */
    if (KFr_framesAvailable_Wrapper(idx) != 0) return 15;
    if (KFr_Receive_Wrapper(idx, header, payload, 20) != 2) return 16;
    return 0;
}

int kelo_c_flexray_session(const char* address, unsigned int* deviceVersion) {
    int step;
    signed char idx = KFr_Open_Wrapper(address);
    if (idx <= 0) return 1;
    step = flexRaySteps(idx, deviceVersion);
    if (KFr_Close_Wrapper(idx) != 0 && step == 0) return 2;
    if (step == 0 && KFr_Configure_Node_Wrapper(idx, 0) != 6) return 3; /* the index is gone */
    return step;
}

/* The caller records as C lays them out. */
static const size_t layout[] = {KELO_RECORD_LAYOUT};

const size_t* kelo_c_record_layout(int* count) {
    *count = (int)(sizeof layout / sizeof layout[0]);
    return layout;
}
