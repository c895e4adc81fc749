// Fuzzes the AUTOSAR reader through the database exports: each input is written to a scratch
// file and opened with KFr_AutoSar_OpenEx twice, strict first, then in read-all mode (each open
// reads into a fresh reader). A database that loads gives its names through the list
// queries (clusters, ECUs, frames by cluster and by ECU, signals by frame, each also into a
// buffer too small), is used the way an application uses it (kelo_fuzz::exerciseDatabase), and
// is closed.
#include <cstddef>
#include <cstdint>

#include "KeLoComm.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kelo_fuzz::ScratchFile file("input.arxml");
    if (size == 0 || !file.write(data, size)) return 0;
    for (const unsigned int flags : {0u, KELO_DB_READ_ALL}) {
        if (KFr_AutoSar_OpenEx(file.path(), flags) != 0) continue;
        kelo_fuzz::exerciseDatabase(kelo_fuzz::kAutosarExports, kelo_fuzz::autosarNames(), data,
                                    size);
        KFr_AutoSar_Close();
        kelo_fuzz::emptyFrameMaps();
    }
    return 0;
}
