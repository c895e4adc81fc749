// KeLoComm C++ example: drives one device through the CommunicationLib interface.
//
// It opens the device at the address given on the command line (default 127.0.0.1), prints the
// device information, configures and starts a FlexRay node with two transmit slots, transmits
// frames into them and prints the frames the device uploads; then opens CAN channel 0,
// transmits two frames and prints what comes back. Run it against a device or kelo-emulator.
#include <CommunicationLib.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// Every operation returns 0 on success; anything else is a status worth showing.
bool check(const char* what, unsigned char status) {
    if (status != 0) std::printf("  %-28s failed with status %u\n", what, status);
    return status == 0;
}

void printHex(const unsigned char* bytes, unsigned count) {
    for (unsigned i = 0; i < count; ++i)
        std::printf("%02X%s", bytes[i], i + 1 < count ? " " : "");
}

struct Closer {
    void operator()(CommunicationLib* lib) const { delete lib; }
};
using Device = std::unique_ptr<CommunicationLib, Closer>;

bool runFlexRay(const char* address) {
    Device fr(GetKeLoComm());
    std::printf("FlexRay: opening %s\n", address);
    if (!check("Fr_Open", fr->Fr_Open(address))) return false;

    unsigned int version = 0;
    fr->get_software_version(&version);
    unsigned char info[72] = {};
    if (check("GetDeviceInfo", fr->GetDeviceInfo(info))) {
        std::printf("  software version %u.%u.%u.%u, device information: ", version >> 24,
                    (version >> 16) & 0xFF, (version >> 8) & 0xFF, version & 0xFF);
        printHex(info, 16);
        std::printf(" ...\n");
    }

    const unsigned char controller = 0;
    // Cluster record: controller byte, then the cluster timing block (a 5 ms cycle at 10 Mbit/s).
    unsigned char cluster[40] = {controller};
    const unsigned short macroticksPerCycle = 5000, staticSlot = 40, staticSlots = 60;
    std::memcpy(cluster + 4, &macroticksPerCycle, 2);
    std::memcpy(cluster + 6, &staticSlot, 2);
    std::memcpy(cluster + 8, &staticSlots, 2);
    // Node record: controller byte, then the 48-byte node block; key slot 1.
    char node[52] = {static_cast<char>(controller)};
    node[1 + 4] = 1;
    // Controller record: controller, 0, channels A and B, 0, bit rate code 1 (10 Mbit/s).
    const char cc[6] = {static_cast<char>(controller), 0, 1, 1, 0, 1};
    bool ok = check("Fr_Set_Cluster_Parameter", fr->Fr_Set_Cluster_Parameter(cluster)) &&
              check("Fr_Set_Node_Parameter", fr->Fr_Set_Node_Parameter(node)) &&
              check("Fr_Set_CC_Parameter", fr->Fr_Set_CC_Parameter(cc));

    // Two transmit slots: slot 1 every cycle, slot 7 every fourth cycle from cycle 1; the device
    // assigns the buffer indices (255 in) and writes them back into byte 1.
    struct SlotPlan {
        unsigned short slotId;
        unsigned char base, repetition;
        unsigned char buffer;
    } plans[2] = {{1, 0, 1, 0}, {7, 1, 4, 0}};
    for (auto& plan : plans) {
        unsigned char slot[14] = {controller, 255};
        std::memcpy(slot + 3, &plan.slotId, 2);
        slot[6] = 4;            // payload length: 4 words = 8 bytes
        slot[8] = slot[9] = 1;  // channels A and B
        slot[10] = plan.base;
        slot[11] = plan.repetition;
        slot[12] = 1;  // transmit
        ok = ok && check("Fr_Set_Slot_Parameter", fr->Fr_Set_Slot_Parameter(slot));
        plan.buffer = slot[1];
        if (ok)
            std::printf("  slot %u (base %u, repetition %u) -> buffer %u\n", plan.slotId, plan.base,
                        plan.repetition, plan.buffer);
    }
    ok = ok && check("Fr_Configure_Node", fr->Fr_Configure_Node(controller)) &&
         check("Fr_Start_Node", fr->Fr_Start_Node(controller));
    if (ok) {
        unsigned char state = 0, sub = 0;
        if (check("Fr_GetFrNodeState", fr->Fr_GetFrNodeState(controller, &state, &sub)))
            std::printf("  node state %u, sub-state %u\n", state, sub);
    }
    for (unsigned i = 0; ok && i < 2; ++i) {
        unsigned char data[8] = {0xF0, static_cast<unsigned char>(i), 1, 2, 3, 4, 5, 6};
        ok = check("Fr_Transmit", fr->Fr_Transmit(controller, plans[i].buffer, data, 4));
    }
    ok = ok && check("Fr_StartFrRxUpload", fr->Fr_StartFrRxUpload(controller));

    for (int shown = 0; ok && shown < 6; ++shown) {
        unsigned char record[280];
        unsigned char status = fr->Fr_Receive(record, 1000);
        if (status != 0) {
            check("Fr_Receive", status);
            break;
        }
        unsigned short slotId = 0;
        std::memcpy(&slotId, record + 16, 2);
        std::printf("  received slot %3u cycle %2u channels %s%s  ", slotId, record[19],
                    (record[18] & 1) ? "A" : "", (record[18] & 2) ? "B" : "");
        printHex(record + 26, 2u * record[20]);
        std::printf("\n");
    }
    check("Fr_StopFrRxUpload", fr->Fr_StopFrRxUpload(controller));
    check("Fr_Stop", fr->Fr_Stop(controller));
    check("Fr_Close", fr->Fr_Close());
    return ok;
}

bool runCan(const char* address) {
    Device can(GetKeLoComm());
    const unsigned char channel = 0;
    std::printf("CAN: opening %s channel %u\n", address, channel);
    if (!check("CAN_Open", can->CAN_Open(address, channel))) return false;

    // Configuration record: 500 kbit/s bus timing in bytes 0-15, two open acceptance filters,
    // filter mode and option byte at 50 and 51.
    unsigned char config[52] = {};
    const unsigned int bitrate = 500000;
    std::memcpy(config, &bitrate, 4);
    bool ok =
        check("CAN_Configure", can->CAN_Configure(config)) && check("CAN_Start", can->CAN_Start(0));

    for (unsigned i = 0; ok && i < 2; ++i) {
        // Frame header: identifier, frame type, three flags, data length.
        unsigned char frame[12] = {};
        const unsigned int identifier = 0x120 + i;
        std::memcpy(frame, &identifier, 4);
        frame[8] = 8;
        unsigned char data[8] = {0xCA, 0xFE, static_cast<unsigned char>(i), 0, 0, 0, 0, 1};
        ok = check("CAN_Transmit", can->CAN_Transmit(frame, data));
    }
    for (unsigned i = 0; ok && i < 2; ++i) {
        unsigned char record[88];
        unsigned char status = can->CAN_Receive(record, 1000);
        if (status != 0) {
            check("CAN_Receive", status);
            break;
        }
        unsigned int identifier = 0, seconds = 0, micros = 0;
        std::memcpy(&identifier, record + 16, 4);
        std::memcpy(&seconds, record + 8, 4);
        std::memcpy(&micros, record + 12, 4);
        std::printf("  received channel %u id 0x%03X at %u.%06u s, %u bytes: ", record[0],
                    identifier, seconds, micros, record[23]);
        printHex(record + 24, record[23]);
        std::printf("\n");
    }
    check("CAN_Stop", can->CAN_Stop(0));
    can->CAN_Close();
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    const char* address = argc > 1 ? argv[1] : "127.0.0.1";
    bool ok = runFlexRay(address);
    ok = runCan(address) && ok;
    std::printf(ok ? "demo finished\n" : "demo finished with errors\n");
    return ok ? 0 : 1;
}
