// Fuzzes the AUTOSAR reader through the database exports: each input is written to a scratch
// file and opened with KFr_AutoSar_Open. A database that loads is then used the way an
// application uses it: the list queries (clusters, ECUs, frames by cluster and by ECU, signals
// by frame, each also with a buffer too small), name and slot queries per frame, the codec on
// every signal, cluster and node parameters, the by-name device exports (no device is open),
// and finally KFr_AutoSar_Close.
//
// Output buffers have exactly the size the interface asks for, so the address sanitizer sees
// any write past them.
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
using kelo_fuzz::readList;

// Every name the list queries give, each list also read once into a 7-byte buffer.
Names listNames() {
    Names names;
    readList(KFr_AutoSar_GetAllClusterName, names.clusters);
    readList(KFr_AutoSar_GetAllECUName, names.ecus);
    char small[7];
    unsigned int total = 0;
    unsigned int count = 0;
    KFr_AutoSar_GetAllECUName(small, sizeof small, &total, &count);
    for (const std::string& cluster : names.clusters) {
        readList(
            [&](char* buf, unsigned int bufSize, unsigned int* t, unsigned int* c) {
                return KFr_AutoSar_GetAllFrameName_ByClusterName(cluster.c_str(), buf, bufSize, t,
                                                                 c);
            },
            names.frames);
        KFr_AutoSar_GetAllFrameName_ByClusterName(cluster.c_str(), small, sizeof small, &total,
                                                  &count);
    }
    std::vector<std::string> ecuFrames;
    for (const std::string& ecu : names.ecus) {
        readList(
            [&](char* buf, unsigned int bufSize, unsigned int* t, unsigned int* c) {
                return KFr_AutoSar_GetAllFrameName_ByECUName(ecu.c_str(), buf, bufSize, t, c);
            },
            ecuFrames);
    }
    names.frames.insert(names.frames.end(), ecuFrames.begin(), ecuFrames.end());
    std::sort(names.frames.begin(), names.frames.end());
    names.frames.erase(std::unique(names.frames.begin(), names.frames.end()), names.frames.end());
    if (names.frames.size() > kelo_fuzz::kNameCap) names.frames.resize(kelo_fuzz::kNameCap);
    for (const std::string& frame : names.frames) {
        readList(
            [&](char* buf, unsigned int bufSize, unsigned int* t, unsigned int* c) {
                return KFr_AutoSar_GetAllSignalName_ByFrameName(frame.c_str(), buf, bufSize, t, c);
            },
            names.signals);
        KFr_AutoSar_GetAllSignalName_ByFrameName(frame.c_str(), small, sizeof small, &total,
                                                 &count);
    }
    // Unknown keys (22) and a null key (5).
    KFr_AutoSar_GetAllFrameName_ByClusterName("", small, sizeof small, &total, &count);
    KFr_AutoSar_GetAllSignalName_ByFrameName(nullptr, small, sizeof small, &total, &count);
    return names;
}

void queryFrames(const Names& names, std::vector<char>& nameBuf, std::uint8_t salt) {
    for (const std::string& frame : names.frames) {
        unsigned char header[28] = {};
        if (kelo_fuzz::headerForFrame(KFr_AutoSar_GetSlotParameter, frame, header))
            KFr_AutoSar_GetFrameName(header, nameBuf.data());
        unsigned char block[12];
        KFr_AutoSar_GetSlotParameter(frame.c_str(), salt, static_cast<unsigned char>(~salt), block);
    }
}

void codecOnSignals(const Names& names, std::vector<char>& nameBuf, const std::uint8_t* data,
                    std::size_t size) {
    std::vector<unsigned char> payload(510);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = data[i % size];
    std::size_t i = 0;
    for (const std::string& signal : names.signals) {
        unsigned char firstUse = 0;
        unsigned char header[28] = {};
        if (KFr_AutoSar_GetFrameName_BySignalName(signal.c_str(), nameBuf.data(), &firstUse) == 0)
            kelo_fuzz::headerForFrame(KFr_AutoSar_GetSlotParameter, nameBuf.data(), header);
        float value = 0.0f;
        KFr_AutoSar_decodeSignal(header, payload.data(), signal.c_str(), &value);
        // Encode into a payload of exactly the frame's length (2 x words, at most 255 bytes)
        // and into a single byte.
        const auto length =
            static_cast<unsigned char>(std::min(std::max(2u * header[20], 1u), 255u));
        std::unique_ptr<unsigned char[]> out(new unsigned char[length]());
        KFr_AutoSar_encodeSignal(signal.c_str(), kelo_fuzz::valueAt(i), out.get(), length);
        unsigned char one = 0;
        KFr_AutoSar_encodeSignal(signal.c_str(), value, &one, 1);
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
            KFr_AutoSar_GetParameter(cluster.c_str(), ecu.c_str(), clusterBlock, nodeBlock,
                                     ccBlock);
        }
    }
    for (const std::string& ecu : names.ecus) {
        fnpt node;
        KFr_AutoSar_GetControllerParameter(ecu.c_str(), &node);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kelo_fuzz::ScratchFile file("input.arxml");
    if (size == 0 || !file.write(data, size)) return 0;
    if (KFr_AutoSar_Open(file.path()) != 0) return 0;

    const Names names = listNames();
    unsigned int maxName = 0;
    if (KFr_AutoSar_GetMaxNameLength(&maxName) == 0 && maxName > 0) {
        std::vector<char> nameBuf(maxName);
        queryFrames(names, nameBuf, data[size / 2]);
        codecOnSignals(names, nameBuf, data, size);
    }
    queryParameters(names);

    // The by-name device exports: the database half runs, the device half finds no device.
    if (!names.frames.empty()) {
        const char* frame = names.frames.front().c_str();
        KFr_AutoSar_Set_Slot_Parameter_Wrapper(0, 0, frame, 0, 0);
        unsigned char bytes[8] = {};
        KFr_AutoSar_Transmit_Wrapper(0, 0, frame, bytes, sizeof bytes);
    }
    KFr_AutoSar_Close();
    kelo_fuzz::emptyFrameMaps();
    return 0;
}
