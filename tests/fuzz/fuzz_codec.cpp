// Fuzzes the signal codec exports on the two example databases, loaded once at start-up: each
// input chooses a database, a signal (one of the loaded names, or raw text), a value, a received
// header and payload, and runs the name queries, decode and encode on them.
//
// Input layout (missing bytes read as 0):
//   0       flags: bit 0 AUTOSAR database (else FIBEX); bit 1 the name is raw text; bit 2 the
//           header is pointed at the signal's frame (its slot and base cycle)
//   1-2     signal index, little-endian, taken modulo the number of loaded signal names
//   3-6     value to encode, float bits, little-endian
//   7       encode payload length in bytes
//   8-35    28-byte received header
//   36..    with bit 1: the name, up to a NUL byte; then the received payload (up to 510 bytes)
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "KeLoComm.h"
#include "device/byte_order.h"
#include "fuzz_support.h"

#ifndef KELO_EXAMPLES_DIR
#error "KELO_EXAMPLES_DIR must name the examples folder"
#endif

namespace {

// One format's exports and the names loaded from its example.
struct Format {
    const kelo_fuzz::DatabaseExports& db;
    std::vector<std::string> signals;
    unsigned int maxName = 0;
};
Format fibex{kelo_fuzz::kFibexExports, {}, 0};
Format autosar{kelo_fuzz::kAutosarExports, {}, 0};

void mustLoad(unsigned char status, const char* what) {
    if (status == 0) return;
    std::fprintf(stderr, "fuzz_codec: %s did not load (status %u)\n", what, status);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    mustLoad(KFr_Fibex_Open(KELO_EXAMPLES_DIR "/powertrain-flexray.xml"), "powertrain-flexray.xml");
    fibex.signals = kelo_fuzz::fibexNames().signals;
    KFr_Fibex_GetMaxNameLength(&fibex.maxName);
    mustLoad(KFr_AutoSar_Open(KELO_EXAMPLES_DIR "/chassis-flexray-4.2.arxml"),
             "chassis-flexray-4.2.arxml");
    autosar.signals = kelo_fuzz::autosarNames().signals;
    KFr_AutoSar_GetMaxNameLength(&autosar.maxName);
    if (fibex.signals.empty() || autosar.signals.empty()) mustLoad(1, "a signal list");
    // Enter every frame a signal query can name now, so that no input allocates for good.
    for (Format* format : {&fibex, &autosar}) {
        std::vector<char> frame(format->maxName);
        unsigned char firstUse = 0;
        for (const std::string& signal : format->signals)
            format->db.getFrameNameBySignalName(signal.c_str(), frame.data(), &firstUse);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The fixed fields, zero-padded.
    std::uint8_t head[36] = {};
    std::memcpy(head, data, std::min(size, sizeof head));
    const std::uint8_t* rest = size > sizeof head ? data + sizeof head : nullptr;
    std::size_t restSize = size > sizeof head ? size - sizeof head : 0;

    const std::uint8_t flags = head[0];
    Format& format = (flags & 1) ? autosar : fibex;
    std::string name;
    if ((flags & 2) && restSize > 0) {
        const auto* end = static_cast<const std::uint8_t*>(std::memchr(rest, 0, restSize));
        const std::size_t n = end ? static_cast<std::size_t>(end - rest) : restSize;
        name.assign(reinterpret_cast<const char*>(rest), n);
        const std::size_t used = std::min(restSize, n + 1);
        rest = used < restSize ? rest + used : nullptr;
        restSize -= used;
    } else if ((flags & 2) == 0) {
        name = format.signals[(head[1] | head[2] << 8) % format.signals.size()];
    }
    float value;
    const std::uint32_t bits = kelo::le32(head + 3);
    std::memcpy(&value, &bits, sizeof value);
    const std::uint8_t encodeLength = head[7];
    unsigned char header[28];
    std::memcpy(header, head + 8, sizeof header);

    // Name outputs are exactly as large as the database's longest name.
    std::vector<char> nameBuf(format.maxName);
    unsigned char firstUse = 0;
    if (format.db.getFrameNameBySignalName(name.c_str(), nameBuf.data(), &firstUse) == 0 &&
        (flags & 4))
        kelo_fuzz::headerForFrame(format.db.getSlotParameter, nameBuf.data(), header);
    format.db.getFrameName(header, nameBuf.data());

    std::vector<unsigned char> payload(510, 0);
    if (restSize > 0) std::memcpy(payload.data(), rest, std::min(restSize, payload.size()));
    float decoded = 0.0f;
    format.db.decodeSignal(header, payload.data(), name.c_str(), &decoded);

    // Encode into a buffer of exactly the given length, starting from the received payload.
    std::unique_ptr<unsigned char[]> out(new unsigned char[encodeLength]);
    std::memcpy(out.get(), payload.data(), encodeLength);
    format.db.encodeSignal(name.c_str(), value, out.get(), encodeLength);
    format.db.encodeSignal(name.c_str(), decoded, out.get(), encodeLength);
    return 0;
}
