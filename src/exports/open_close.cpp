// Opening and closing devices: the only exports that change the device table.
#include <QTextCodec>

#include "KeLoComm.h"
#include "device/KeLoCommLib.h"
#include "device/device_status.h"
#include "exports/device_table.h"

using namespace kelo;

namespace {

// Search, create and open under the table lock. `open` runs the device's open operation and,
// on success, anything that must still happen under the lock. Returns the index or minus the
// open's status.
template <typename Open, typename AfterOpen>
signed char openDevice(unsigned int flags, Open&& open, AfterOpen&& afterOpen) {
    if ((flags & ~KELO_DEVICE_STRICT) != 0) return openFailure(kDeviceBadArgument);
    LockGuard g(DeviceTableLock);
    signed char found = 0;
    signed char counter = 1;
    for (; counter < kDeviceSlots; ++counter) {
        if (DeviceSlotTable[counter].inUse.load() == 0) {
            found = counter;
            break;
        }
    }
    // The counter stops at 127, so this never fires; with every entry in use the open goes on
    // with entry 0, which every other export rejects.
    if (counter > kDeviceSlots) return openFailure(kDeviceNoFreeEntry);

    KeLoCommLib* device = new KeLoCommLib();
    device->setStrict((flags & KELO_DEVICE_STRICT) != 0);
    CommunicationLib* lib = device;
    storeDevice(found, lib);
    const unsigned char status = open(lib);
    if (status != kDeviceOk) {
        // The instance stays in the entry, but nobody will close it: give back its socket and
        // threads now.
        device->releaseAfterFailedOpen();
        return openFailure(status);
    }
    DeviceSlotTable[found].inUse.store(1);
    afterOpen(found);
    return found;
}

}  // namespace

extern "C" {

KELOCOMM_API signed char KFr_Open_Wrapper(const char* deviceAddress) {
    return KFr_OpenEx_Wrapper(deviceAddress, 0);
}

KELOCOMM_API signed char KCAN_Open_Wrapper(const char* deviceAddress, unsigned char canParam) {
    return KCAN_OpenEx_Wrapper(deviceAddress, canParam, 0);
}

KELOCOMM_API signed char KFr_OpenEx_Wrapper(const char* deviceAddress, unsigned int flags) {
    return guarded<signed char>(openFailure(kDeviceNotSent), [&] {
        return openDevice(
            flags, [&](CommunicationLib* lib) { return lib->Fr_Open(deviceAddress); },
            [](signed char) {});
    });
}

KELOCOMM_API signed char KCAN_OpenEx_Wrapper(const char* deviceAddress, unsigned char canParam,
                                             unsigned int flags) {
    return guarded<signed char>(openFailure(kDeviceNotSent), [&] {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
        return openDevice(
            flags, [&](CommunicationLib* lib) { return lib->CAN_Open(deviceAddress, canParam); },
            [](signed char idx) {
                // A fresh CAN channel starts stopped and with an empty receive buffer.
                KCAN_Stop_Wrapper(idx);
                sleepMs(100);
                KCAN_ClearRcvBuffer_Wrapper(idx);
            });
    });
}

KELOCOMM_API unsigned char KFr_Close_Wrapper(signed char idx) {
    return guarded<unsigned char>(kDeviceNotSent, [&]() -> unsigned char {
        CommunicationLib* lib = deviceAt(idx);
        if (!lib) return kDeviceBadIndex;
        const unsigned char status = lib->Fr_Close();
        delete lib;
        DeviceSlotTable[idx].inUse.store(0);
        // The entry no longer refers to a live device: later calls on it get kDeviceBadIndex until
        // the next open reuses it.
        DeviceSlotTable[idx].lib.store(nullptr);
        return status;
    });
}

KELOCOMM_API unsigned char KCAN_Close_Wrapper(signed char idx) {
    return guarded<unsigned char>(kDeviceNotSent, [&]() -> unsigned char {
        CommunicationLib* lib = deviceAt(idx);
        if (!lib) return kDeviceBadIndex;
        const unsigned char status = lib->CAN_Close();
        if (status != kDeviceOk) return status;  // the device stays open under its index
        delete lib;
        DeviceSlotTable[idx].lib.store(nullptr);
        DeviceSlotTable[idx].inUse.store(0);
        return kDeviceOk;
    });
}

}  // extern "C"
