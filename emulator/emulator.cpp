#include "emulator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "device/command_codes.h"
#include "device/frame_engine.h"
#include "platform/platform.h"

namespace kelo {
namespace emu {

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMaxUploadPayload = FrameEngine::kMaxPayload;  // 2048
constexpr std::size_t kBufferCount = 255;  // indices 0..254; 255 asks the device to assign one
constexpr auto kTickPeriod = std::chrono::milliseconds(50);
constexpr auto kFloodLatency = std::chrono::milliseconds(1);  // longest a flood record is held

// Reply status values the emulator itself produces.
constexpr std::uint8_t kStatusOk = 0;
constexpr std::uint8_t kStatusRejected = 1;   // no free buffer index, unknown entry kind
constexpr std::uint8_t kStatusMalformed = 2;  // request shorter than the fields it must carry

// FlexRay POC states the simulated node moves through (bits 8-10 of the node-state word).
constexpr std::uint8_t kPocDefaultConfig = 0;
constexpr std::uint8_t kPocReady = 1;
constexpr std::uint8_t kPocNormalActive = 2;

inline void putLe16(std::uint8_t* p, std::uint16_t v) {
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void putLe32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void putLe64(std::uint8_t* p, std::uint64_t v) {
    putLe32(p, static_cast<std::uint32_t>(v));
    putLe32(p + 4, static_cast<std::uint32_t>(v >> 32));
}
inline std::uint32_t le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Bounds-checked view of a host payload: bytes past the end read as 0.
struct Request {
    const std::uint8_t* data;
    std::size_t size;
    std::uint8_t operator[](std::size_t i) const { return i < size ? data[i] : 0; }
    std::uint16_t le16(std::size_t i) const {
        return static_cast<std::uint16_t>((*this)[i] | ((*this)[i + 1] << 8));
    }
    std::uint32_t le32(std::size_t i) const {
        return static_cast<std::uint32_t>(le16(i)) |
               (static_cast<std::uint32_t>(le16(i + 2)) << 16);
    }
};

// Reply layout of each answered command: payload size and status position. Size 0 = no reply.
struct ReplyShape {
    std::uint8_t size = 0;
    std::uint8_t statusAt = 0;
    std::uint8_t minRequest = 0;  // shorter requests are answered with kStatusMalformed
};

constexpr std::array<ReplyShape, 256> makeShapes() {
    std::array<ReplyShape, 256> s{};
    // byte 0 = controller echoed, byte 1 = status
    for (int c : {96, 98, 100, 112})
        s[c] = {2, 1, 0};
    for (int c : {107, 108, 110, 113, 114, 120})
        s[c] = {2, 1, 1};
    s[102] = {6, 5, 14};
    s[105] = {3, 2, kFifoRecordSize};
    s[111] = {3, 2, 4};
    s[116] = {13, 12, 1};
    s[121] = {15, 14, 1};
    // byte 0 = status, bytes 1-2 = request bytes 0-1 echoed
    for (int c : {130, 132, 137, 139, 153, 193, 194, 195, 197, 210, 211})
        s[c] = {4, 0, 0};
    s[142] = s[143] = {4, 0, 2};
    s[149] = {4, 0, 6};
    s[150] = {7, 0, 2};
    s[145] = {8, 0, kMultiHeaderSize};
    s[192] = {5, 4, 0};
    s[198] = {kDeviceInfoSize, 71, 0};
    return s;
}
constexpr std::array<ReplyShape, 256> kShapes = makeShapes();

struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
};

// A frame waiting to leave: a reply (reusing the host's sequence) or an upload.
// Drop and CRC faults for one frame, when they were decided before it was built.
struct FrameFaults {
    bool decided = false;
    bool drop = false;
    bool corruptHeader = false;
    bool corruptPayload = false;
};

struct Outgoing {
    std::uint8_t code = 0;
    bool reply = false;
    std::uint16_t sequence = 0;
    Bytes payload;
    Endpoint to;
    FrameFaults faults;
};

struct Fault {
    int refuseTimes = 0;
    std::uint8_t refuseStatus = 0;
    int dropTimes = 0;
    int delayTimes = 0;
    unsigned delayMs = 0;
    int corruptHeaderTimes = 0;
    int corruptPayloadTimes = 0;
};

// Uses one application of a fault: < 0 applies for ever, > 0 counts down, 0 is off.
bool take(int& times) {
    if (times < 0) return true;
    if (times == 0) return false;
    --times;
    return true;
}

void appendFlexRayEntry(Bytes& out, const FlexRayEntry& e) {
    const std::size_t words = std::min<std::size_t>((e.payload.size() + 1) / 2, 255);
    const std::size_t at = out.size();
    out.resize(at + kFrUploadEntryHead + 2 * words, 0);
    std::uint8_t* p = out.data() + at;
    for (int i = 0; i < 3; ++i)
        putLe32(p + 4 * i, e.words[i]);
    p[13] = e.byte13;
    std::memcpy(p + 14, e.bytes14to16, 3);
    putLe16(p + 18, e.slot);
    p[20] = e.cycle;
    p[21] = static_cast<std::uint8_t>(words);
    putLe16(p + 22, e.bytes22to23);
    putLe16(p + 24, e.statusWord);
    if (!e.payload.empty())
        std::memcpy(p + kFrUploadEntryHead, e.payload.data(),
                    std::min(e.payload.size(), 2 * words));
}

std::size_t flexRayEntrySize(const FlexRayEntry& e) {
    return kFrUploadEntryHead + 2 * std::min<std::size_t>((e.payload.size() + 1) / 2, 255);
}

std::size_t canEntrySize(const CanEntry& e) {
    return (kCanUploadEntryHead + std::min<std::size_t>(e.data.size(), 255) + 3) & ~std::size_t{3};
}

void appendCanEntry(Bytes& out, const CanEntry& e, std::uint8_t channel) {
    const std::size_t length = std::min<std::size_t>(e.data.size(), 255);
    const std::size_t at = out.size();
    out.resize(at + canEntrySize(e), 0);
    std::uint8_t* p = out.data() + at;
    putLe32(p + 4, e.word4);
    putLe64(p + 8, e.timestampUs);
    p[20] = 2;  // bus kind CAN
    p[21] = channel;
    putLe32(p + 24, e.flags);
    putLe32(p + 28, e.identifier);
    p[32] = static_cast<std::uint8_t>(length);
    if (length != 0) std::memcpy(p + kCanUploadEntryHead, e.data.data(), length);
}

FifoConfig readFifoRecord(const Request& r) {
    FifoConfig f;
    f.configured = true;
    f.pass = r[2];
    f.rejectFrameId = r.le16(4);
    f.rejectMask = r.le16(6);
    f.depth = r.le16(8);
    f.criteria = r.le16(10);
    for (std::size_t g = 0; g < f.groups.size(); ++g) {
        const std::size_t at = 12 + 8 * g;
        f.groups[g] = {r[at], r.le16(at + 2), r.le16(at + 4), r[at + 6]};
    }
    f.groupCount = r[kFifoGroupCountAt];
    return f;
}

Bytes multiHeader(std::uint32_t count) {
    Bytes out(kMultiHeaderSize, 0);
    putLe32(out.data() + 16, count);
    return out;
}

}  // namespace

struct DeviceEmulator::Impl : DatagramSink {
    Impl(std::string addr, std::uint16_t p)
        : address(std::move(addr)), port(p), engine(0, this, this, engineLock) {
        info.fill(0);
        putLe32(info.data(), 0x01000203u);
        const char text[] = "KeLo EMU";
        std::memcpy(info.data() + 4, text, sizeof text - 1);
        buffers.resize(kBufferCount);
        setPoc(kPocDefaultConfig);
    }

    // ---- configuration ----
    const std::string address;
    const std::uint16_t port;
    const Clock::time_point epoch = Clock::now();

    // ---- link ----
    std::mutex lifecycleLock;  // start / stop
    UdpSocket socket;
    Lock engineLock;  // the engine's send lock
    FrameEngine engine;
    std::atomic<bool> running{false};
    std::thread rxThread;
    Endpoint from;                             // source of the datagram being parsed (rx thread)
    std::atomic<std::uint64_t> hostPacked{0};  // 1 << 48 | address << 16 | port; 0 = unknown

    // Outgoing frames: outLock keeps the datagrams of one frame together and in order.
    std::mutex outLock;
    Bytes outBytes;
    std::vector<std::size_t> outSizes;

    // ---- device state (stateLock) ----
    mutable std::mutex stateLock;
    std::array<std::uint8_t, 72> info{};
    std::array<std::uint16_t, 4> psr{{0, 0, 0, 0}};
    std::uint8_t subState = 0;
    std::vector<std::uint8_t> nmVector;
    std::map<std::uint16_t, std::uint32_t> registers;  // kind << 8 | controller
    std::vector<SlotBuffer> buffers;
    std::map<std::uint8_t, FifoConfig> fifos;  // by controller
    bool started = false;
    std::uint32_t startGeneration = 0;
    bool uploads = false;
    bool canOn = false;
    std::uint8_t canChannel = 0;
    unsigned cycleMs = 5;
    unsigned canPeriodMs = 0;
    std::uint32_t canIdentifier = 0;
    std::uint8_t canLength = 0;

    // ---- host frames received ----
    mutable std::mutex rxLock;
    mutable std::condition_variable rxCv;
    std::vector<ReceivedFrame> frames;
    std::array<std::size_t, 256> counts{};

    // ---- fault plan ----
    std::mutex faultLock;
    std::atomic<bool> anyFault{false};
    std::map<std::uint8_t, Fault> faults;
    std::size_t splitBytes = 0;
    bool duplicate = false;

    // ---- simulation thread: engine tick, delayed replies, FlexRay cycles, CAN traffic ----
    std::mutex simLock;
    std::condition_variable simCv;
    bool simStop = false;
    bool simDirty = false;
    std::multimap<Clock::time_point, Outgoing> delayed;
    std::thread simThread;
    // Owned by the simulation thread.
    bool cycling = false;
    std::uint32_t seenGeneration = 0;
    Clock::time_point nextCycle;
    std::uint8_t cycle = 0;
    std::uint32_t cycleCount = 0;
    bool canTicking = false;
    Clock::time_point nextCan;
    std::uint32_t canGenerated = 0;

    // ---- flood ----
    std::mutex floodLock;
    std::condition_variable floodCv;
    bool floodStop = false;
    bool floodDone = true;
    std::thread floodThread;
    std::atomic<std::uint64_t> floodCount{0};

    // ------------------------------------------------------------------------------------------

    std::uint64_t microsSinceStart() const {
        return static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - epoch).count());
    }
    std::uint64_t nanosSinceStart() const {
        return static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - epoch).count());
    }

    bool host(Endpoint& out) const {
        const std::uint64_t v = hostPacked.load();
        if (v == 0) return false;
        out.address = static_cast<std::uint32_t>(v >> 16);
        out.port = static_cast<std::uint16_t>(v);
        return true;
    }

    void poke() {
        {
            std::lock_guard<std::mutex> g(simLock);
            simDirty = true;
        }
        simCv.notify_all();
    }

    // ---- sending ----

    void sendDatagram(const std::uint8_t* data, std::size_t length) override {
        outBytes.insert(outBytes.end(), data, data + length);
        outSizes.push_back(length);
    }

    // Frames one command or upload with the engine and sends it to `to`, applying the fault plan
    // (drop and CRC corruption by the frame's code; split and duplicate for every datagram).
    void emit(std::uint8_t code, const std::uint8_t* payload, std::size_t length, bool reply,
              std::uint16_t sequence, const Endpoint& to, FrameFaults decided = FrameFaults{}) {
        bool corruptHeader = decided.corruptHeader, corruptPayload = decided.corruptPayload;
        if (decided.drop) return;
        std::size_t split = 0;
        bool twice = false;
        if (anyFault.load()) {
            std::lock_guard<std::mutex> g(faultLock);
            if (!decided.decided) {
                const FrameFaults f = takeFrameFaults(code);
                if (f.drop) return;
                corruptHeader = f.corruptHeader;
                corruptPayload = f.corruptPayload;
            }
            split = splitBytes;
            twice = duplicate;
        }
        const auto len = static_cast<std::uint16_t>(std::min<std::size_t>(length, 0xFFFF));

        std::lock_guard<std::mutex> g(outLock);
        outBytes.clear();
        outSizes.clear();
        if (reply)
            engine.sendReply(sequence, code, payload, len);
        else
            engine.send(code, payload, len);
        if (outBytes.empty()) return;
        if (corruptHeader) outBytes[7] ^= 0x5A;                   // low byte of the header CRC
        if (corruptPayload && len != 0) outBytes.back() ^= 0x5A;  // low byte of the payload CRC

        std::size_t at = 0;
        for (std::size_t size : outSizes) {
            const std::size_t piece = split == 0 ? size : split;
            for (std::size_t done = 0; done < size; done += piece) {
                const std::size_t n = std::min(piece, size - done);
                socket.sendTo(to.address, to.port, outBytes.data() + at + done, n);
                if (twice) socket.sendTo(to.address, to.port, outBytes.data() + at + done, n);
            }
            at += size;
        }
    }

    // Uses up one application of the drop and CRC faults of a frame code (faultLock held).
    FrameFaults takeFrameFaults(std::uint8_t code) {
        FrameFaults f;
        f.decided = true;
        auto it = faults.find(code);
        if (it == faults.end()) return f;
        f.drop = take(it->second.dropTimes);
        if (f.drop) return f;
        f.corruptHeader = take(it->second.corruptHeaderTimes);
        f.corruptPayload = take(it->second.corruptPayloadTimes);
        return f;
    }

    void emit(const Outgoing& o) {
        emit(o.code, o.payload.data(), o.payload.size(), o.reply, o.sequence, o.to, o.faults);
    }

    bool upload(std::uint8_t code, const Bytes& payload) {
        Endpoint to;
        if (!host(to)) return false;
        emit(code, payload.data(), payload.size(), false, 0, to);
        return true;
    }

    void uploadFlexRayEntries(const std::vector<FlexRayEntry>& entries) {
        Bytes payload{0, 0};
        for (const FlexRayEntry& e : entries) {
            if (payload[1] == 255 || payload.size() + flexRayEntrySize(e) > kMaxUploadPayload) {
                upload(kUploadFlexRay, payload);
                payload.assign(2, 0);
            }
            appendFlexRayEntry(payload, e);
            ++payload[1];
        }
        if (payload[1] != 0 || entries.empty()) upload(kUploadFlexRay, payload);
    }

    void uploadCanEntries(const std::vector<CanEntry>& entries, std::uint8_t channel) {
        Bytes payload = multiHeader(0);
        std::uint32_t count = 0;
        for (const CanEntry& e : entries) {
            if (count != 0 && payload.size() + canEntrySize(e) > kMaxUploadPayload) {
                putLe32(payload.data() + 16, count);
                upload(kUploadCan, payload);
                payload = multiHeader(0);
                count = 0;
            }
            appendCanEntry(payload, e, channel);
            ++count;
        }
        if (count != 0 || entries.empty()) {
            putLe32(payload.data() + 16, count);
            upload(kUploadCan, payload);
        }
    }

    Bytes statusUpload(std::uint16_t state, std::uint8_t controller) const {
        Bytes payload = multiHeader(1);
        payload.resize(kMultiHeaderSize + kStatusEntrySize, 0);
        std::uint8_t* e = payload.data() + kMultiHeaderSize;
        putLe64(e, microsSinceStart());
        putLe16(e + 8, 4);  // entry type: bus state
        e[10] = controller;
        putLe16(e + 24, state);
        return payload;
    }

    // ---- receiving ----

    static int onFrame(FrameEngine& engine, const FrameMessage& m) {
        static_cast<Impl*>(engine.owner())->handle(m);
        return 1;
    }

    void rxLoop() {
        std::vector<std::uint8_t> buffer(65536);
        while (running.load()) {
            std::uint32_t address = 0;
            std::uint16_t fromPort = 0;
            const int n = socket.receive(buffer.data(), buffer.size(), &address, &fromPort);
            if (n <= 0 || !running.load()) continue;
            from = {address, fromPort};
            engine.feed(buffer.data(), static_cast<std::size_t>(n));
        }
    }

    void handle(const FrameMessage& m) {
        const Request r{m.payload, m.payload ? m.length : std::size_t{0}};
        const ReplyShape shape = kShapes[m.command];
        // Every fault decision for this frame's reply is taken before the frame is recorded, so a
        // test that has seen the frame (waitFor) can re-arm the plan for the next command safely.
        bool refused = false;
        std::uint8_t refuseStatus = 0;
        unsigned delayMs = 0;
        FrameFaults replyFaults;
        if (anyFault.load()) {
            std::lock_guard<std::mutex> g(faultLock);
            auto it = faults.find(m.command);
            if (it != faults.end() && shape.size != 0) {
                refused = take(it->second.refuseTimes);
                refuseStatus = it->second.refuseStatus;
                if (take(it->second.delayTimes)) delayMs = it->second.delayMs;
            }
            if (shape.size != 0) replyFaults = takeFrameFaults(m.command);
        }
        {
            std::lock_guard<std::mutex> g(rxLock);
            ReceivedFrame f;
            f.sequence = m.sequence;
            f.command = m.command;
            f.payload.assign(r.data, r.data + r.size);
            frames.push_back(std::move(f));
            ++counts[m.command];
        }
        rxCv.notify_all();
        hostPacked.store((std::uint64_t{1} << 48) | (std::uint64_t{from.address} << 16) |
                         from.port);

        if (shape.size == 0) return;  // 22, 255 and unknown codes are not answered

        Outgoing reply;
        reply.code = m.command;
        reply.reply = true;
        reply.sequence = m.sequence;
        reply.to = from;
        reply.faults = replyFaults;
        reply.payload = Bytes(shape.size, 0);
        std::vector<Outgoing> before, after;
        // A refused or malformed command changes nothing; its reply still carries the fields.
        const bool apply = !refused && r.size >= shape.minRequest;
        const std::uint8_t status = execute(m.command, r, reply.payload, apply, before, after);
        reply.payload[shape.statusAt] = refused ? refuseStatus : apply ? status : kStatusMalformed;

        for (Outgoing& o : before) {
            o.to = from;
            emit(o);
        }
        if (delayMs != 0) {
            {
                std::lock_guard<std::mutex> g(simLock);
                delayed.emplace(Clock::now() + std::chrono::milliseconds(delayMs),
                                std::move(reply));
                simDirty = true;
            }
            simCv.notify_all();
        } else {
            emit(reply);
        }
        for (Outgoing& o : after) {
            o.to = from;
            emit(o);
        }
    }

    // Carries out one command (when `apply`) and fills the reply's fields. Returns the status.
    std::uint8_t execute(std::uint8_t code, const Request& r, Bytes& out, bool apply,
                         std::vector<Outgoing>& before, std::vector<Outgoing>& after) {
        std::uint8_t status = kStatusOk;
        const ReplyShape shape = kShapes[code];
        if (shape.statusAt == 0) {
            out[1] = r[0];
            out[2] = r[1];
        } else if (code != kCmdGetDeviceInfo && code != kCmdConnect) {
            out[0] = r[0];
        }

        bool wake = false;
        std::lock_guard<std::mutex> g(stateLock);
        switch (code) {
            case kCmdSetSlotParameter: {
                // Record: controller, then the 12-byte slot block from byte 1.
                std::uint8_t index = r[1];
                out[1] = r[3];
                out[2] = r[4];
                if (apply) {
                    if (index == 255) {
                        for (std::size_t i = 0; i < kBufferCount; ++i) {
                            if (!buffers[i].configured) {
                                index = static_cast<std::uint8_t>(i);
                                break;
                            }
                        }
                    }
                    if (index == 255) {
                        status = kStatusRejected;
                    } else {
                        SlotBuffer& b = buffers[index];
                        b = SlotBuffer{};
                        b.configured = true;
                        b.controller = r[0];
                        b.slot = r.le16(3);
                        b.words = r[6];
                        b.channelA = r[8] != 0;
                        b.channelB = r[9] != 0;
                        b.baseCycle = r[10];
                        b.repetition = r[11] == 0 ? 1 : r[11];
                    }
                }
                out[4] = index;
                break;
            }
            case kCmdSetFifoParameter:
                out[1] = r[2];
                if (apply) fifos[r[0]] = readFifoRecord(r);
                break;
            case kCmdConfigureNode:
                if (apply) setPoc(kPocReady);
                break;
            case kCmdStartNode:
                if (apply) {
                    started = true;
                    ++startGeneration;
                    setPoc(kPocNormalActive);
                    before.push_back({kUploadStatus, false, 0, statusUpload(1, r[0]), {}, {}});
                    wake = true;
                }
                break;
            case kCmdStopNode:
                if (apply) {
                    started = false;
                    setPoc(kPocReady);
                    before.push_back({kUploadStatus, false, 0, statusUpload(2, r[0]), {}, {}});
                    wake = true;
                }
                break;
            case kCmdTransmit: {
                out[1] = r[1];
                const std::size_t bytes = 2u * r[2];
                if (apply && r.size < 4 + bytes) status = kStatusMalformed;
                if (apply && status == kStatusOk && r[1] < kBufferCount)
                    buffers[r[1]].data.assign(r.data + 4, r.data + 4 + bytes);
                break;
            }
            case kCmdStartRxUpload:
            case kCmdStopRxUpload:
                if (apply) uploads = code == kCmdStartRxUpload;
                break;
            case kCmdGetNodeState:
                for (int i = 0; i < 4; ++i)
                    putLe16(out.data() + 2 + 2 * i, psr[i]);
                out[10] = subState;
                break;
            case kCmdGetNmVector:
                out[1] = static_cast<std::uint8_t>(nmVector.size());
                std::copy(nmVector.begin(), nmVector.end(), out.begin() + 2);
                break;
            case kCmdCanStart:
            case kCmdCanStop:
                if (apply) {
                    canOn = code == kCmdCanStart;
                    canChannel = r[1];
                    wake = true;
                }
                break;
            case kCmdMultiTransmit:
                // Kind and channel (controller) of the first entry.
                out[1] = r[kMultiHeaderSize + 20];
                out[2] = r[kMultiHeaderSize + 21];
                if (apply) status = multiTransmit(r, out, after);
                break;
            case kCmdSetClusterParameter:
                // A new cluster configuration resets the controller's message buffers.
                if (apply)
                    for (SlotBuffer& b : buffers)
                        b = SlotBuffer{};
                break;
            case kCmdWriteRegister:
                if (apply) registers[static_cast<std::uint16_t>(r[0] << 8 | r[1])] = r.le32(2);
                break;
            case kCmdReadRegister: {
                auto it = registers.find(static_cast<std::uint16_t>(r[0] << 8 | r[1]));
                putLe32(out.data() + 3, it == registers.end() ? 0 : it->second);
                break;
            }
            case kCmdClose:
                // The host goes away: stop everything that would keep uploading to it.
                if (apply) {
                    started = false;
                    uploads = false;
                    canOn = false;
                    setPoc(kPocReady);
                    wake = true;
                }
                break;
            case kCmdConnect:
                putLe32(out.data(), le32(info.data()));  // software version
                break;
            case kCmdGetDeviceInfo:
                std::copy(info.begin(), info.end(), out.begin());
                break;
            default:
                break;
        }
        if (wake) poke();
        return status;
    }

    // 145: a 24-byte header (entry count at 16-19) and entries of 40 bytes plus data.
    std::uint8_t multiTransmit(const Request& r, Bytes& out, std::vector<Outgoing>& after) {
        const std::uint32_t count = r.le32(16);
        std::size_t at = kMultiHeaderSize;
        std::uint32_t taken = 0;
        std::uint8_t status = kStatusOk;
        std::vector<std::pair<CanEntry, std::uint8_t>> echo;  // entry, channel
        for (; taken < count; ++taken) {
            if (at + kCanUploadEntryHead > r.size) {
                status = kStatusMalformed;
                break;
            }
            const std::uint8_t* e = r.data + at;
            if (e[20] == 1) {  // FlexRay: buffer index at 22, words at 33
                const std::size_t bytes = 2u * e[33];
                if (at + kCanUploadEntryHead + bytes > r.size) {
                    status = kStatusMalformed;
                    break;
                }
                if (e[22] < kBufferCount)
                    buffers[e[22]].data.assign(e + kCanUploadEntryHead,
                                               e + kCanUploadEntryHead + bytes);
                at += kCanUploadEntryHead + bytes;
            } else if (e[20] == 2) {  // CAN: flags 24-27, identifier 28-31, length 32
                const std::size_t length = e[32];
                if (at + kCanUploadEntryHead + length > r.size) {
                    status = kStatusMalformed;
                    break;
                }
                CanEntry c;
                c.word4 = le32(e + 4);
                c.flags = le32(e + 24);
                c.identifier = le32(e + 28);
                c.data.assign(e + kCanUploadEntryHead, e + kCanUploadEntryHead + length);
                c.timestampUs = microsSinceStart();
                echo.emplace_back(std::move(c), e[21]);
                at += kCanUploadEntryHead + length;
            } else {
                status = kStatusRejected;
                break;
            }
        }
        putLe32(out.data() + 4, taken);
        if (canOn && !echo.empty()) {
            // Echoed after the reply, as one or more 146 frames.
            Bytes payload = multiHeader(0);
            std::uint32_t n = 0;
            for (const auto& [c, channel] : echo) {
                if (n != 0 && payload.size() + canEntrySize(c) > kMaxUploadPayload) {
                    putLe32(payload.data() + 16, n);
                    after.push_back({kUploadCan, false, 0, payload, {}, {}});
                    payload = multiHeader(0);
                    n = 0;
                }
                appendCanEntry(payload, c, channel);
                ++n;
            }
            putLe32(payload.data() + 16, n);
            after.push_back({kUploadCan, false, 0, std::move(payload), {}, {}});
        }
        return status;
    }

    void setPoc(std::uint8_t poc) {
        psr[0] = static_cast<std::uint16_t>((psr[0] & ~0x0700u) | ((poc & 7u) << 8));
    }

    // ---- simulation thread ----

    void simLoop() {
        Clock::time_point nextTick = Clock::now() + kTickPeriod;
        std::unique_lock<std::mutex> lk(simLock);
        while (!simStop) {
            Clock::time_point wakeAt = nextTick;
            if (cycling) wakeAt = std::min(wakeAt, nextCycle);
            if (canTicking) wakeAt = std::min(wakeAt, nextCan);
            if (!delayed.empty()) wakeAt = std::min(wakeAt, delayed.begin()->first);
            simCv.wait_until(lk, wakeAt, [&] { return simStop || simDirty; });
            if (simStop) break;
            simDirty = false;
            Clock::time_point now = Clock::now();
            std::vector<Outgoing> due;
            while (!delayed.empty() && delayed.begin()->first <= now) {
                due.push_back(std::move(delayed.begin()->second));
                delayed.erase(delayed.begin());
            }
            lk.unlock();

            for (const Outgoing& o : due)
                emit(o);
            if (now >= nextTick) {
                engine.tick();
                nextTick += kTickPeriod;
                if (nextTick <= now) nextTick = now + kTickPeriod;
            }
            runCycles(now);
            runCanTraffic(now);
            lk.lock();
        }
    }

    // One FlexRay cycle per period while the node is started. The state lock is held while a
    // cycle's upload is sent, so no upload leaves after the reply to 110 or 114.
    void runCycles(Clock::time_point now) {
        std::lock_guard<std::mutex> g(stateLock);
        if (!started) {
            cycling = false;
            return;
        }
        const auto period = std::chrono::milliseconds(cycleMs);
        if (!cycling || seenGeneration != startGeneration) {
            cycling = true;
            seenGeneration = startGeneration;
            nextCycle = now;
            cycle = 0;
            cycleCount = 0;
        }
        if (now - nextCycle > 8 * period) nextCycle = now;  // fell behind: skip, do not burst
        while (nextCycle <= now) {
            if (uploads) uploadCycle();
            cycle = static_cast<std::uint8_t>((cycle + 1) % 64);
            ++cycleCount;
            nextCycle += period;
        }
    }

    void uploadCycle() {
        std::vector<FlexRayEntry> entries;
        const std::uint64_t stamp = nanosSinceStart();
        for (std::size_t i = 0; i < kBufferCount; ++i) {
            const SlotBuffer& b = buffers[i];
            if (!b.configured || cycle % b.repetition != b.baseCycle) continue;
            FlexRayEntry e;
            e.words[0] = static_cast<std::uint32_t>(stamp);
            e.words[1] = static_cast<std::uint32_t>(stamp >> 32);
            e.words[2] = cycleCount;
            e.slot = b.slot;
            e.cycle = cycle;
            e.statusWord = static_cast<std::uint16_t>((b.channelA ? 0x0080u : 0u) |
                                                      (b.channelB ? 0x8000u : 0u));
            e.payload.assign(2u * b.words, 0);
            std::copy_n(b.data.begin(), std::min(b.data.size(), e.payload.size()),
                        e.payload.begin());
            entries.push_back(std::move(e));
        }
        if (!entries.empty()) uploadFlexRayEntries(entries);
    }

    void runCanTraffic(Clock::time_point now) {
        std::lock_guard<std::mutex> g(stateLock);
        if (!canOn || canPeriodMs == 0) {
            canTicking = false;
            return;
        }
        const auto period = std::chrono::milliseconds(canPeriodMs);
        if (!canTicking) {
            canTicking = true;
            nextCan = now;
        }
        if (now - nextCan > 8 * period) nextCan = now;
        while (nextCan <= now) {
            CanEntry e;
            e.timestampUs = microsSinceStart();
            e.identifier = canIdentifier;
            e.data.resize(canLength);
            for (std::size_t i = 0; i < e.data.size(); ++i)
                e.data[i] = static_cast<std::uint8_t>(canGenerated + i);
            ++canGenerated;
            uploadCanEntries({e}, canChannel);
            nextCan += period;
        }
    }

    // ---- flood ----

    void floodLoop(std::uint64_t total, std::uint64_t rate, std::uint8_t words) {
        Endpoint to;
        const std::size_t entrySize = kFrUploadEntryHead + 2u * words;
        const std::size_t perFrame =
            std::min<std::size_t>(255, (kMaxUploadPayload - 2) / entrySize);
        Bytes payload(kMaxUploadPayload, 0);
        const Clock::time_point begin = Clock::now();
        Clock::time_point lastFrame = begin;
        // Time by which the first `records` records are due at the requested rate.
        auto dueAt = [&](std::uint64_t records) {
            return begin +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                       static_cast<double>(records) / static_cast<double>(rate)));
        };
        std::uint64_t sent = 0;
        std::unique_lock<std::mutex> lk(floodLock);
        while (sent < total && !floodStop && host(to)) {
            // Records the clock allows so far; a rate of 0 means no limit.
            const Clock::time_point now = Clock::now();
            std::uint64_t allowed = total;
            if (rate != 0) {
                const double byClock =
                    static_cast<double>(rate) * std::chrono::duration<double>(now - begin).count();
                if (byClock < static_cast<double>(total))
                    allowed = static_cast<std::uint64_t>(byClock);
            }
            // Full frames when the rate allows; a partial one once a record waited 1 ms.
            const std::uint64_t want = std::min<std::uint64_t>(perFrame, total - sent);
            if (allowed < sent + want && (allowed <= sent || now - lastFrame < kFloodLatency)) {
                const auto next = std::min(dueAt(sent + want),
                                           std::max(lastFrame + kFloodLatency, dueAt(sent + 1)));
                floodCv.wait_until(lk, next, [&] { return floodStop; });
                continue;
            }
            lastFrame = now;
            lk.unlock();
            const std::size_t n =
                static_cast<std::size_t>(std::min<std::uint64_t>(perFrame, allowed - sent));
            const std::uint64_t stamp = nanosSinceStart();
            payload[0] = 0;
            payload[1] = static_cast<std::uint8_t>(n);
            std::uint8_t* e = payload.data() + 2;
            for (std::size_t i = 0; i < n; ++i, e += entrySize) {
                const auto counter = static_cast<std::uint32_t>(sent + i);
                std::memset(e, 0, entrySize);
                putLe32(e, counter);
                putLe64(e + 4, stamp);
                putLe16(e + 18, 1);  // slot 1
                e[20] = static_cast<std::uint8_t>(counter & 63u);
                e[21] = words;
                putLe16(e + 24, 0x8080);
                if (words >= 2) putLe32(e + kFrUploadEntryHead, counter);
            }
            emit(kUploadFlexRay, payload.data(), 2 + n * entrySize, false, 0, to);
            sent += n;
            floodCount.store(sent);
            lk.lock();
        }
        floodDone = true;
        lk.unlock();
        floodCv.notify_all();
    }

    void stopFlood() {
        {
            std::lock_guard<std::mutex> g(floodLock);
            floodStop = true;
        }
        floodCv.notify_all();
        if (floodThread.joinable()) floodThread.join();
    }
};

// ---- DeviceEmulator ----------------------------------------------------------------------------

DeviceEmulator::DeviceEmulator(std::string address, std::uint16_t port)
    : impl_(std::make_unique<Impl>(std::move(address), port)) {
    impl_->engine.addGeneralHandler(&Impl::onFrame);
}

DeviceEmulator::~DeviceEmulator() {
    stop();
}

bool DeviceEmulator::start() {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> g(d.lifecycleLock);
    if (d.running.load()) return true;
    const std::uint32_t address = parseIPv4(d.address.c_str());
    if (address == 0xFFFFFFFFu || !netStartup() || !d.socket.open()) return false;
    d.socket.setReceiveBuffer(0x400000);
    if (!d.socket.setReceiveTimeout(1000) || !d.socket.bind(address, d.port)) {
        d.socket.close();
        return false;
    }
    d.running.store(true);
    {
        std::lock_guard<std::mutex> s(d.simLock);
        d.simStop = false;
    }
    d.rxThread = std::thread([&d] { d.rxLoop(); });
    d.simThread = std::thread([&d] { d.simLoop(); });
    return true;
}

void DeviceEmulator::stop() {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> g(d.lifecycleLock);
    d.stopFlood();
    {
        std::lock_guard<std::mutex> s(d.simLock);
        d.simStop = true;
        d.delayed.clear();
    }
    d.simCv.notify_all();
    if (d.simThread.joinable()) d.simThread.join();
    d.running.store(false);
    d.socket.interrupt();
    if (d.rxThread.joinable()) d.rxThread.join();
    d.socket.close();
}

const std::string& DeviceEmulator::address() const {
    return impl_->address;
}

// ---- identity and device state ----

void DeviceEmulator::setDeviceInfo(const std::array<std::uint8_t, 72>& info) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    impl_->info = info;
}

void DeviceEmulator::setSoftwareVersion(std::uint32_t version) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    putLe32(impl_->info.data(), version);
}

void DeviceEmulator::setNodeState(std::uint8_t pocState, std::uint8_t subState) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    impl_->setPoc(pocState);
    impl_->subState = subState;
}

void DeviceEmulator::setPsrWords(const std::array<std::uint16_t, 4>& words) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    impl_->psr = words;
}

void DeviceEmulator::setNmVector(const std::vector<std::uint8_t>& vector) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    impl_->nmVector.assign(vector.begin(),
                           vector.begin() + std::min<std::size_t>(vector.size(), 12));
}

std::uint32_t DeviceEmulator::registerWord(std::uint8_t kind, std::uint8_t controller) const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    auto it = impl_->registers.find(static_cast<std::uint16_t>(kind << 8 | controller));
    return it == impl_->registers.end() ? 0 : it->second;
}

void DeviceEmulator::setRegisterWord(std::uint8_t kind, std::uint8_t controller,
                                     std::uint32_t word) {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    impl_->registers[static_cast<std::uint16_t>(kind << 8 | controller)] = word;
}

bool DeviceEmulator::nodeStarted() const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    return impl_->started;
}

bool DeviceEmulator::uploadsOn() const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    return impl_->uploads;
}

bool DeviceEmulator::canStarted() const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    return impl_->canOn;
}

std::vector<SlotBuffer> DeviceEmulator::slotBuffers() const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    return impl_->buffers;
}

FifoConfig DeviceEmulator::fifo(std::uint8_t controller) const {
    std::lock_guard<std::mutex> g(impl_->stateLock);
    const auto it = impl_->fifos.find(controller);
    return it == impl_->fifos.end() ? FifoConfig{} : it->second;
}

void DeviceEmulator::setCyclePeriodMs(unsigned ms) {
    {
        std::lock_guard<std::mutex> g(impl_->stateLock);
        impl_->cycleMs = ms == 0 ? 1 : ms;
    }
    impl_->poke();
}

// ---- what the host sent ----

std::vector<ReceivedFrame> DeviceEmulator::received() const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    return impl_->frames;
}

std::vector<ReceivedFrame> DeviceEmulator::received(std::uint8_t command) const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    std::vector<ReceivedFrame> out;
    for (const ReceivedFrame& f : impl_->frames)
        if (f.command == command) out.push_back(f);
    return out;
}

std::size_t DeviceEmulator::count(std::uint8_t command) const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    return impl_->counts[command];
}

void DeviceEmulator::clearReceived() {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    impl_->frames.clear();
    impl_->counts.fill(0);
}

bool DeviceEmulator::waitFor(std::uint8_t command, std::size_t n, unsigned timeoutMs) const {
    std::unique_lock<std::mutex> g(impl_->rxLock);
    return impl_->rxCv.wait_for(g, std::chrono::milliseconds(timeoutMs),
                                [&] { return impl_->counts[command] >= n; });
}

// ---- fault plan ----

void DeviceEmulator::refuse(std::uint8_t command, std::uint8_t status, int times) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    Fault& f = impl_->faults[command];
    f.refuseTimes = times;
    f.refuseStatus = status;
    impl_->anyFault.store(true);
}

void DeviceEmulator::drop(std::uint8_t command, int times) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->faults[command].dropTimes = times;
    impl_->anyFault.store(true);
}

void DeviceEmulator::delay(std::uint8_t command, unsigned ms, int times) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    Fault& f = impl_->faults[command];
    f.delayTimes = times;
    f.delayMs = ms;
    impl_->anyFault.store(true);
}

void DeviceEmulator::corruptHeaderCrc(std::uint8_t command, int times) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->faults[command].corruptHeaderTimes = times;
    impl_->anyFault.store(true);
}

void DeviceEmulator::corruptPayloadCrc(std::uint8_t command, int times) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->faults[command].corruptPayloadTimes = times;
    impl_->anyFault.store(true);
}

void DeviceEmulator::splitDatagrams(std::size_t maxBytes) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->splitBytes = maxBytes;
    impl_->anyFault.store(true);
}

void DeviceEmulator::duplicateDatagrams(bool on) {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->duplicate = on;
    impl_->anyFault.store(true);
}

void DeviceEmulator::clearFaults() {
    std::lock_guard<std::mutex> g(impl_->faultLock);
    impl_->faults.clear();
    impl_->splitBytes = 0;
    impl_->duplicate = false;
    impl_->anyFault.store(false);
}

// ---- uploads and raw traffic ----

bool DeviceEmulator::hostKnown() const {
    Endpoint to;
    return impl_->host(to);
}

void DeviceEmulator::sendRaw(const std::vector<std::uint8_t>& datagram) {
    Endpoint to;
    if (!impl_->host(to)) return;
    std::lock_guard<std::mutex> g(impl_->outLock);
    impl_->socket.sendTo(to.address, to.port, datagram.data(), datagram.size());
}

void DeviceEmulator::sendFrame(std::uint8_t command, const std::vector<std::uint8_t>& payload,
                               std::uint16_t sequence) {
    Endpoint to;
    if (!impl_->host(to)) return;
    impl_->emit(command, payload.data(), payload.size(), sequence != 0, sequence, to);
}

void DeviceEmulator::uploadFlexRay(const std::vector<FlexRayEntry>& entries) {
    impl_->uploadFlexRayEntries(entries);
}

void DeviceEmulator::uploadCan(const std::vector<CanEntry>& entries) {
    std::uint8_t channel = 0;
    {
        std::lock_guard<std::mutex> g(impl_->stateLock);
        channel = impl_->canChannel;
    }
    impl_->uploadCanEntries(entries, channel);
}

void DeviceEmulator::uploadBusState(std::uint16_t state) {
    impl_->upload(kUploadStatus, impl_->statusUpload(state, 0));
}

void DeviceEmulator::setCanTraffic(unsigned periodMs, std::uint32_t identifier,
                                   std::uint8_t length) {
    {
        std::lock_guard<std::mutex> g(impl_->stateLock);
        impl_->canPeriodMs = periodMs;
        impl_->canIdentifier = identifier;
        impl_->canLength = std::min<std::uint8_t>(length, 64);
    }
    impl_->poke();
}

void DeviceEmulator::startFlood(std::uint64_t total, std::uint64_t recordsPerSecond,
                                std::uint8_t words) {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> g(d.lifecycleLock);
    d.stopFlood();
    {
        std::lock_guard<std::mutex> f(d.floodLock);
        d.floodStop = false;
        d.floodDone = false;
    }
    d.floodCount.store(0);
    d.floodThread = std::thread(
        [&d, total, recordsPerSecond, words] { d.floodLoop(total, recordsPerSecond, words); });
}

bool DeviceEmulator::waitFlood(unsigned timeoutMs) {
    std::unique_lock<std::mutex> g(impl_->floodLock);
    return impl_->floodCv.wait_for(g, std::chrono::milliseconds(timeoutMs),
                                   [&] { return impl_->floodDone; });
}

std::uint64_t DeviceEmulator::floodSent() const {
    return impl_->floodCount.load();
}

}  // namespace emu
}  // namespace kelo
