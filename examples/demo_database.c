/* KeLoComm database example: the FlexRay node configured and driven from a FIBEX file.
 *
 * Usage: kelo_demo_database [DEVICE-ADDRESS [FIBEX-FILE]]
 * The address defaults to 127.0.0.1; the file to $KELO_DEMO_DATABASE, else
 * examples/powertrain-flexray.xml. The program opens the device and the database, fills the
 * cluster, node, controller and slot blocks of the engine ECU from the database, starts the node,
 * encodes physical values into three frames and transmits them by name, and prints the frames the
 * device sends back with their names and decoded signal values; against kelo-emulator
 * --database it then shows another ECU's signals moving. Exit status 0 when every step
 * succeeded. */
#include <KeLoComm.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CLUSTER "PowertrainFlexRay"
#define ECU "EngineControl"

struct SignalValue {
    const char* name;
    float value;
};

struct FrameToSend {
    const char* frame;
    unsigned char length; /* bytes */
    struct SignalValue signals[5];
};

/* What the engine ECU sends; a signal list ends at a null name. */
static const struct FrameToSend frames[] = {
    {"EngineData",
     8,
     {{"EngineSpeed", 2450.75f},
      {"EngineTorque", -12.5f},
      {"AcceleratorPedal", 31.2f},
      {"EngineSpeed_UB", 1.0f},
      {NULL, 0}}},
    {"EngineTemps",
     4,
     {{"CoolantTemperature", 92.0f},
      {"OilTemperature", 104.0f},
      {"IntakeAirTemperature", 28.0f},
      {NULL, 0}}},
    {"EngineStatus",
     4,
     {{"EngineState", 2.0f}, {"MilOn", 0.0f}, {"BatteryVoltage", 13.8f}, {NULL, 0}}},
};
#define FRAME_COUNT (sizeof frames / sizeof frames[0])

static int failures = 0;

static int check(const char* what, unsigned status) {
    if (status != 0) {
        printf("  %-44s failed with status %u\n", what, status);
        ++failures;
    }
    return status == 0;
}

/* Index of a frame in the table above, -1 when it is not one of ours. */
static int frameIndex(const char* name) {
    size_t i;
    for (i = 0; i < FRAME_COUNT; ++i)
        if (strcmp(frames[i].frame, name) == 0) return (int)i;
    return -1;
}

static void configureFromDatabase(signed char fr) {
    unsigned char cluster[36], node[48], cc[5];
    fnpt* controller = (fnpt*)node;
    size_t i;

    if (!check("KFr_Fibex_GetParameter", KFr_Fibex_GetParameter(CLUSTER, ECU, cluster, node, cc)))
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
        /* p3 0 (payload preamble off), p4 1 (transmit buffer) */
        if (!check(
                "KFr_Fibex_Set_Slot_Parameter_Wrapper",
                KFr_Fibex_Set_Slot_Parameter_Wrapper((unsigned char)fr, 0, frames[i].frame, 0, 1)))
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
                  KFr_Fibex_encodeSignal(frames[i].signals[s].name, frames[i].signals[s].value,
                                         payload, frames[i].length));
        check("KFr_Fibex_Transmit_Wrapper",
              KFr_Fibex_Transmit_Wrapper((unsigned char)fr, 0, frames[i].frame, payload,
                                         frames[i].length));
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
        if (KFr_Fibex_GetFrameName(header, name) != 0) break;
        which = frameIndex(name);
        if (which < 0 || seen[which]) continue;
        seen[which] = 1;
        --remaining;
        printf("  slot %u cycle %2u  %s\n", header[16] | (header[17] << 8), header[19], name);
        for (s = 0; frames[which].signals[s].name != NULL; ++s) {
            float value = 0.0f;
            unsigned status =
                KFr_Fibex_decodeSignal(header, payload, frames[which].signals[s].name, &value);
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
 * the brake ECU's wheel speeds at each of their first four arrivals, so the values are seen to
 * move from cycle to cycle; without such frames it says so (not a failure). */
static void watchRestOfBus(signed char fr, char* name) {
    static const char* const wheels[] = {"WheelSpeedFL", "WheelSpeedFR", "WheelSpeedRL",
                                         "WheelSpeedRR"};
    int shown = 0, records = 0;
    printf("  the rest of the bus (WheelSpeeds, sent by BrakeControl):\n");
    while (shown < 4 && records < 400) {
        unsigned char header[28], payload[510];
        size_t w;
        if (KFr_Receive_Wrapper(fr, header, payload, 500) != 0) break;
        ++records;
        if (KFr_Fibex_GetFrameName(header, name) != 0 || strcmp(name, "WheelSpeeds") != 0) continue;
        printf("    cycle %2u", header[19]);
        for (w = 0; w < 4; ++w) {
            float value = 0.0f;
            if (KFr_Fibex_decodeSignal(header, payload, wheels[w], &value) == 0)
                printf("  %s %7.2f", wheels[w] + 10, value);
        }
        printf("\n");
        ++shown;
    }
    if (shown == 0)
        printf("    none: start kelo-emulator with --database to simulate the other ECUs\n");
}

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    const char* database = argc > 2 ? argv[2] : getenv("KELO_DEMO_DATABASE");
    unsigned int nameSize = 0;
    char* name;
    signed char fr;

    if (database == NULL) database = "examples/powertrain-flexray.xml";
    printf("FIBEX: opening %s\n", database);
    if (!check("KFr_Fibex_Open", KFr_Fibex_Open(database))) return 1;
    /* Name outputs are copied whole: size the buffer for the longest name. */
    if (!check("KFr_Fibex_GetMaxNameLength", KFr_Fibex_GetMaxNameLength(&nameSize))) return 1;
    name = (char*)malloc(nameSize);
    if (name == NULL) return 1;

    printf("FlexRay: opening %s\n", address);
    fr = KFr_Open_Wrapper(address);
    if (fr <= 0) {
        printf("  KFr_Open_Wrapper failed with status %d\n", -fr);
        free(name);
        KFr_Fibex_Close();
        return 1;
    }
    configureFromDatabase(fr);
    /* The device takes transmit data once its node runs (the cluster step stopped it). */
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
    check("KFr_Fibex_Close", KFr_Fibex_Close());
    free(name);
    printf("%s\n", failures == 0 ? "database example: all steps succeeded"
                                 : "database example: some steps failed");
    return failures == 0 ? 0 : 1;
}
