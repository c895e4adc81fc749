#include "device/KeLoCommLib.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <algorithm>
#include <cstring>

#include "device/byte_order.h"
#include "device/device_status.h"
#include "device/threads.h"

using namespace kelo;

std::atomic<std::uint8_t> g_keloConnectionMade{0};

namespace {

constexpr std::uint16_t kEngineTicks = 20;

// Four decimal numbers 0-255 separated by dots, nothing else: what a strict link accepts as a
// device address (inet_addr also takes "10.1", hexadecimal and octal forms, and turns anything
// else into the broadcast address).
bool isDottedQuad(const char* text) {
    if (!text) return false;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && *text++ != '.') return false;
        int value = 0;
        int digits = 0;
        while (*text >= '0' && *text <= '9') {
            value = value * 10 + (*text++ - '0');
            if (++digits > 3 || value > 255) return false;
        }
        if (digits == 0) return false;
    }
    return *text == '\0';
}

}  // namespace

// ---- construction ----------------------------------------------------------------------------

CommunicationLib::CommunicationLib() = default;
CommunicationLib::~CommunicationLib() = default;

KeLoCommLib::KeLoCommLib() {
    for (auto& s : status_)
        s.store(0);
    for (auto& e : expected_)
        e.store(0);
}

KeLoCommLib::~KeLoCommLib() {
    // A device object is meant to be closed before it is deleted. If it was not (or an open
    // failed half-way), stop the link here so that no thread outlives the object.
    wakeWaiters();
    stopLink();
}

// Counts a caller that may block inside the object, so that a close can wait for it to leave.
struct KeLoCommLib::CallScope {
    explicit CallScope(KeLoCommLib& lib) : lib_(lib) { lib_.activeCalls_.fetch_add(1); }
    ~CallScope() { lib_.activeCalls_.fetch_sub(1); }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    KeLoCommLib& lib_;
};

void KeLoCommLib::wakeWaiters() {
    closing_.store(1);
    while (activeCalls_.load() > 0) {
        for (auto& event : events_)
            event.set();
        sleepMs(1);
    }
}

CommunicationLib* GetKeLoComm() {
    return new KeLoCommLib();
}

// ---- command primitives ----------------------------------------------------------------------

bool KeLoCommLib::sendFrame(std::uint8_t code, const void* payload, std::uint16_t length) {
    if (!engine_ || !addressUsable_) return false;
    const auto* bytes = static_cast<const std::uint8_t*>(payload);
    if (!strict_) return engine_->send(code, bytes, length, nullptr, kEngineTicks);
    // A strict link arms the reply match of commands that have a reply.
    const int index = eventIndex(code);
    if (index < 0) return engine_->send(code, bytes, length, nullptr, kEngineTicks);
    // A reply to an earlier call that is still on its way must not complete this one. The reset
    // waits for a reply being dispatched, so that its event cannot land after the reset.
    {
        std::lock_guard<std::mutex> g(strictLock_);
        events_[index].reset();
    }
    engine_->sendArmed(code, bytes, length, expected_[index]);
    return true;
}

// Replies usually come back within tens of microseconds: spin that long before sleeping.
constexpr unsigned kReplySpinMicros = 50;

unsigned char KeLoCommLib::waitReply(std::uint8_t code, unsigned int waitMs) {
    const bool signalled = !closing_.load() && eventFor(code).wait(waitMs, kReplySpinMicros);
    disarmReply(code);
    if (closing_.load()) return kDeviceLinkClosed;
    return signalled ? kDeviceOk : kDeviceNoReply;
}

void KeLoCommLib::disarmReply(std::uint8_t code) {
    const int index = eventIndex(code);
    if (strict_ && index >= 0) expected_[index].store(0);
}

unsigned char KeLoCommLib::command(std::uint8_t code, const void* payload, std::uint16_t length,
                                   unsigned int waitMs, bool preset) {
    CallScope scope(*this);
    if (preset) presetStatus(code);
    if (!sendFrame(code, payload, length)) return kDeviceNotSent;
    if (const unsigned char waited = waitReply(code, waitMs)) return waited;
    return status(code) != 0 ? kDeviceRefused : kDeviceOk;
}

unsigned char KeLoCommLib::commandByte(std::uint8_t code, unsigned char value) {
    return command(code, &value, 1, kWait);
}

// ---- link ------------------------------------------------------------------------------------

unsigned char KeLoCommLib::OpenDevice(const char* address) {
    // Re-opening an object whose link is up would leak its threads and socket: stop it first.
    if (engine_ || link_.socket.isOpen()) stopLink();

    // 1. Address, as text and as an 8-bit copy.
    const char* text = address ? address : "";
    address_ = QString::fromLatin1(text);
    std::strncpy(address8_, text, sizeof address8_ - 1);
    address8_[sizeof address8_ - 1] = '\0';
    link_.address = parseIPv4(address8_);
    // No address at all is never sent to; a strict link wants a dotted one.
    addressUsable_ = address != nullptr && (!strict_ || isDottedQuad(address));
    uploadActive_.store(0);
    closing_.store(0);

    // 2. Protocol engine in the host role; the reply dispatcher sees every frame it parses.
    createEngine();

    // 3-5. Socket.
    UdpSocket& socket = link_.socket;
    if (!netStartup()) return kDeviceNotSent;
    if (!socket.open()) return kDeviceNotSent;
    socket.setReceiveBuffer(0x400000);
    if (!socket.setReceiveTimeout(1000) || !socket.setBlocking(true)) {
        socket.close();
        return kDeviceNotSent;
    }

    // 6. Receive and tick threads.
    linkOpen_.store(1);
    rxThread_ = new threadUDPproc(socket, *engine_);
    rxThread_->running.store(1);
    rxThread_->start(QThread::TimeCriticalPriority);
    tickThread_ = new threadTFtickproc(*engine_);
    tickThread_->running.store(1);
    tickThread_->start(QThread::TimeCriticalPriority);

    // 7-8. Device information, up to five tries.
    unsigned char info[kDeviceInfoSize] = {};
    unsigned char result = kDeviceOk;
    for (int attempt = 0; attempt < 5; ++attempt) {
        result = GetDeviceInfo(info);
        if (result == kDeviceOk) break;
    }
    if (result != kDeviceOk) {
        rxThread_->running.store(0);
        rxThread_->quit();
        tickThread_->quit();
        return result;
    }

    // 9. Software version.
    softwareVersion_ = le32(info);

    // 10. Connect. The payload carries the library's version word for the device's log.
    std::uint8_t connect[4];
    putLe32(connect, 0x02000006u);
    result = command(kCmdConnect, connect, sizeof connect, kWait);
    if (result != kDeviceOk) return result;
    g_keloConnectionMade.store(1);

    // 11. Keep-alive.
    keepAliveThread_ = new threadKeepAliveproc(*engine_);
    keepAliveThread_->running.store(1);
    keepAliveThread_->start(QThread::NormalPriority);
    return kDeviceOk;
}

void KeLoCommLib::createEngine() {
    if (!engine_) engine_.reset(new FrameEngine(1, &link_, sendLock_, this));
}

void KeLoCommLib::attachReceivePath(bool uploadsActive) {
    createEngine();
    uploadActive_.store(uploadsActive ? 1 : 0);
}

void KeLoCommLib::receiveBytes(const std::uint8_t* data, std::size_t length) {
    if (engine_ && length > 0) engine_->feed(data, length);
}

unsigned char KeLoCommLib::get_software_version(unsigned int* version) {
    if (version) *version = softwareVersion_;
    return kDeviceOk;
}

unsigned char KeLoCommLib::Fr_Open(const char* address) {
    unsigned char result = OpenDevice(address);
    if (result == kDeviceOk) queues_.reserveFlexRay();
    return result;
}

void KeLoCommLib::stopLink() {
    stopThreadsAndSocket();
    engine_.reset();
}

void KeLoCommLib::releaseAfterFailedOpen() {
    stopThreadsAndSocket();
}

void KeLoCommLib::stopThreadsAndSocket() {
    if (rxThread_) rxThread_->running.store(0);
    if (tickThread_) tickThread_->running.store(0);
    if (keepAliveThread_) keepAliveThread_->running.store(0);
    if (tickThread_) tickThread_->wakeUp.set();
    if (keepAliveThread_) keepAliveThread_->wakeUp.set();
    link_.socket.interrupt();  // the receive thread returns from its wait at once
    auto finish = [](auto*& thread) {
        if (!thread) return;
        if (thread->isRunning()) {
            thread->quit();
            thread->wait();
        }
        (void)thread->finished.observed();
        delete thread;
        thread = nullptr;
    };
    finish(tickThread_);
    finish(keepAliveThread_);
    finish(rxThread_);
    link_.socket.close();
}

unsigned char KeLoCommLib::Fr_Close() {
    unsigned char result = command(kCmdClose, nullptr, 0, kWait);
    linkOpen_.store(0);
    eventFor(kUploadFlexRay).set();  // a waiting Fr_Receive returns 4
    wakeWaiters();                   // and so does every other waiting call
    stopLink();
    queues_.clearFlexRay();
    return result;
}

unsigned char KeLoCommLib::CAN_Open(const char* address, unsigned char channel) {
    canChannel_ = channel;
    unsigned char result = OpenDevice(address);
    if (result == kDeviceOk) canOpened_.store(1);
    return result;
}

unsigned char KeLoCommLib::CAN_Close() {
    canOpened_.store(0);
    eventFor(kUploadCan).set();  // a waiting CAN_Receive returns 4
    wakeWaiters();               // and so does every other waiting call
    stopLink();
    return kDeviceOk;
}

// ---- FlexRay configuration -------------------------------------------------------------------

unsigned char KeLoCommLib::Fr_Set_Cluster_Parameter(unsigned char* cluster) {
    if (!cluster) return kDeviceBadArgument;
    SetControllerMode(1, cluster[0], 0xA0000000u);
    return command(kCmdSetClusterParameter, cluster, 40, kWait);
}

unsigned char KeLoCommLib::Fr_Set_Node_Parameter(const char* node) {
    if (!node) return kDeviceBadArgument;
    return command(kCmdSetNodeParameter, node, 52, kWait);
}

// The communication-controller record is the controller byte followed by five bytes.
unsigned char KeLoCommLib::Fr_Set_CC_Parameter(const char* cc) {
    if (!cc) return kDeviceBadArgument;
    return command(kCmdSetCcParameter, cc, 6, kWait);
}

unsigned char KeLoCommLib::SetTimeOffset(long long seconds) {
    // Unsigned arithmetic so that an out-of-range offset wraps instead of overflowing.
    std::uint64_t nanos = static_cast<std::uint64_t>(seconds) * 1000000000ull;
    std::uint8_t payload[8];
    putLe32(payload, static_cast<std::uint32_t>(nanos));
    putLe32(payload + 4, static_cast<std::uint32_t>(nanos >> 32));
    return command(kCmdSetTimeOffset, payload, sizeof payload, kWait, false);
}

unsigned char KeLoCommLib::Fr_SetFrPhyNodeKeySlot(const char* keyslot) {
    if (!keyslot) return kDeviceBadArgument;
    return command(kCmdSetKeySlot, keyslot, 9, kWait);
}

// The device answers with the buffer index it assigned; it is written into the record's second
// byte (the first byte of the caller's slot block).
unsigned char KeLoCommLib::Fr_Set_Slot_Parameter(unsigned char* slot) {
    if (!slot) return kDeviceBadArgument;
    unsigned char result = command(kCmdSetSlotParameter, slot, 14, kWait);
    if (result == kDeviceOk) {
        std::lock_guard<std::mutex> g(replyLock_);
        slot[1] = slotResult_;
    }
    return result;
}

unsigned char KeLoCommLib::Fr_Set_Fifo_Parameter(unsigned char* fifo) {
    if (!fifo) return kDeviceBadArgument;
    fifo[2] = 0;
    unsigned char result = command(kCmdSetFifoParameter, fifo, kFifoRecordSize, kWait);
    if (result != kDeviceOk) return result;
    fifo[2] = 1;
    return command(kCmdSetFifoParameter, fifo, kFifoRecordSize, kWait);
}

unsigned char KeLoCommLib::Fr_Configure_Node(unsigned char c) {
    return commandByte(kCmdConfigureNode, c);
}
unsigned char KeLoCommLib::Fr_SendWakeUp(unsigned char c) {
    return commandByte(kCmdSendWakeUp, c);
}
unsigned char KeLoCommLib::Fr_Start_Node(unsigned char c) {
    return commandByte(kCmdStartNode, c);
}
unsigned char KeLoCommLib::Fr_Stop(unsigned char c) {
    return command(kCmdStopNode, &c, 1, 3000);
}

unsigned char KeLoCommLib::Fr_StartFrRxUpload(unsigned char c) {
    uploadActive_.store(1);
    return commandByte(kCmdStartRxUpload, c);
}

unsigned char KeLoCommLib::Fr_StopFrRxUpload(unsigned char c) {
    uploadActive_.store(0);
    return commandByte(kCmdStopRxUpload, c);
}

unsigned char KeLoCommLib::Fr_GetFrNodeState(unsigned char controller, unsigned char* state,
                                             unsigned char* sub) {
    LockGuard g(nodeStateLock_);
    unsigned char result = commandByte(kCmdGetNodeState, controller);
    if (result == kDeviceOk) {
        std::lock_guard<std::mutex> r(replyLock_);
        if (state) *state = nodeState_;
        if (sub) *sub = nodeSubState_;
    }
    return result;
}

unsigned char KeLoCommLib::Fr_GetFrPSRState(unsigned char controller, unsigned char* psr) {
    unsigned char state = 0, sub = 0;
    unsigned char result = Fr_GetFrNodeState(controller, &state, &sub);
    if (result == kDeviceOk && psr) {
        std::lock_guard<std::mutex> r(replyLock_);
        std::memcpy(psr, nodeReply_ + 2, 8);
    }
    return result;
}

unsigned char KeLoCommLib::Fr_GetFrNWVector(unsigned char controller, unsigned char* vector,
                                            unsigned char* length) {
    unsigned char result = commandByte(kCmdGetNmVector, controller);
    if (result == kDeviceOk) {
        std::lock_guard<std::mutex> r(replyLock_);
        if (vector) std::memcpy(vector, nmVector_, nmLength_);
        if (length) *length = nmLength_;
    }
    return result;
}

// ---- FlexRay traffic -------------------------------------------------------------------------

unsigned int KeLoCommLib::Fr_framesAvailable() {
    return static_cast<unsigned int>(queues_.flexRayCount());
}

unsigned char KeLoCommLib::Fr_ClearRcvBuffer(unsigned char) {
    queues_.clearFlexRay();
    return kDeviceOk;
}

unsigned char KeLoCommLib::Fr_Receive(unsigned char* record, unsigned int timeoutMs) {
    if (!record) return kDeviceBadArgument;
    CallScope scope(*this);
    while (queues_.flexRayCount() == 0) {
        if (!linkOpen_.load() || closing_.load()) return kDeviceLinkClosed;
        if (!eventFor(kUploadFlexRay).wait(timeoutMs, kReplySpinMicros)) return kDeviceNoReply;
        if (queues_.flexRayCount() != 0) break;
        if (!linkOpen_.load() || closing_.load()) return kDeviceLinkClosed;
    }
    return queues_.popFlexRay(record) ? kDeviceOk : kDeviceNoReply;
}

unsigned char KeLoCommLib::Fr_Transmit(unsigned char controller, unsigned char slot,
                                       unsigned char* data, unsigned char words) {
    if (!busActive_.load()) return kDeviceBusInactive;
    if (!data && words) return kDeviceBadArgument;
    LockGuard g(frTransmitLock_);
    std::uint8_t payload[4 + 2 * 255];
    payload[0] = controller;
    payload[1] = slot;
    payload[2] = words;
    payload[3] = 0;
    if (words) std::memcpy(payload + 4, data, 2u * words);
    return command(kCmdTransmit, payload, static_cast<std::uint16_t>(4 + 2 * words), kWait);
}

unsigned char KeLoCommLib::Fr_FillData_beforeTransmit_MultiFrame(unsigned char index,
                                                                 unsigned char slot, void* data,
                                                                 unsigned char length) {
    if (index >= 128) return kDeviceBadArgument;
    if (!data && length) return kDeviceBadArgument;
    StagedFrame& e = staging_[index];
    std::size_t bytes = std::min<std::size_t>(length, sizeof e.data);
    e.slot = slot;
    e.words = static_cast<std::uint8_t>(length / 2);
    if (bytes) std::memcpy(e.data, data, bytes);
    e.filled = 1;
    return kDeviceOk;
}

unsigned char KeLoCommLib::Fr_Transmit_MultiFrame(unsigned char controller, unsigned char count,
                                                  unsigned char* result, unsigned char wait) {
    if (wait == 0 && !busActive_.load()) return kDeviceBusInactive;
    std::uint8_t payload[kMultiHeaderSize + 128 * (40 + 254)] = {};
    std::size_t length = kMultiHeaderSize;
    putLe32(payload + 16, count);
    {
        std::lock_guard<std::mutex> g(replyLock_);
        putLe32(payload + 20, transmitCounter_++);
    }
    for (unsigned i = 0; i < count; ++i) {
        // Only 128 staging entries exist; an entry past them is never filled.
        if (i >= 128 || !staging_[i].filled) return kDeviceStageEmpty;
        StagedFrame& e = staging_[i];
        std::uint8_t* head = payload + length;
        head[20] = 1;
        head[21] = controller;
        head[22] = e.slot;
        head[33] = e.words;
        std::size_t bytes = std::min<std::size_t>(2u * e.words, sizeof e.data);
        std::memcpy(head + 40, e.data, bytes);
        length += 40 + bytes;
        e.filled = 0;
    }
    if (length >= 1300) return kDeviceBatchTooLong;
    CallScope scope(*this);
    presetStatus(kCmdMultiTransmit);
    if (!sendFrame(kCmdMultiTransmit, payload, static_cast<std::uint16_t>(length)))
        return kDeviceNotSent;
    if (wait == 0) return kDeviceOk;
    if (const unsigned char waited = waitReply(kCmdMultiTransmit, kWait)) return waited;
    {
        std::lock_guard<std::mutex> g(replyLock_);
        if (result) *result = static_cast<unsigned char>(transmitResult_);
    }
    return status(kCmdMultiTransmit) != 0 ? kDeviceRefused : kDeviceOk;
}

unsigned char KeLoCommLib::Fr_ReplaySend(unsigned char controller, unsigned char channel,
                                         const char* data, unsigned short length) {
    if (!data && length) return kDeviceBadArgument;
    if (length > FrameEngine::kMaxPayload - 2)
        return kDeviceBadArgument;  // longer than any frame the device takes
    std::uint8_t payload[FrameEngine::kMaxPayload];
    payload[0] = controller;
    payload[1] = channel;
    if (length) std::memcpy(payload + 2, data, length);
    return command(kCmdReplaySend, payload, static_cast<std::uint16_t>(2 + length), 500);
}

// ---- device management -----------------------------------------------------------------------

unsigned char KeLoCommLib::GetDeviceInfo(unsigned char* info) {
    unsigned char result = command(kCmdGetDeviceInfo, nullptr, 0, 5000);
    if (result == kDeviceOk && info) {
        std::lock_guard<std::mutex> g(replyLock_);
        std::memcpy(info, deviceInfo_, kDeviceInfoSize);
    }
    return result;
}

unsigned char KeLoCommLib::SetDeviceInfo(unsigned char* info) {
    if (!info) return kDeviceBadArgument;
    std::lock_guard<std::mutex> g(replyLock_);
    std::memcpy(deviceInfo_, info, kDeviceInfoSize);
    return kDeviceOk;
}

unsigned char KeLoCommLib::SetDeviceOption(unsigned char value) {
    return commandByte(kCmdSetDeviceOption, value);
}

unsigned char KeLoCommLib::SetDeviceText(const char* text) {
    std::uint8_t payload[32] = {};
    QByteArray latin1 = QString::fromUtf8(text ? text : "").toLatin1();
    std::memcpy(payload, latin1.constData(), std::min<std::size_t>(latin1.size(), 31));
    return command(kCmdSetDeviceText, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::FrSetDevIp(const char* address) {
    // No text is no address: the device would be given 0.0.0.0. A strict link sends only a
    // dotted address.
    if (!address || (strict_ && !isDottedQuad(address))) return kDeviceBadArgument;
    std::uint8_t payload[4];
    putLe32(payload, QHostAddress(QString::fromLatin1(address)).toIPv4Address());
    return command(kCmdSetDeviceIp, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::ResetCPU() {
    presetStatus(kCmdResetCpu);
    return sendFrame(kCmdResetCpu, nullptr, 0) ? kDeviceOk : kDeviceNotSent;
}

// ---- CAN parameters and shared controller operations -----------------------------------------

unsigned char KeLoCommLib::CAN_SetBusParameter(unsigned char kind, unsigned char channel,
                                               unsigned char* block) {
    if (!block) return kDeviceBadArgument;
    std::uint8_t payload[52] = {kind, channel, 0, 0};
    std::memcpy(payload + 4, block, 48);
    return command(kCmdCanSetBusParameter, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::CAN_SetFilterParameter(unsigned char kind, unsigned char channel,
                                                  unsigned char* block) {
    if (!block) return kDeviceBadArgument;
    std::uint8_t payload[36] = {kind, channel, 0, 0};
    std::memcpy(payload + 4, block, 32);
    return command(kCmdCanSetFilterParameter, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::CAN_SetOptionParameter(unsigned char kind, unsigned char channel,
                                                  unsigned char* block) {
    if (!block) return kDeviceBadArgument;
    std::uint8_t payload[46] = {kind, channel};
    std::memcpy(payload + 2, block, 44);
    return command(kCmdCanSetOptionParameter, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::SetControllerMode(unsigned char kind, unsigned char controller,
                                             unsigned int word) {
    std::uint8_t payload[8] = {kind, controller, 0, 0};
    putLe32(payload + 4, word);
    return command(kCmdSetControllerMode, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::Fr_WriteRegister(unsigned char kind, unsigned char controller,
                                            unsigned int word) {
    std::uint8_t payload[6] = {kind, controller};
    putLe32(payload + 2, word);
    return command(kCmdWriteRegister, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::Fr_ReadRegister(unsigned char kind, unsigned char controller,
                                           unsigned int* word) {
    std::uint8_t payload[2] = {kind, controller};
    unsigned char result = command(kCmdReadRegister, payload, sizeof payload, kWait);
    if (result == kDeviceOk && word) {
        std::lock_guard<std::mutex> g(replyLock_);
        *word = registerWord_;
    }
    return result;
}

unsigned char KeLoCommLib::Fr_Set_WorkMode(unsigned char kind, unsigned char controller, char mode,
                                           unsigned char flag) {
    unsigned int word = mode == 1 ? 2u : 0u;
    if (flag == 1) word |= 0x20000000u;
    return Fr_WriteRegister(kind, controller, word);
}

namespace {
// Register bit addressed by Fr_WriteValue / Fr_ReadValue, 0 for an unknown selector.
constexpr unsigned int valueBit(unsigned int which) {
    return which == 0 ? 0x10000000u : which == 1 ? 0x40000000u : 0u;
}
}  // namespace

unsigned char KeLoCommLib::Fr_WriteValue(unsigned char kind, unsigned char controller,
                                         unsigned int which, int value) {
    const unsigned int bit = valueBit(which);
    if (bit == 0) return kDeviceBadArgument;
    unsigned int word = 0;
    unsigned char result = Fr_ReadRegister(kind, controller, &word);
    if (result != kDeviceOk) return result;
    word = value != 0 ? (word | bit) : (word & ~bit);
    return Fr_WriteRegister(kind, controller, word);
}

unsigned char KeLoCommLib::Fr_ReadValue(unsigned char kind, unsigned char controller,
                                        unsigned int which, unsigned int* value) {
    const unsigned int bit = valueBit(which);
    if (bit == 0) return kDeviceBadArgument;
    unsigned int word = 0;
    unsigned char result = Fr_ReadRegister(kind, controller, &word);
    if (result == kDeviceOk && value) *value = (word & bit) ? 1u : 0u;
    return result;
}

unsigned char KeLoCommLib::Fr_SetNodeRxTimeout(unsigned char kind, unsigned char controller,
                                               unsigned int timeout) {
    std::uint8_t payload[6] = {kind, controller};
    putLe32(payload + 2, timeout);
    return command(kCmdSetNodeRxTimeout, payload, sizeof payload, kWait);
}

// ---- CAN -------------------------------------------------------------------------------------

unsigned char KeLoCommLib::CAN_Start(unsigned char mode) {
    std::uint8_t payload[2] = {mode, canChannel_};
    return command(kCmdCanStart, payload, sizeof payload, kWait);
}

unsigned char KeLoCommLib::CAN_Stop(unsigned char mode) {
    std::uint8_t payload[2] = {mode, canChannel_};
    return command(kCmdCanStop, payload, sizeof payload, kWait);
}

// The caller's configuration record: bytes 0-15 bus timing, two acceptance-filter entries of
// 16 bytes at 20 and 36 (8 bytes, a 16-bit word, a 32-bit word, packed), byte 50 the filter
// mode, byte 51 the option byte. See docs/protocol.md for where each lands.
unsigned char KeLoCommLib::CAN_Configure(unsigned char* config) {
    if (!config) return kDeviceBadArgument;
    if (SetControllerMode(2, canChannel_, 0xA0000000u) != kDeviceOk) return kDeviceCanModeFailed;

    std::uint8_t bus[48] = {};
    std::memcpy(bus, config, 16);
    bus[16] = 64;
    if (CAN_SetBusParameter(2, canChannel_, bus) != kDeviceOk) return kDeviceCanBusFailed;

    // Two 16-byte filter entries keep the record's packed layout (8 bytes at 0, the 16-bit word
    // at 8, the 32-bit word at 10); the filter mode travels in the last byte of the block, which
    // no entry uses, so the command keeps its 36-byte payload.
    std::uint8_t filter[32] = {};
    for (int n = 0; n < 2; ++n) {
        const std::uint8_t* src = config + 20 + 16 * n;
        std::uint8_t* dst = filter + 16 * n;
        std::memcpy(dst, src, 8);
        std::memcpy(dst + 8, src + 8, 2);
        std::memcpy(dst + 10, src + 10, 4);
    }
    filter[31] = config[50];
    if (CAN_SetFilterParameter(2, canChannel_, filter) != kDeviceOk) return kDeviceCanFilterFailed;

    std::uint8_t option[44] = {0, config[51]};
    if (CAN_SetOptionParameter(2, canChannel_, option) != kDeviceOk) return kDeviceCanOptionFailed;
    return kDeviceOk;
}

unsigned char KeLoCommLib::CAN_SetNodeRxTimeout(unsigned char* config) {
    if (!config) return kDeviceBadArgument;
    return Fr_SetNodeRxTimeout(2, canChannel_, le32(config));
}

unsigned char KeLoCommLib::CAN_Transmit(unsigned char* frame, unsigned char* data) {
    if (!frame) return kDeviceBadArgument;
    const std::uint8_t length = frame[8];
    if (length > kCanMaxData || (!data && length)) return kDeviceBadArgument;
    LockGuard g(canTransmitLock_);
    std::uint8_t payload[kMultiHeaderSize + kCanUploadEntryHead + kCanMaxData] = {};
    putLe32(payload + 16, 1);
    std::uint8_t* entry = payload + kMultiHeaderSize;
    entry[20] = 2;
    entry[21] = canChannel_;
    std::uint32_t flags = static_cast<std::uint32_t>(frame[4] & 3u) << 30;
    if (frame[5]) flags |= 0x800000u;
    if (frame[6]) flags |= 0x200000u;
    if (frame[7]) flags |= 0x100000u;
    putLe32(entry + 24, flags);
    std::memcpy(entry + 28, frame, 4);
    entry[32] = length;
    if (length) std::memcpy(entry + 40, data, length);
    unsigned char result =
        command(kCmdMultiTransmit, payload,
                static_cast<std::uint16_t>(kMultiHeaderSize + kCanUploadEntryHead + length), kWait);
    if (result != kDeviceOk) return result;
    std::lock_guard<std::mutex> r(replyLock_);
    return transmitChannel_ == canChannel_ ? kDeviceOk : kDeviceRefused;
}

unsigned char KeLoCommLib::CAN_Receive(unsigned char* record, unsigned int timeoutMs) {
    if (!record) return kDeviceBadArgument;
    CallScope scope(*this);
    while (queues_.canCount() == 0) {
        if (!canOpened_.load() || closing_.load()) return kDeviceLinkClosed;
        if (!eventFor(kUploadCan).wait(timeoutMs, kReplySpinMicros)) return kDeviceNoReply;
        if (queues_.canCount() != 0) break;
        if (!canOpened_.load() || closing_.load()) return kDeviceLinkClosed;
    }
    if (!queues_.popCan(record)) return kDeviceNoReply;
    record[0] = canChannel_;
    return kDeviceOk;
}

unsigned int KeLoCommLib::CAN_framesAvailable() {
    return static_cast<unsigned int>(queues_.canCount());
}

unsigned char KeLoCommLib::CAN_ClearRcvBuffer() {
    queues_.clearCan();
    return kDeviceOk;
}

// ---- reply dispatcher ------------------------------------------------------------------------

void KeLoCommLib::onFrame(const FrameMessage& m) {
    const std::uint8_t code = m.command;
    const std::uint8_t* p = m.payload;
    const std::size_t n = p ? m.length : 0;

    switch (code) {
        case kUploadFlexRay:
            if (uploadActive_.load() && queues_.takeFlexRay(p, n)) eventFor(kUploadFlexRay).set();
            return;
        case kUploadCan:
            // A strict link keeps no CAN records nobody can ask for.
            if (strict_ && !canOpened_.load()) return;
            if (queues_.takeCan(p, n, strict_)) eventFor(kUploadCan).set();
            return;
        case kUploadStatus:
            takeBusStates(p, n, busActive_);
            return;
        default:
            break;
    }
    const ReplyShape& shape = kReplyShapes[code];
    if (shape.accept == 0 || n < shape.accept) return;  // unknown or malformed: ignored
    // A strict link takes only the reply its waiting caller sent the command for, and checks and
    // completes it in one step against the next call's reset.
    std::unique_lock<std::mutex> strictGuard(strictLock_, std::defer_lock);
    if (strict_) {
        strictGuard.lock();
        if (expected_[shape.event].load() != (0x10000u | m.sequence)) return;
    }

    {
        std::lock_guard<std::mutex> g(replyLock_);
        switch (code) {
            case kCmdSetSlotParameter:
                slotResult_ = p[4];
                break;
            case kCmdGetNmVector:
                // A FlexRay NM vector has at most 12 bytes (bytes 2-13, before the status).
                nmLength_ = std::min<std::uint8_t>(p[1], 12);
                std::memcpy(nmVector_, p + 2, nmLength_);
                break;
            case kCmdMultiTransmit:
                transmitChannel_ = p[2];
                transmitResult_ = le32(p + 4);
                break;
            case kCmdReadRegister:
                registerWord_ = le32(p + 3);
                break;
            case kCmdGetNodeState:
                nodeState_ = static_cast<std::uint8_t>((le16(p + 2) >> 8) & 0x7u);
                nodeSubState_ = p[10];
                std::memcpy(nodeReply_, p, sizeof nodeReply_);
                break;
            default:
                break;
        }
    }
    if (code == kCmdGetDeviceInfo) SetDeviceInfo(const_cast<std::uint8_t*>(p));
    status_[code].store(p[shape.status]);
    events_[shape.event].set();
}
