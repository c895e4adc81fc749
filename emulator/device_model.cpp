#include "device_model.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kelo {
namespace emu {

namespace {

// FlexRay POC states the simulated node moves through (bits 8-10 of the node-state word).
constexpr std::uint8_t kPocDefaultConfig = 0;
constexpr std::uint8_t kPocReady = 1;
constexpr std::uint8_t kPocNormalActive = 2;

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

}  // namespace

DeviceModel::DeviceModel(Clock::time_point start) : epoch(start) {
    putLe32(info.data(), 0x01000203u);
    const char text[] = "KeLo EMU";
    std::memcpy(info.data() + 4, text, sizeof text - 1);
    buffers.resize(kBufferCount);
    setPoc(kPocDefaultConfig);
}

std::uint64_t DeviceModel::microsSinceStart() const {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - epoch).count());
}

std::uint64_t DeviceModel::nanosSinceStart() const {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - epoch).count());
}

Bytes DeviceModel::answer(std::uint8_t code, const Request& r, bool refused,
                          std::uint8_t refuseStatus, Effects& effects) {
    const ReplyShape& shape = kReplyShapes[code];
    Bytes out(shape.reply, 0);
    // A refused or malformed command changes nothing; its reply still carries the fields.
    const bool apply = !refused && r.size >= shape.request;
    std::lock_guard<std::mutex> g(lock);
    const std::uint8_t status = execute(code, r, out, apply, effects);
    out[shape.status] = refused ? refuseStatus : apply ? status : kStatusMalformed;
    return out;
}

// Carries out one command (when `apply`) and fills the reply's fields. Returns the status.
std::uint8_t DeviceModel::execute(std::uint8_t code, const Request& r, Bytes& out, bool apply,
                                  Effects& effects) {
    std::uint8_t status = kStatusOk;
    if (kReplyShapes[code].status == 0) {
        out[1] = r[0];
        out[2] = r[1];
    } else if (code != kCmdGetDeviceInfo && code != kCmdConnect) {
        out[0] = r[0];
    }

    bool& wake = effects.wake;
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
                    b.transmit = r[5] != 0;
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
                effects.before.push_back(
                    {kUploadStatus, false, 0, busStateUpload(1, r[0], microsSinceStart()), {}, {}});
                wake = true;
            }
            break;
        case kCmdStopNode:
            if (apply) {
                started = false;
                setPoc(kPocReady);
                effects.before.push_back(
                    {kUploadStatus, false, 0, busStateUpload(2, r[0], microsSinceStart()), {}, {}});
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
            if (apply) status = multiTransmit(r, out, effects);
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
    return status;
}

// 145: a 24-byte header (entry count at 16-19) and entries of 40 bytes plus data.
std::uint8_t DeviceModel::multiTransmit(const Request& r, Bytes& out, Effects& effects) {
    const std::uint32_t count = r.le32(16);
    std::size_t at = kMultiHeaderSize;
    std::uint32_t taken = 0;
    std::uint8_t status = kStatusOk;
    std::vector<CanEntry> echo;
    std::vector<std::uint8_t> echoChannels;
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
            echo.push_back(std::move(c));
            echoChannels.push_back(e[21]);
            at += kCanUploadEntryHead + length;
        } else {
            status = kStatusRejected;
            break;
        }
    }
    putLe32(out.data() + 4, taken);
    if (canOn && !echo.empty()) {
        // Echoed after the reply, as one or more 146 frames.
        packCan(
            echo, [&](std::size_t i) { return echoChannels[i]; },
            [&](const Bytes& payload) {
                effects.after.push_back({kUploadCan, false, 0, payload, {}, {}});
            });
    }
    return status;
}

void DeviceModel::resetClient() {
    for (SlotBuffer& b : buffers)
        b = SlotBuffer{};
    fifos.clear();
    registers.clear();
    started = false;
    uploads = false;
    canOn = false;
    canChannel = 0;
    setPoc(kPocDefaultConfig);
    for (CanTraffic& t : canTraffic) {
        t.generated = 0;
        t.ticking = false;
    }
}

void DeviceModel::setPoc(std::uint8_t poc) {
    psr[0] = static_cast<std::uint16_t>((psr[0] & ~0x0700u) | ((poc & 7u) << 8));
}

}  // namespace emu
}  // namespace kelo
