/* KeLoComm AUTOSAR example: a FlexRay node configured and driven from an AUTOSAR system
 * description.
 *
 * Usage: kelo_demo_autosar [DEVICE-ADDRESS [ARXML-FILE]]
 * The address defaults to 127.0.0.1; the file to $KELO_DEMO_AUTOSAR, else
 * examples/chassis-flexray-4.2.arxml. The program opens the system description and lists its
 * clusters, ECUs and the frames of the cluster, fills the cluster, node, controller and slot
 * blocks of the engine ECU from it, starts the node, encodes physical values into three frames,
 * transmits them by name and prints the frames the device sends back with their names and
 * decoded signal values; against kelo-emulator --database it then shows another ECU's signals
 * moving. Exit status 0 when every step succeeded. */
#include <KeLoComm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CLUSTER "FlexRayBackbone"
#define ECU "EngineControl"

struct SignalValue {
    const char* name;
    float value;
};

struct FrameToSend {
    const char* frame;
    struct SignalValue signals[6];
};

/* Three frames with their signal values; a signal list ends at a null name. */
static const struct FrameToSend frames[] = {
    {"Engine_Status_Frame",
     {{"EngineSpeed", 2400.0f},
      {"EngineSpeed_UB", 1.0f},
      {"EngineTemp", 92.0f},
      {"ThrottlePos", 35.6f},
      {"EngineAlive", 7.0f},
      {NULL, 0}}},
    {"Brake_Status_Frame",
     {{"BrakePressure", 45.5f}, {"BrakePressure_UB", 1.0f}, {"AbsActive", 1.0f}, {NULL, 0}}},
    {"Chassis_Frame",
     {{"YawRate", -3.5f}, {"VehicleSpeed", 88.25f}, {"VehicleSpeed_UB", 1.0f}, {NULL, 0}}},
};
#define FRAME_COUNT (sizeof frames / sizeof frames[0])

static unsigned char
    frameBytes[FRAME_COUNT]; /* payload length of each frame, from its slot block */
static int failures = 0;

static int check(const char* what, unsigned status) {
    if (status != 0) {
        printf("  %-44s failed with status %u\n", what, status);
        ++failures;
    }
    return status == 0;
}

static int frameIndex(const char* name) {
    size_t i;
    for (i = 0; i < FRAME_COUNT; ++i)
        if (strcmp(frames[i].frame, name) == 0) return (int)i;
    return -1;
}

/* The list queries fill a ';'-separated list; a list that fills the whole buffer has no
 * terminator, so the buffer handed over is one byte shorter than the zeroed array. */
static void showDatabase(void) {
    char list[1024];
    unsigned total = 0, count = 0;
    memset(list, 0, sizeof list);
    if (check("KFr_AutoSar_GetAllClusterName",
              KFr_AutoSar_GetAllClusterName(list, sizeof list - 1, &total, &count)))
        printf("  %u cluster(s): %s\n", total, list);
    if (check("KFr_AutoSar_GetAllECUName",
              KFr_AutoSar_GetAllECUName(list, sizeof list - 1, &total, &count)))
        printf("  %u ECU(s): %s\n", total, list);
    if (check("KFr_AutoSar_GetAllFrameName_ByClusterName",
              KFr_AutoSar_GetAllFrameName_ByClusterName(CLUSTER, list, sizeof list - 1, &total,
                                                        &count)))
        printf("  %u frame(s) in %s: %s\n", total, CLUSTER, list);
}

static void configureFromDatabase(signed char fr) {
    unsigned char cluster[36], node[48], cc[5];
    const fnpt* controller = (const fnpt*)node;
    size_t i;

    if (!check("KFr_AutoSar_GetParameter",
               KFr_AutoSar_GetParameter(CLUSTER, ECU, cluster, node, cc)))
        return;
    printf("  cluster %s: %u macroticks per cycle, %u static slots of %u macroticks\n", CLUSTER,
           cluster[0] | (cluster[1] << 8), cluster[4] | (cluster[5] << 8),
           cluster[2] | (cluster[3] << 8));
    printf("  node %s: key slot %u, %u microticks per cycle, %u per macrotick\n", ECU,
           controller->keySlotId, controller->microPerCycle, controller->microPerMacro);
    if (!check("KFr_Set_Cluster_Parameter_Wrapper",
               KFr_Set_Cluster_Parameter_Wrapper(fr, 0, cluster)) ||
        !check("KFr_Set_Node_Parameter_Wrapper", KFr_Set_Node_Parameter_Wrapper(fr, 0, node)) ||
        !check("KFr_Set_CC_Parameter_Wrapper", KFr_Set_CC_Parameter_Wrapper(fr, 0, cc)))
        return;
    for (i = 0; i < FRAME_COUNT; ++i) {
        unsigned char block[12];
        if (!check("KFr_AutoSar_GetSlotParameter",
                   KFr_AutoSar_GetSlotParameter(frames[i].frame, 0, 1, block)))
            return;
        frameBytes[i] = (unsigned char)(block[5] * 2);
        /* p3 0 (payload preamble off), p4 1 (transmit buffer) */
        if (!check("KFr_AutoSar_Set_Slot_Parameter_Wrapper",
                   KFr_AutoSar_Set_Slot_Parameter_Wrapper((unsigned char)fr, 0, frames[i].frame, 0,
                                                          1)))
            return;
    }
}

static void transmitByName(signed char fr) {
    size_t i, s;
    for (i = 0; i < FRAME_COUNT; ++i) {
        unsigned char payload[254];
        memset(payload, 0, sizeof payload);
        for (s = 0; frames[i].signals[s].name != NULL; ++s)
            check(frames[i].signals[s].name,
                  KFr_AutoSar_encodeSignal(frames[i].signals[s].name, frames[i].signals[s].value,
                                           payload, frameBytes[i]));
        check("KFr_AutoSar_Transmit_Wrapper",
              KFr_AutoSar_Transmit_Wrapper((unsigned char)fr, 0, frames[i].frame, payload,
                                           frameBytes[i]));
    }
}

static void receiveAndDecode(signed char fr, char* name) {
    int seen[FRAME_COUNT] = {0};
    int remaining = (int)FRAME_COUNT;
    int records = 0;
    while (remaining > 0 && records < 200) {
        unsigned char header[28], payload[510];
        int which;
        size_t s;
        if (KFr_Receive_Wrapper(fr, header, payload, 2000) != 0) break;
        ++records;
        if (KFr_AutoSar_GetFrameName(header, name) != 0) break;
        which = frameIndex(name);
        if (which < 0 || seen[which]) continue;
        seen[which] = 1;
        --remaining;
        printf("  slot %u cycle %2u  %s\n", header[16] | (header[17] << 8), header[19], name);
        for (s = 0; frames[which].signals[s].name != NULL; ++s) {
            float value = 0.0f;
            unsigned status =
                KFr_AutoSar_decodeSignal(header, payload, frames[which].signals[s].name, &value);
            if (status == 0)
                printf("      %-22s %10.2f\n", frames[which].signals[s].name, value);
            else
                check(frames[which].signals[s].name, status);
        }
    }
    if (remaining > 0) {
        printf("  %d of the transmitted frames did not come back\n", remaining);
        ++failures;
    }
}

/* The rest of the bus: with kelo-emulator --database, the other ECUs' frames arrive too. Prints
 * the brake ECU's wheel-speed frame, every signal the database lists for it, at each of its first
 * four arrivals, so the values are seen to move from cycle to cycle; without such frames it says
 * so (not a failure). */
static void watchRestOfBus(signed char fr, char* name) {
    static const char watched[] = "Wheel_Speeds_Frame";
    char list[512];
    char* signals[16];
    unsigned int total = 0, count = 0, n = 0;
    int shown = 0, records = 0;
    if (!check("KFr_AutoSar_GetAllSignalName_ByFrameName",
               KFr_AutoSar_GetAllSignalName_ByFrameName(watched, list, sizeof list - 1, &total,
                                                        &count)))
        return;
    /* The list is ";"-separated; split it in place. */
    for (char* at = strtok(list, ";"); at != NULL && n < 16; at = strtok(NULL, ";"))
        signals[n++] = at;
    printf("  the rest of the bus (%s, sent by BrakeControl):\n", watched);
    while (shown < 4 && records < 400) {
        unsigned char header[28], payload[510];
        unsigned int s;
        if (KFr_Receive_Wrapper(fr, header, payload, 500) != 0) break;
        ++records;
        if (KFr_AutoSar_GetFrameName(header, name) != 0 || strcmp(name, watched) != 0) continue;
        printf("    cycle %2u", header[19]);
        for (s = 0; s < n; ++s) {
            float value = 0.0f;
            if (KFr_AutoSar_decodeSignal(header, payload, signals[s], &value) == 0)
                printf("  %s %.2f", signals[s], value);
        }
        printf("\n");
        ++shown;
    }
    if (shown == 0)
        printf("    none: start kelo-emulator with --database to simulate the other ECUs\n");
}

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    const char* database = argc > 2 ? argv[2] : getenv("KELO_DEMO_AUTOSAR");
    unsigned int nameSize = 0;
    char* name;
    signed char fr;

    if (database == NULL) database = "examples/chassis-flexray-4.2.arxml";
    printf("AUTOSAR: opening %s\n", database);
    if (!check("KFr_AutoSar_Open", KFr_AutoSar_Open(database))) return 1;
    showDatabase();
    /* Name outputs are copied whole: size the buffer for the longest name. */
    if (!check("KFr_AutoSar_GetMaxNameLength", KFr_AutoSar_GetMaxNameLength(&nameSize))) return 1;
    name = (char*)malloc(nameSize);
    if (name == NULL) return 1;

    printf("FlexRay: opening %s\n", address);
    fr = KFr_Open_Wrapper(address);
    if (fr <= 0) {
        printf("  KFr_Open_Wrapper failed with status %d\n", -fr);
        free(name);
        KFr_AutoSar_Close();
        return 1;
    }
    configureFromDatabase(fr);
    if (failures == 0 && check("KFr_Configure_Node_Wrapper", KFr_Configure_Node_Wrapper(fr, 0)) &&
        check("KFr_Start_Node_Wrapper", KFr_Start_Node_Wrapper(fr, 0))) {
        transmitByName(fr);
        if (failures == 0 &&
            check("KFr_StartFrRxUpload_Wrapper", KFr_StartFrRxUpload_Wrapper(fr, 0))) {
            printf("  node started; frames received:\n");
            receiveAndDecode(fr, name);
            watchRestOfBus(fr, name);
            check("KFr_StopFrRxUpload_Wrapper", KFr_StopFrRxUpload_Wrapper(fr, 0));
        }
        check("KFr_Stop_Wrapper", KFr_Stop_Wrapper(fr, 0));
    }
    check("KFr_Close_Wrapper", KFr_Close_Wrapper(fr));
    check("KFr_AutoSar_Close", KFr_AutoSar_Close());
    free(name);
    printf("%s\n", failures == 0 ? "AUTOSAR example: all steps succeeded"
                                 : "AUTOSAR example: some steps failed");
    return failures == 0 ? 0 : 1;
}
