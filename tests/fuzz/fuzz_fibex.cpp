// Fuzzes the FIBEX reader through the database exports: each input is written to a scratch file
// and opened with KFr_Fibex_OpenEx twice, strict first, then in read-all mode (each open reads
// into a fresh database). A database that loads is used the way an application uses it
// (kelo_fuzz::exerciseDatabase), plus the PDU layout query by frame ID and the multi-frame
// staging by name, and finally closed.
#include <cstddef>
#include <cstdint>
#include <string>

#include "KeLoComm.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kelo_fuzz::ScratchFile file("input.xml");
    if (size == 0 || !file.write(data, size)) return 0;
    for (const unsigned int flags : {0u, KELO_DB_READ_ALL}) {
        if (KFr_Fibex_OpenEx(file.path(), flags) != 0) continue;
        const kelo_fuzz::Names names = kelo_fuzz::fibexNames();
        kelo_fuzz::exerciseDatabase(kelo_fuzz::kFibexExports, names, data, size);
        // PDU layout by frame ID (an unknown key is entered into the database's frame map).
        unsigned char info[4];
        for (const std::string& id : names.frameIds) {
            KFr_Fibex_GetPDUinfo(id.c_str(), 0, info);
            KFr_Fibex_GetPDUinfo(id.c_str(), 1, info);
        }
        KFr_Fibex_GetPDUinfo("", 0, info);
        if (!names.frames.empty()) {
            unsigned char bytes[8] = {};
            KFr_Fibex_FillData_beforeTransmit_MultiFrame_Wrapper(0, 0, names.frames.front().c_str(),
                                                                 0, bytes, sizeof bytes);
        }
        KFr_Fibex_Close();
        kelo_fuzz::emptyFrameMaps();
    }
    return 0;
}
