#include "exports/device_table.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace kelo {

DeviceSlot DeviceSlotTable[kDeviceSlots];
Lock DeviceTableLock;

namespace {
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
    // What an open replaces is the instance a failed open left behind (a closed entry holds
    // none), or entry 0's when every entry is in use: nothing can reach it any more.
    if (previous && previous != lib) delete previous;
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
