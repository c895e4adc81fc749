#include "exports/device_table.h"

#include <mutex>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

namespace kelo {

DeviceSlot DeviceSlotTable[kDeviceSlots];
Lock DeviceTableLock;

namespace {
// Instances replaced in the table after a failed open: never freed, but never lost either.
// (A local type keeps the container's code out of the exported symbol table.)
struct Orphan {
    CommunicationLib* lib;
};
std::vector<Orphan>& orphans() {
    static std::vector<Orphan> list;
    return list;
}

// Brings the table to its initial state when the library is loaded into a process.
void initialiseDeviceTable() {
    for (DeviceSlot& slot : DeviceSlotTable) {
        slot.inUse.store(0);
        slot.lib.store(nullptr);
    }
}
}  // namespace

void storeDevice(int idx, CommunicationLib* lib) {
    CommunicationLib* previous = DeviceSlotTable[idx].lib.exchange(lib, std::memory_order_acq_rel);
    if (previous && previous != lib)
        orphans().push_back(Orphan{previous});  // under DeviceTableLock
}

}  // namespace kelo

#ifdef _WIN32
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) kelo::initialiseDeviceTable();
    return TRUE;
}
#else
namespace {
// The static-initialisation counterpart of DllMain's process attach.
[[maybe_unused]] const bool deviceTableReady = (kelo::initialiseDeviceTable(), true);
}  // namespace
#endif
