// Writes the seed inputs that are not plain files from tests/data: device traffic for
// fuzz_receive (every reply code and the three uploads, each as built frames and as raw
// datagrams with their CRCs), signal selections for fuzz_codec, and pruned copies of the two
// example databases for fuzz_fibex and fuzz_autosar.
// Usage: fuzz_make_seeds OUTPUT_DIR EXAMPLES_DIR   (writes OUTPUT_DIR/<target>/)
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

#include "device/protocol_table.h"
#include "unit/frame_test_support.h"
#include "wire.h"

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using kelo_test::referenceFrame;  // one frame as it appears on the wire

namespace {

fs::path outDir;

void writeSeed(const std::string& target, const std::string& name, const Bytes& bytes) {
    std::ofstream out(outDir / target / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void put16be(Bytes& b, unsigned v) {
    b.push_back(std::uint8_t(v >> 8));
    b.push_back(std::uint8_t(v));
}
void put16le(Bytes& b, unsigned v) {
    b.push_back(std::uint8_t(v));
    b.push_back(std::uint8_t(v >> 8));
}
void put32le(Bytes& b, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b.push_back(std::uint8_t(v >> (8 * i)));
}
void append(Bytes& b, const Bytes& more) {
    b.insert(b.end(), more.begin(), more.end());
}

// fuzz_receive, mode 1: the target builds the frames (command, sequence, length, payload).
Bytes builtInput(std::initializer_list<std::pair<std::uint8_t, Bytes>> frames) {
    Bytes in{0x01};
    std::uint16_t sequence = 0x8001;
    for (const auto& frame : frames) {
        in.push_back(frame.first);
        put16be(in, sequence++);
        put16be(in, unsigned(frame.second.size()));
        append(in, frame.second);
    }
    return in;
}

// fuzz_receive, mode 0: raw bytes cut into datagrams of at most `chunk` bytes.
Bytes rawInput(const Bytes& stream, std::size_t chunk) {
    Bytes in{0x00};
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        const std::size_t n = std::min(chunk, stream.size() - at);
        put16be(in, unsigned(n));
        in.insert(in.end(), stream.begin() + long(at), stream.begin() + long(at + n));
    }
    return in;
}

// The reply to each command code as the device sends it (size from the protocol table), status
// 0 (accepted), with the result fields the library reads set to plausible values.
Bytes replyPayload(std::uint8_t code) {
    const kelo::ReplyShape& shape = kelo::kReplyShapes[code];
    Bytes b(shape.reply, 0);
    const auto put = [&b](std::size_t at, std::initializer_list<std::uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), b.begin() + long(at));
    };
    if (shape.status == 0 && b.size() == 4) b[1] = 2;  // bus kind echoed
    switch (code) {
        case kelo::kCmdSetSlotParameter:  // slot id, buffer index
            put(1, {5});
            put(4, {7});
            break;
        case kelo::kCmdSetFifoParameter:
        case kelo::kCmdTransmit:
            put(1, {1});
            break;
        case kelo::kCmdGetNodeState:  // PSR word 0 with POC state 2 in bits 8-10, sub-state
            put(2, {0x00, 0x02});
            put(10, {3});
            break;
        case kelo::kCmdGetNmVector:  // vector length, vector
            put(1, {4, 0x11, 0x22, 0x33, 0x44});
            break;
        case kelo::kCmdMultiTransmit:  // kind, channel, entries taken
            put(1, {2, 1, 0, 1});
            break;
        case kelo::kCmdReadRegister:  // kind, controller, register word
            put(1, {1, 0, 0x78, 0x56, 0x34, 0x12});
            break;
        case kelo::kCmdGetDeviceInfo:
            put(4, {'K', 'e', 'L', 'o', ' ', 'E', 'M', 'U'});
            put(0, {0x03, 0x02, 0x00, 0x01});  // software version
            break;
        case kelo::kCmdConnect:
            put(0, {0x03, 0x02, 0x00, 0x01});  // software version
            break;
        default:
            break;
    }
    return b;
}

// Upload entries packed by the emulator. 115: entry count at 1, entries of 28 bytes (bytes 0-11
// counting from 1) plus 2 x words payload bytes.
Bytes flexRayEntry(std::uint16_t slot, std::uint8_t cycle, std::uint8_t words,
                   std::uint16_t status) {
    kelo::emu::FlexRayEntry e{
        {0x04030201u, 0x08070605u, 0x0C0B0A09u}, 0, {}, slot, cycle, 0, status, {}};
    for (unsigned i = 0; i < 2u * words; ++i)
        e.payload.push_back(std::uint8_t(i * 3 + slot));
    Bytes b;
    kelo::emu::appendFlexRayEntry(b, e);
    return b;
}

Bytes flexRayUpload(std::initializer_list<Bytes> entries, std::uint8_t count) {
    Bytes b{0, count};
    for (const Bytes& e : entries)
        append(b, e);
    return b;
}

// Uploads 146 and 212: a 24-byte header with the entry count at 16, then the entries.
Bytes multiUpload(std::initializer_list<Bytes> entries) {
    Bytes b = kelo::emu::multiHeader(std::uint32_t(entries.size()));
    for (const Bytes& e : entries)
        append(b, e);
    return b;
}

// Word 4-7 passed through, time stamp 1234567 us, channel 1, data counting from 0.
Bytes canEntry(std::uint32_t id, std::uint8_t length, std::uint32_t flags) {
    kelo::emu::CanEntry e{0xCAFE, 1234567, flags, id, Bytes(length)};
    for (unsigned i = 0; i < length; ++i)
        e.data[i] = std::uint8_t(i);
    Bytes b;
    kelo::emu::appendCanEntry(b, e, 1);
    return b;
}

Bytes statusEntry(std::uint16_t type, std::uint16_t state) {
    Bytes e(8, 0);
    put16le(e, type);
    e.resize(24, 0);
    put16le(e, state);
    e.resize(32, 0);
    return e;
}

void receiveSeeds() {
    std::vector<std::pair<std::uint8_t, Bytes>> all;
    for (std::uint8_t code : kelo::kEventCodes) {
        if (code == kelo::kUploadFlexRay || code == kelo::kUploadCan) continue;
        const Bytes payload = replyPayload(code);
        const std::string id = std::to_string(code);
        writeSeed("fuzz_receive", "reply-" + id, builtInput({{code, payload}}));
        writeSeed("fuzz_receive", "raw-reply-" + id,
                  rawInput(referenceFrame(0x8001, code, payload), 1500));
        all.emplace_back(code, payload);
    }
    // A refused reply and one that is one byte too short.
    writeSeed("fuzz_receive", "reply-102-refused", builtInput({{102, {0, 5, 0, 0, 255, 1}}}));
    writeSeed("fuzz_receive", "reply-121-short", builtInput({{121, Bytes(14, 12)}}));

    const Bytes fr = flexRayUpload({flexRayEntry(5, 0, 4, 0x0080), flexRayEntry(17, 63, 0, 0x8000),
                                    flexRayEntry(300, 7, 127, 0x8080)},
                                   3);
    const Bytes frLong = flexRayUpload({flexRayEntry(9, 1, 200, 0x0080)}, 1);  // cut to 254 bytes
    const Bytes frTruncated = flexRayUpload({flexRayEntry(5, 0, 4, 0x80), Bytes(20, 1)}, 2);
    const Bytes can = multiUpload({canEntry(0x100, 8, 0), canEntry(0x1ABCDEF, 5, 0x80300000u),
                                   canEntry(0x7FF, 64, 0x40000000u)});
    // Longer than a record's 64 data bytes.
    const Bytes canLong = multiUpload({canEntry(0x123, 72, 0)});
    const Bytes status = multiUpload({statusEntry(4, 2), statusEntry(3, 1), statusEntry(4, 1)});
    const std::pair<std::string, std::pair<std::uint8_t, Bytes>> uploads[] = {
        {"upload-115-three-entries", {kelo::kUploadFlexRay, fr}},
        {"upload-115-long-entry", {kelo::kUploadFlexRay, frLong}},
        {"upload-115-truncated", {kelo::kUploadFlexRay, frTruncated}},
        {"upload-146-three-entries", {kelo::kUploadCan, can}},
        {"upload-146-long-data", {kelo::kUploadCan, canLong}},
        {"upload-212-bus-states", {kelo::kUploadStatus, status}},
    };
    for (const auto& upload : uploads) {
        writeSeed("fuzz_receive", upload.first, builtInput({upload.second}));
        writeSeed(
            "fuzz_receive", "raw-" + upload.first,
            rawInput(referenceFrame(0x0010, upload.second.first, upload.second.second), 1500));
        all.push_back(upload.second);
    }
    Bytes uploadsOff = builtInput({{kelo::kUploadFlexRay, fr}});
    uploadsOff[0] |= 2;
    writeSeed("fuzz_receive", "upload-115-uploads-off", uploadsOff);
    Bytes strict = builtInput({{kelo::kCmdSetSlotParameter, replyPayload(102)},
                               {kelo::kUploadFlexRay, fr},
                               {kelo::kUploadCan, can},
                               {kelo::kUploadStatus, status}});
    strict[0] |= 4;
    writeSeed("fuzz_receive", "strict-link-reply-and-uploads", strict);

    // Everything in one stream, cut into odd-sized datagrams (frames span datagrams).
    Bytes stream;
    std::uint16_t sequence = 0x8000;
    for (const auto& frame : all)
        append(stream, referenceFrame(sequence++, frame.first, frame.second));
    writeSeed("fuzz_receive", "raw-all-in-37-byte-datagrams", rawInput(stream, 37));

    // Dropped frames before a good one: bad header CRC, bad payload CRC, oversize payload.
    Bytes bad = referenceFrame(0x8002, 113, {0, 0});
    bad[6] ^= 0x01;
    Bytes badPayload = referenceFrame(0x8003, 113, {0, 0});
    badPayload.back() ^= 0x01;
    Bytes dropped = bad;
    append(dropped, badPayload);
    append(dropped, referenceFrame(0x8004, 113, {0, 0}));
    writeSeed("fuzz_receive", "raw-bad-crcs-then-good", rawInput(dropped, 1500));
    Bytes oversize = referenceFrame(0x8005, 112, Bytes(2049, 0x55));
    append(oversize, referenceFrame(0x8006, 112, {0, 0}));
    writeSeed("fuzz_receive", "raw-oversize-then-good", rawInput(oversize, 1400));
    writeSeed("fuzz_receive", "empty-frames", builtInput({{96, {}}, {198, {}}, {255, {}}}));
}

// fuzz_codec: flags, signal index, value bits, encode length, header, payload.
Bytes codecInput(std::uint8_t flags, std::uint16_t index, float value, std::uint8_t length,
                 const std::string& rawName, std::uint8_t fill) {
    Bytes in{flags};
    put16le(in, index);
    std::uint32_t bits;
    static_assert(sizeof bits == sizeof value, "32-bit float");
    std::memcpy(&bits, &value, sizeof bits);
    put32le(in, bits);
    in.push_back(length);
    in.resize(in.size() + 28, 0);
    if (flags & 2) {
        for (char c : rawName)
            in.push_back(std::uint8_t(c));
        in.push_back(0);
    }
    for (unsigned i = 0; i < 64; ++i)
        in.push_back(std::uint8_t(fill + i * 37));
    return in;
}

void codecSeeds() {
    const float values[] = {0.0f, 1.0f, -1.0f, 12.5f, 1000.0f, -40.0f};
    const std::uint8_t lengths[] = {254, 32, 8, 16};
    for (std::uint8_t format = 0; format < 2; ++format) {
        for (std::uint16_t index = 0; index < 48; ++index) {
            writeSeed(
                "fuzz_codec",
                std::string(format ? "autosar" : "fibex") + "-signal-" + std::to_string(index),
                codecInput(std::uint8_t(format | 4), index, values[index % 6], lengths[index % 4],
                           "", std::uint8_t(index)));
        }
        for (const char* name : {"", "_UB", "NoSuchSignal", "NoSuchSignal_UB"}) {
            writeSeed("fuzz_codec",
                      std::string(format ? "autosar" : "fibex") + "-raw-name-" +
                          std::to_string(std::string(name).size()),
                      codecInput(std::uint8_t(format | 2 | 4), 0, 3.0f, 64, name, 0xA5));
        }
    }
}

// Keeps at most `keep` element children of each name below every element, except AUTOSAR
// packages (the package tree is what the reader walks first).
void prune(pugi::xml_node node, int keep) {
    std::map<std::string, int> seen;
    for (pugi::xml_node child = node.first_child(); child;) {
        const pugi::xml_node next = child.next_sibling();
        if (child.type() == pugi::node_element) {
            const std::string name = child.name();
            if (++seen[name] > keep && name != "AR-PACKAGE")
                node.remove_child(child);
            else
                prune(child, keep);
        }
        child = next;
    }
}

// The examples are larger than the readers' fuzzing length limit; pruned to two or three items
// per list they keep nearly all of their coverage in a fraction of the bytes.
bool prunedExamples(const fs::path& examples) {
    const std::pair<const char*, const char*> files[] = {
        {"fuzz_fibex", "powertrain-flexray.xml"},
        {"fuzz_autosar", "chassis-flexray-4.2.arxml"},
    };
    for (const auto& file : files) {
        for (int keep : {2, 3}) {
            pugi::xml_document doc;
            const unsigned options = pugi::parse_default | pugi::parse_declaration;
            if (!doc.load_file((examples / file.second).c_str(), options)) {
                std::fprintf(stderr, "fuzz_make_seeds: cannot read %s\n", file.second);
                return false;
            }
            prune(doc, keep);
            const fs::path name = fs::path(file.second).stem().string() + "-pruned-" +
                                  std::to_string(keep) + fs::path(file.second).extension().string();
            doc.save_file((outDir / file.first / name).c_str(), "  ");
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR EXAMPLES_DIR\n", argv[0]);
        return 2;
    }
    outDir = argv[1];
    for (const char* target : {"fuzz_receive", "fuzz_codec", "fuzz_fibex", "fuzz_autosar"}) {
        fs::remove_all(outDir / target);
        fs::create_directories(outDir / target);
    }
    receiveSeeds();
    codecSeeds();
    return prunedExamples(argv[2]) ? 0 : 1;
}
