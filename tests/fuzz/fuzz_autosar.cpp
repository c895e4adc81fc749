// Fuzzes the AUTOSAR reader through the database exports: each input is written to a scratch
// file and opened with KFr_AutoSar_Open. A database that loads gives its names through the list
// queries (clusters, ECUs, frames by cluster and by ECU, signals by frame, each also into a
// buffer too small), is used the way an application uses it (kelo_fuzz::exerciseDatabase), and
// is closed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
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
        readList(KFr_AutoSar_GetAllFrameName_ByClusterName, cluster, names.frames);
        KFr_AutoSar_GetAllFrameName_ByClusterName(cluster.c_str(), small, sizeof small, &total,
                                                  &count);
    }
    std::vector<std::string> ecuFrames;
    for (const std::string& ecu : names.ecus)
        readList(KFr_AutoSar_GetAllFrameName_ByECUName, ecu, ecuFrames);
    names.frames.insert(names.frames.end(), ecuFrames.begin(), ecuFrames.end());
    std::sort(names.frames.begin(), names.frames.end());
    names.frames.erase(std::unique(names.frames.begin(), names.frames.end()), names.frames.end());
    if (names.frames.size() > kelo_fuzz::kNameCap) names.frames.resize(kelo_fuzz::kNameCap);
    for (const std::string& frame : names.frames) {
        readList(KFr_AutoSar_GetAllSignalName_ByFrameName, frame, names.signals);
        KFr_AutoSar_GetAllSignalName_ByFrameName(frame.c_str(), small, sizeof small, &total,
                                                 &count);
    }
    // Unknown keys (22) and a null key (5).
    KFr_AutoSar_GetAllFrameName_ByClusterName("", small, sizeof small, &total, &count);
    KFr_AutoSar_GetAllSignalName_ByFrameName(nullptr, small, sizeof small, &total, &count);
    return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kelo_fuzz::ScratchFile file("input.arxml");
    static const kelo_fuzz::DatabaseExports exports{KFr_AutoSar_GetMaxNameLength,
                                                    KFr_AutoSar_GetSlotParameter,
                                                    KFr_AutoSar_GetFrameName,
                                                    KFr_AutoSar_GetFrameName_BySignalName,
                                                    KFr_AutoSar_decodeSignal,
                                                    KFr_AutoSar_encodeSignal,
                                                    KFr_AutoSar_GetParameter,
                                                    KFr_AutoSar_GetControllerParameter,
                                                    KFr_AutoSar_Set_Slot_Parameter_Wrapper,
                                                    KFr_AutoSar_Transmit_Wrapper};
    if (size == 0 || !file.write(data, size)) return 0;
    if (KFr_AutoSar_Open(file.path()) != 0) return 0;

    kelo_fuzz::exerciseDatabase(exports, listNames(), data, size);
    KFr_AutoSar_Close();
    kelo_fuzz::emptyFrameMaps();
    return 0;
}
