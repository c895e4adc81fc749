/* KeLoComm C example: the flat interface only.
 *
 * Opens the device at the address on the command line (default 127.0.0.1) for FlexRay,
 * configures a node from literal parameter blocks, starts it, transmits into two slots and prints
 * the frames the device uploads; then opens CAN channel 0, transmits and receives, and closes
 * both. Exit status 0 when every step succeeded. */
#include <KeLoComm.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

static int check(const char* what, unsigned status) {
    if (status != 0) {
        printf("  %-34s failed with status %u\n", what, status);
        ++failures;
    }
    return status == 0;
}

static void printHex(const unsigned char* bytes, unsigned count) {
    unsigned i;
    for (i = 0; i < count; ++i)
        printf("%02X%s", bytes[i], i + 1 < count ? " " : "");
}

static void runFlexRay(const char* address) {
    /* Cluster block (36 bytes): 5000 macroticks per cycle, 40-macrotick static slots, 60 slots. */
    unsigned char cluster[36] = {0, 0, 0, 0x88, 0x13, 40, 0, 60, 0};
    unsigned char node[48] = {0, 0, 0, 1}; /* key slot 1 */
    unsigned char cc[5] = {0, 1, 1, 0, 1}; /* channels A and B, 10 Mbit/s */
    KFrKeySlotRecord keySlots = {{{1, 3, 1}, {0, 0, 0}}};
    unsigned char slotA[12] = {255, 0, 1, 0, 0, 4, 0, 1, 1, 0, 1, 1}; /* slot 1, every cycle */
    unsigned char slotB[12] = {255, 0, 7, 0, 0, 4, 0, 1, 1, 1, 4, 1}; /* slot 7, cycles 1, 5, 9.. */
    unsigned char dataA[8] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    unsigned char dataB[8] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7};
    unsigned int libraryVersion = 0, deviceVersion = 0;
    unsigned char state = 0, sub = 0;
    int shown;
    signed char fr;

    printf("FlexRay: opening %s\n", address);
    fr = KFr_Open_Wrapper(address);
    if (fr <= 0) {
        printf("  KFr_Open_Wrapper failed with status %d\n", -fr);
        ++failures;
        return;
    }
    KeLo_get_software_version_Wrapper(fr, &libraryVersion, &deviceVersion);
    printf("  device index %d, library version 0x%08X, device version 0x%08X\n", fr, libraryVersion,
           deviceVersion);

    if (check("KFr_Set_Cluster_Parameter_Wrapper",
              KFr_Set_Cluster_Parameter_Wrapper(fr, 0, cluster)) &&
        check("KFr_Set_Node_Parameter_Wrapper", KFr_Set_Node_Parameter_Wrapper(fr, 0, node)) &&
        check("KFr_Set_CC_Parameter_Wrapper", KFr_Set_CC_Parameter_Wrapper(fr, 0, cc)) &&
        check("KFr_SetFrPhyNodeKeySlot_Wrapper",
              KFr_SetFrPhyNodeKeySlot_Wrapper(fr, 0, &keySlots)) &&
        check("KFr_Set_Slot_Parameter_Wrapper", KFr_Set_Slot_Parameter_Wrapper(fr, 0, slotA)) &&
        check("KFr_Set_Slot_Parameter_Wrapper", KFr_Set_Slot_Parameter_Wrapper(fr, 0, slotB)) &&
        check("KFr_Configure_Node_Wrapper", KFr_Configure_Node_Wrapper(fr, 0)) &&
        check("KFr_Start_Node_Wrapper", KFr_Start_Node_Wrapper(fr, 0))) {
        printf("  slots 1 and 7 use buffers %u and %u\n", slotA[0], slotB[0]);
        if (check("KFr_GetFrNodeState_Wrapper", KFr_GetFrNodeState_Wrapper(fr, 0, &state, &sub)))
            printf("  node state %u, sub-state %u\n", state, sub);
        check("KFr_Transmit_Wrapper", KFr_Transmit_Wrapper(fr, 0, slotA[0], dataA, 4));
        check("KFr_Transmit_Wrapper", KFr_Transmit_Wrapper(fr, 0, slotB[0], dataB, 4));
        check("KFr_StartFrRxUpload_Wrapper", KFr_StartFrRxUpload_Wrapper(fr, 0));
        for (shown = 0; shown < 6; ++shown) {
            unsigned char header[28], payload[510];
            unsigned status = KFr_Receive_Wrapper(fr, header, payload, 1000);
            if (!check("KFr_Receive_Wrapper", status)) break;
            printf("  received slot %3u cycle %2u: ", header[16] | (header[17] << 8), header[19]);
            printHex(payload, 2u * header[20]);
            printf("\n");
        }
        check("KFr_StopFrRxUpload_Wrapper", KFr_StopFrRxUpload_Wrapper(fr, 0));
        check("KFr_Stop_Wrapper", KFr_Stop_Wrapper(fr, 0));
    }
    check("KFr_Close_Wrapper", KFr_Close_Wrapper(fr));
}

static void runCan(const char* address) {
    unsigned char config[52] = {0x20, 0xA1, 0x07, 0x00};         /* 500000 bit/s, filters open */
    unsigned char frame[12] = {0x21, 0x03, 0, 0, 0, 0, 0, 0, 8}; /* id 0x321, 8 bytes */
    unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned int queued = 0;
    signed char can;

    printf("CAN: opening %s channel 0\n", address);
    can = KCAN_Open_Wrapper(address, 0);
    if (can <= 0) {
        printf("  KCAN_Open_Wrapper failed with status %d\n", -can);
        ++failures;
        return;
    }
    if (check("KCAN_Configure_Wrapper", KCAN_Configure_Wrapper(can, config)) &&
        check("KCAN_Start_Wrapper", KCAN_Start_Wrapper(can)) &&
        check("KCAN_Transmit_Wrapper", KCAN_Transmit_Wrapper(can, frame, data))) {
        unsigned char header[24], payload[510];
        if (check("KCAN_Receive_Wrapper", KCAN_Receive_Wrapper(can, header, payload, 1000))) {
            printf("  received id 0x%03X, %u bytes: ",
                   header[16] | (header[17] << 8) | (header[18] << 16), header[23]);
            printHex(payload, header[23]);
            printf("\n");
        }
        KCAN_framesAvailable_Wrapper(can, &queued);
        printf("  %u more frame(s) queued\n", queued);
        check("KCAN_Stop_Wrapper", KCAN_Stop_Wrapper(can));
    }
    check("KCAN_Close_Wrapper", KCAN_Close_Wrapper(can));
}

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    runFlexRay(address);
    runCan(address);
    printf(failures ? "demo finished with %d error(s)\n" : "demo finished\n", failures);
    return failures ? 1 : 0;
}
