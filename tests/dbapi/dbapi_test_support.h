// Shared pieces of the database export tests: test files, a receive header, and one row per
// format with its exports, so a test of a shared step runs over FIBEX and AUTOSAR alike.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"
#include "exports/device_table.h"
#include "support/device_harness.h"

namespace kelo_dbapi_test {

inline std::string dataFile(const std::string& name) {
    return std::string(KELO_TEST_DATA_DIR) + "/" + name;
}
inline const std::string kQueries = dataFile("fibex/dbapi-queries.xml");
inline const std::string kFibexExample = dataFile("../../examples/powertrain-flexray.xml");
inline const std::string kAutosarExample = dataFile("../../examples/chassis-flexray-4.2.arxml");
inline const std::string kTwoPdus = dataFile("autosar/frame-with-two-pdus-4.2.arxml");
inline const std::string kEcusAndClusters =
    dataFile("autosar/ecus-and-cluster-cycle-forms-4.1.arxml");

// The 28-byte header KFr_Receive_Wrapper returns, with slot (offset 16) and cycle (19) set.
inline std::array<unsigned char, 28> rxHeader(std::uint16_t slot, std::uint8_t cycle,
                                              std::uint8_t words = 0) {
    std::array<unsigned char, 28> h{};
    h[16] = static_cast<unsigned char>(slot);
    h[17] = static_cast<unsigned char>(slot >> 8);
    h[19] = cycle;
    h[20] = words;
    return h;
}

// A little-endian field of a parameter block.
inline std::uint32_t le(const unsigned char* b, int at, int width) {
    std::uint32_t v = 0;
    for (int i = width - 1; i >= 0; --i)
        v = (v << 8) | b[at + i];
    return v;
}

// One format's exports that the other format has too, and names in its example database.
struct Format {
    unsigned char (*open)(const char*);
    unsigned char (*close)();
    unsigned char (*maxNameLength)(unsigned int*);
    unsigned char (*frameName)(const unsigned char*, char*);
    unsigned char (*frameBySignal)(const char*, char*, unsigned char*);
    unsigned char (*decode)(const unsigned char*, const unsigned char*, const char*, float*);
    unsigned char (*encode)(const char*, float, unsigned char*, unsigned char);
    unsigned char (*slotParameter)(const char*, unsigned char, unsigned char, unsigned char*);
    unsigned char (*parameter)(const char*, const char*, unsigned char*, unsigned char*,
                               unsigned char*);
    unsigned char (*controllerParameter)(const char*, fnpt*);
    unsigned char (*setSlot)(unsigned char, unsigned char, const char*, unsigned char,
                             unsigned char);
    unsigned char (*transmit)(unsigned char, unsigned char, const char*, unsigned char*,
                              unsigned char);
    unsigned char (*receive)(signed char, unsigned char*, unsigned char*, char*, unsigned int);
    const char* name;                            // "Fibex" or "AutoSar", as in the export names
    std::string example;                         // the example database
    const char *signal, *frame, *cluster, *ecu;  // a signal, its frame, a cluster and an ECU of it
    std::string malformed, unsupported;  // not well-formed XML; a version the reader refuses
    std::map<std::string, std::uint8_t>* bufferMap;
};

// A format from its export prefix F, then the members after its name.
#define KELO_FORMAT(F, ...)                                                                       \
    Format {                                                                                      \
        KFr_##F##_Open, KFr_##F##_Close, KFr_##F##_GetMaxNameLength, KFr_##F##_GetFrameName,      \
            KFr_##F##_GetFrameName_BySignalName, KFr_##F##_decodeSignal, KFr_##F##_encodeSignal,  \
            KFr_##F##_GetSlotParameter, KFr_##F##_GetParameter, KFr_##F##_GetControllerParameter, \
            KFr_##F##_Set_Slot_Parameter_Wrapper, KFr_##F##_Transmit_Wrapper,                     \
            KFr_##F##_Receive_Wrapper, #F, __VA_ARGS__                                            \
    }
inline const Format kFibex =
    KELO_FORMAT(Fibex, kFibexExample, "EngineSpeed", "EngineData", "PowertrainFlexRay",
                "EngineControl", dataFile("fibex/malformed.xml"),
                dataFile("fibex/version-3.1-unsupported.xml"), &kelo::dbapi::FrameBufferIndexMap);
inline const Format kAutosar = KELO_FORMAT(
    AutoSar, kAutosarExample, "EngineSpeed", "Engine_Status_Frame", "FlexRayBackbone",
    "EngineControl", dataFile("autosar/malformed-unclosed-element-4.2.arxml"),
    dataFile("autosar/schema-4.3-refused.arxml"), &kelo::dbapi::AutosarFrameBufferIndexMap);
#undef KELO_FORMAT
inline const Format* const kFormats[] = {&kFibex, &kAutosar};

// A table of rows written as short helper calls, which clang-format packs.
template <typename T, typename... R>
std::vector<T> table(T first, R... rest) {
    return {first, rest...};
}

inline std::string exportName(const Format& f, const char* step) {
    return std::string("KFr_") + f.name + "_" + step;
}

// The buffer index a by-name map holds for a frame; -1 when the frame is not in it.
inline int mappedBuffer(const Format& f, const std::string& frame) {
    std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
    const auto it = f.bufferMap->find(frame);
    return it == f.bufferMap->end() ? -1 : it->second;
}

// Closes whatever database of either format a test left open.
class DatabaseTest : public ::testing::Test {
  protected:
    void TearDown() override {
        KFr_Fibex_Close();
        KFr_AutoSar_Close();
    }
};

// A device opened through KFr_Open_Wrapper, and a device object on an emulator of its own put
// into entry 0, the only index the receive-by-name exports accept (no open puts one there short
// of a full table).
struct ByNameDevices {
    kelo_testing::ExportDevice opened;
    kelo_testing::Link zero;
    bool ready = opened.open() && zero.open() && kelo::DeviceSlotTable[0].lib.load() == nullptr;

    ByNameDevices() {
        if (ready) kelo::DeviceSlotTable[0].lib.store(zero.dev.get());
    }
    ~ByNameDevices() {
        CommunicationLib* mine = zero.dev.get();
        kelo::DeviceSlotTable[0].lib.compare_exchange_strong(mine, nullptr);
    }
};

}  // namespace kelo_dbapi_test
