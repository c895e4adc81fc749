// Fuzzes the FIBEX reader through the database exports: each input is written to a scratch file
// and opened with KFr_Fibex_Open. A database that loads is then used the way an application
// uses it: name queries, slot and PDU queries per frame, the codec on every signal (decoded at
// its frame's slot and cycle, encoded into a payload of its frame's length), cluster and node
// parameters, the by-name device exports (no device is open), and finally KFr_Fibex_Close.
//
// Output buffers have exactly the size the interface asks for (names: the maximum name length
// the database reports), so the address sanitizer sees any write past them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KeLoComm.h"
#include "fuzz_support.h"

namespace {

using kelo_fuzz::Names;

void queryFrames(const Names& names, std::vector<char>& nameBuf, std::uint8_t salt) {
    for (const std::string& frame : names.frames) {
        unsigned char header[28] = {};
        if (kelo_fuzz::headerForFrame(KFr_Fibex_GetSlotParameter, frame, header))
            KFr_Fibex_GetFrameName(header, nameBuf.data());
        unsigned char block[12];
        KFr_Fibex_GetSlotParameter(frame.c_str(), salt, static_cast<unsigned char>(~salt), block);
    }
    // PDU layout by frame ID (an unknown key is entered into the database's frame map).
    for (const std::string& id : names.frameIds) {
        unsigned char info[4];
        KFr_Fibex_GetPDUinfo(id.c_str(), 0, info);
        KFr_Fibex_GetPDUinfo(id.c_str(), 1, info);
    }
    unsigned char info[4];
    KFr_Fibex_GetPDUinfo("", 0, info);
}

void codecOnSignals(const Names& names, std::vector<char>& nameBuf, const std::uint8_t* data,
                    std::size_t size) {
    // The received payload: the input's own bytes, repeated.
    std::vector<unsigned char> payload(510);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = data[i % size];
    std::size_t i = 0;
    for (const std::string& signal : names.signals) {
        unsigned char firstUse = 0;
        unsigned char header[28] = {};
        if (KFr_Fibex_GetFrameName_BySignalName(signal.c_str(), nameBuf.data(), &firstUse) == 0)
            kelo_fuzz::headerForFrame(KFr_Fibex_GetSlotParameter, nameBuf.data(), header);
        float value = 0.0f;
        KFr_Fibex_decodeSignal(header, payload.data(), signal.c_str(), &value);
        // Encode into a payload of exactly the frame's length (2 x words, at most 255 bytes)
        // and into a single byte.
        const auto length =
            static_cast<unsigned char>(std::min(std::max(2u * header[20], 1u), 255u));
        std::unique_ptr<unsigned char[]> out(new unsigned char[length]());
        KFr_Fibex_encodeSignal(signal.c_str(), kelo_fuzz::valueAt(i), out.get(), length);
        unsigned char one = 0;
        KFr_Fibex_encodeSignal(signal.c_str(), value, &one, 1);
        ++i;
    }
}

void queryParameters(const Names& names) {
    std::size_t pairs = 0;
    for (const std::string& cluster : names.clusters) {
        for (const std::string& ecu : names.ecus) {
            if (++pairs > 16) break;
            unsigned char clusterBlock[36];
            unsigned char nodeBlock[48];
            unsigned char ccBlock[5];
            KFr_Fibex_GetParameter(cluster.c_str(), ecu.c_str(), clusterBlock, nodeBlock, ccBlock);
        }
    }
    for (const std::string& ecu : names.ecus) {
        fnpt node;
        KFr_Fibex_GetControllerParameter(ecu.c_str(), &node);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kelo_fuzz::ScratchFile file("input.xml");
    if (size == 0 || !file.write(data, size)) return 0;
    if (KFr_Fibex_Open(file.path()) != 0) return 0;

    const Names names = kelo_fuzz::fibexNames();
    unsigned int maxName = 0;
    if (KFr_Fibex_GetMaxNameLength(&maxName) == 0 && maxName > 0) {
        std::vector<char> nameBuf(maxName);
        queryFrames(names, nameBuf, data[size / 2]);
        codecOnSignals(names, nameBuf, data, size);
        // A header at slot 0xFFFF / cycle 63 names no frame.
        unsigned char header[28] = {};
        header[16] = header[17] = 0xFF;
        header[19] = 63;
        KFr_Fibex_GetFrameName(header, nameBuf.data());
    }
    queryParameters(names);

    // The by-name device exports: the database half runs, the device half finds no device.
    if (!names.frames.empty()) {
        const char* frame = names.frames.front().c_str();
        KFr_Fibex_Set_Slot_Parameter_Wrapper(0, 0, frame, 0, 0);
        unsigned char bytes[8] = {};
        KFr_Fibex_Transmit_Wrapper(0, 0, frame, bytes, sizeof bytes);
        KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(0, 0, frame, 0, bytes, sizeof bytes);
    }
    KFr_Fibex_Close();
    kelo_fuzz::emptyFrameMaps();
    return 0;
}
